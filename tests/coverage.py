#!/usr/bin/env python3
"""What llvm-cov has exported, summed up for each subsystem. Fails below the shares that are promised."""
import json
import os
import sys

SUBSYSTEMS = ["ServiceProcess", "AudioFeeder", "Projects/Common/VoIPFileEngine", "ConfigClient"]
PROMISED = {"lines": 95.0, "branches": 85.0}


def uncovered_lines(entry):
    """The lines in which a region begins that no test has run. A segment is line, column, count, has count, entry."""
    return sorted({line for line, _, count, counted, entered, *_ in entry["segments"]
                   if counted and entered and count == 0})


def main():
    files = {}
    with open(sys.argv[1], encoding="utf-8") as text:
        for entry in json.load(text)["data"][0]["files"]:
            files[os.path.relpath(entry["filename"])] = entry

    low = False
    print(f"{'':34}{'LINES':>20}{'BRANCHES':>22}")
    for subsystem in SUBSYSTEMS:
        entries = [entry for name, entry in files.items() if name.startswith(subsystem + "/")]
        if not entries:
            sys.exit(f"{subsystem}: nothing was counted")
        row = f"{subsystem:34}"
        for kind, promised in PROMISED.items():
            total = sum(entry["summary"][kind]["count"] for entry in entries)
            run = sum(entry["summary"][kind]["covered"] for entry in entries)
            share = 100.0 * run / total
            low |= share < promised
            row += f"{run:8} of {total:5} {share:5.1f}%"
        print(row)

    if "--uncovered" in sys.argv:
        for name, entry in sorted(files.items()):
            lines = uncovered_lines(entry)
            branches = entry["summary"]["branches"]
            missed = branches["count"] - branches["covered"]
            if lines or missed:
                print(f"{name}: {missed} branches; lines {', '.join(map(str, lines)) or 'none'}")
    if low:
        sys.exit(f"below {PROMISED['lines']:.0f} % of the lines or {PROMISED['branches']:.0f} % of the branches")


main()

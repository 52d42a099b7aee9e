#!/usr/bin/env python3
"""The cost of one stream: this service beside ffmpeg and GStreamer, on the same files, in one run.

Each candidate plays for a while in turn, several rounds of all of them, each round beginning with another one; the
median counts, and the least and the most of the rounds stand beside it. Playing means one file at real-time pace; mixing
means music, a prompt over it that ducks it, and a limiter. All play the same files from the page cache. What a candidate
needs to start is not counted: it is measured when it has settled. A round in which no processor had a rest is refused,
since what is short of processors does not play in real time and seems cheaper than it is.

What is not equal is in the others' favour: they have nobody who listens and write to /dev/null, this service has a client
on each feed; ffmpeg is told to use one thread where it would use several, which is a little cheaper; GStreamer is told to
mix 125 ms at once as this service does, which is several times cheaper than its own 10 ms.

    bench/compare.py --bin build/bench/bin --streams 100 --seconds 15 --rounds 3
"""
import argparse
import itertools
import json
import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

MUSIC = pathlib.Path("/usr/share/asterisk/moh")
BLOCK = 125_000_000  # nanoseconds of sound that this service makes at once
PROMPT = pathlib.Path("/usr/share/asterisk/sounds/en/queue-periodic-announce.wav")


def processor_seconds(pid):
    # The clock of another process, all threads together (clock_getcpuclockid).
    return time.clock_gettime((~pid << 3) | 2)


def memory_kib(pid):
    for line in pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines():
        if line.startswith("Pss:"):
            return int(line.split()[1])
    return 0


def busy_seconds():
    """Processor time of the whole machine that was not idle."""
    ticks = [int(word) for word in pathlib.Path("/proc/stat").read_text().split("\n", 1)[0].split()[1:8]]
    return (ticks[0] + ticks[1] + ticks[2] + ticks[5] + ticks[6]) / os.sysconf("SC_CLK_TCK")


def refuse_overload(name, busy):
    if busy > 0.95 * os.cpu_count():
        sys.exit(f"{name}: {busy:.2f} of {os.cpu_count()} processors were busy, so nothing is known of real time; "
                 "measure on a machine with nothing else to do, or with fewer --streams")


def pieces(count):
    files = sorted(MUSIC.glob("*.wav"))
    if not files:
        sys.exit(f"no music in {MUSIC}")
    return list(itertools.islice(itertools.cycle(files), count))


def measure(commands, streams, options):
    """Starts the commands, lets them settle, and measures them over a stretch."""
    with tempfile.TemporaryFile() as errors:
        running = [
            subprocess.Popen(c, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=errors) for c in commands
        ]
        try:
            time.sleep(options.settle)
            began, busy, before = time.monotonic(), busy_seconds(), sum(processor_seconds(p.pid) for p in running)
            time.sleep(options.seconds)
            spent = sum(processor_seconds(p.pid) for p in running) - before
            took = time.monotonic() - began
            refuse_overload(commands[0][0], (busy_seconds() - busy) / took)
            memory = sum(memory_kib(p.pid) for p in running)
            if any(p.poll() is not None for p in running):
                errors.seek(0)
                sys.exit(f"{commands[0][0]} has ended: {errors.read().decode(errors='replace')[-2000:]}")
        finally:
            for process in running:
                process.kill()
            for process in running:
                process.wait()
    return 1000 * spent / took / streams, memory / streams


def ffmpeg_playing(options):
    return [
        ["ffmpeg", "-nostdin", "-v", "error", "-threads", "1", "-re", "-stream_loop", "-1", "-i", file, "-threads", "1",
         "-f", "s16le", "-y", "/dev/null"]
        for file in pieces(options.streams)
    ]


def ffmpeg_mixing(options):
    graph = "[1]asplit[key][over];[0][key]sidechaincompress=ratio=8[low];[low][over]amix=inputs=2,alimiter"
    return [
        ["ffmpeg", "-nostdin", "-v", "error", "-filter_complex_threads", "1", "-re", "-stream_loop", "-1", "-i", file, "-re",
         "-stream_loop", "-1", "-i", PROMPT, "-filter_complex", graph, "-f", "s16le", "-ar", "8000", "-y", "/dev/null"]
        for file in pieces(options.streams)
    ]


def gstreamer_playing(options):
    command = ["gst-launch-1.0", "-q"]
    for file in pieces(options.streams):
        command += f"filesrc location={file} ! wavparse ! fakesink sync=true".split()
    return [command]


def gstreamer_mixing(options):
    # There is no loop in a pipeline: the second source is music too, so that it lasts.
    command = ["gst-launch-1.0", "-q"]
    files = pieces(options.streams + 1)
    for number, file in enumerate(files[:-1]):
        command += (
            f"audiomixer name=m{number} output-buffer-duration={BLOCK} ! audiodynamic mode=compressor ratio=0.5 ! fakesink sync=true "
            f"filesrc location={file} ! wavparse ! m{number}. "
            f"filesrc location={files[number + 1]} ! wavparse ! m{number}.").split()
    return [command]


def service(options, *more):
    with tempfile.TemporaryDirectory() as folder:
        report = pathlib.Path(folder) / "report.json"
        done = subprocess.run(
            [options.bin / "orv-load", "--feeds", str(options.streams), "--music", MUSIC, "--announcement", PROMPT,
             "--seconds", str(options.seconds), "--settle", str(options.settle), "--json", report, *more],
            stdout=subprocess.DEVNULL, check=False)
        if done.returncode != 0:
            sys.exit("orv-load has failed")
        row = json.loads(report.read_text())["rows"][0]
    refuse_overload("orv-audio-feed", row["processors_busy"])
    return row["ms_per_feed_second"], row["pss_kib_per_feed"]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--bin", type=pathlib.Path, default=pathlib.Path("build/bench/bin"))
    parser.add_argument("--streams", type=int, default=100)
    parser.add_argument("--seconds", type=float, default=15)
    parser.add_argument("--settle", type=float, default=8, help="seconds between a candidate's start and its measurement")
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--markdown", help="writes the table to this file")
    options = parser.parse_args()
    for program in ("ffmpeg", "gst-launch-1.0"):
        if shutil.which(program) is None:
            sys.exit(f"{program} is not installed: apt-get install ffmpeg gstreamer1.0-tools gstreamer1.0-plugins-base "
                     "gstreamer1.0-plugins-good")
    candidates = [
        ("orv-audio-feed playing, a client each",
         lambda: service(options, "--no-announcements", "--limiter", "0")),
        ("orv-audio-feed with announcements and limiter, a client each", lambda: service(options)),
        ("ffmpeg playing", lambda: measure(ffmpeg_playing(options), options.streams, options)),
        ("ffmpeg mixing, ducking, limiting", lambda: measure(ffmpeg_mixing(options), options.streams, options)),
        ("GStreamer playing, one process", lambda: measure(gstreamer_playing(options), options.streams, options)),
        ("GStreamer mixing, compressing, one process",
         lambda: measure(gstreamer_mixing(options), options.streams, options)),
    ]
    found = {name: [] for name, _ in candidates}
    for turn in range(options.rounds):
        first = turn % len(candidates)
        for name, run in candidates[first:] + candidates[:first]:
            found[name].append(run())
            print(f"round {turn + 1}: {name}: {found[name][-1][0]:.3f} ms, {found[name][-1][1]:.0f} KiB", flush=True)
    lines = [
        f"{options.streams} streams, {options.seconds:g} s, median of {options.rounds} rounds in turn, "
        f"{time.strftime('%Y-%m-%d', time.gmtime())}:", "",
        "| | processor ms per stream and second | least to most | MiB per stream |", "|---|---|---|---|"
    ]
    for name, values in found.items():
        costs, memory = zip(*values)
        lines.append(f"| {name} | {statistics.median(costs):.3f} | {min(costs):.3f} to {max(costs):.3f} "
                     f"| {statistics.median(memory) / 1024:.2f} |")
    text = "\n".join(lines) + "\n"
    print("\n" + text, end="")
    if options.markdown:
        pathlib.Path(options.markdown).write_text(text)


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""What a playing feed costs: real processes, real files, one client on each feed.

Starts orv-config and orv-audio-feed in a folder of its own, makes feeds over sorted playlists of real hold music, puts
one client on each, and takes the processor time of the service over a stretch of playing, from the kernel's count.
Prints one row per number of feeds.

    bench/feed-cost.py --bin build/release/bin --feeds 1 10 100 --seconds 30
"""
import argparse
import json
import os
import pathlib
import re
import selectors
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

MUSIC = sorted(pathlib.Path("/usr/share/asterisk/moh").glob("*.wav"))
BLOCK = 2000


def wait_until(condition, what, seconds=30.0):
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > deadline:
            sys.exit(f"gave up waiting for {what}")
        time.sleep(0.02)


def processor_seconds(pid):
    # schedstat counts in nanoseconds, per thread.
    total = 0
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        try:
            total += int((task / "schedstat").read_text().split()[0])
        except FileNotFoundError:
            pass
    return total / 1e9


def memory_kib(pid):
    for line in pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines():
        if line.startswith("Pss:"):
            return int(line.split()[1])
    return 0


class Exchange:
    def __init__(self, binaries, feeds, announcements, limiter):
        self.bin = pathlib.Path(binaries).resolve()
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="orv-b-"))
        self.children = []
        prompts = self.folder / "d/Data/Ivr/Prompts"
        playlist = prompts / "Playlist/music"
        playlist.mkdir(parents=True)
        for piece in MUSIC[:5]:
            shutil.copy(piece, playlist)
        for user, role in (("admin", "admin"), ("feeder", "reader")):
            secret = self.folder / f"{user}.password"
            secret.write_text(f"{user}-password")
            subprocess.run(
                [self.bin / "orv-config", "user", "add", user, "--role", role, "--database", self.folder / "c.db",
                 "--password-file", secret], check=True, stdout=subprocess.DEVNULL)
        log = self.folder / "config.log"
        self.start([self.bin / "orv-config", "serve", "--database", self.folder / "c.db", "--port", "0"], log)
        found = []
        wait_until(lambda: found.extend(re.findall(r"listening on [^ ]*:(\d+)", log.read_text())) or found, "orv-config")
        for user in ("admin", "feeder"):
            (self.folder / f"{user}.ini").write_text(
                f"[General]\nAppDataPath={self.folder}/d\nPipePath={self.folder}/p\n[ConfService]\n"
                f"confNIC=127.0.0.1\nConfPort={found[0]}\nconfUser={user}\nconfPass={user}-password\n")
        self.ctl("parameter", "set", "SYSTEMLOGGINGLEVEL", "--value", "1")
        if limiter:
            self.ctl("parameter", "set", "AUDIO_PROVIDER_MAX_VOLUME", "--value", "50")
        if announcements:
            prompt = prompts / "prompt.wav"
            shutil.copy("/usr/share/asterisk/sounds/en/queue-thankyou.wav", prompt)
            self.ctl("announcement", "add", "one", "--file", str(prompt))
        more = ["--announcements", "on", "--min-pause", "2", "--max-pause", "8"] if announcements else []
        for number in range(feeds):
            self.ctl("feed", "add", f"f{number}", "--type", "sorted", "--folder", "music", *more)
        self.service = self.start([self.bin / "orv-audio-feed", "-c", self.folder / "feeder.ini"], self.folder / "feeder.log")
        pipes = self.folder / "p"
        wait_until(lambda: pipes.is_dir() and len(list(pipes.iterdir())) == feeds, "the pipes", 60)

    def start(self, command, log):
        with open(log, "w", encoding="utf-8") as output:
            self.children.append(subprocess.Popen(command, stdout=output, stderr=output))
        return self.children[-1]

    def ctl(self, *words):
        subprocess.run([self.bin / "orvctl", "-c", self.folder / "admin.ini", *words], check=True, stdout=subprocess.DEVNULL)

    def stop(self):
        for child in reversed(self.children):
            child.send_signal(signal.SIGTERM)
            child.wait(60)
        shutil.rmtree(self.folder)


def drain(selector, seconds):
    """Reads from every client for that long; returns the bytes of each."""
    got = {}
    until = time.monotonic() + seconds
    while (left := until - time.monotonic()) > 0:
        for key, _ in selector.select(left):
            data = key.fileobj.recv(65536)
            if not data:
                sys.exit("a feed ended")
            got[key.fd] = got.get(key.fd, 0) + len(data)
    return got


def measure(arguments, feeds):
    exchange = Exchange(arguments.bin, feeds, arguments.announcements, arguments.limiter)
    try:
        selector = selectors.DefaultSelector()
        clients = []
        for number in range(0 if arguments.idle else feeds):
            client = socket.socket(socket.AF_UNIX)
            client.connect(str(exchange.folder / f"p/f{number}"))
            selector.register(client, selectors.EVENT_READ)
            clients.append(client)
        drain(selector, 3)
        pid = exchange.service.pid
        before, began = processor_seconds(pid), time.monotonic()
        got = drain(selector, arguments.seconds)
        spent, took = processor_seconds(pid) - before, time.monotonic() - began
        row = {
            "feeds": feeds,
            "clients": len(clients),
            "seconds": round(took, 3),
            "ms_per_feed_second": round(1000 * spent / feeds / took, 4),
            "blocks_per_client_second": round(sum(got.values()) / BLOCK / took / max(1, len(clients)), 3),
            "pss_kib_per_feed": round(memory_kib(pid) / feeds, 1),
            "threads": len(list(pathlib.Path(f"/proc/{pid}/task").iterdir())),
            "descriptors": len(list(pathlib.Path(f"/proc/{pid}/fd").iterdir())),
        }
        for client in clients:
            client.close()
        return row
    finally:
        exchange.stop()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--bin", default="build/release/bin")
    parser.add_argument("--feeds", type=int, nargs="+", default=[1, 10, 100])
    parser.add_argument("--seconds", type=float, default=30.0)
    parser.add_argument("--announcements", action="store_true", help="announcements after pauses of 2 to 8 seconds")
    parser.add_argument("--limiter", action="store_true", help="a level limit of 50 percent")
    parser.add_argument("--idle", action="store_true", help="no clients")
    parser.add_argument("--json", action="store_true")
    arguments = parser.parse_args()
    rows = [measure(arguments, feeds) for feeds in arguments.feeds]
    if arguments.json:
        print(json.dumps(rows, indent=1))
        return
    print("  ".join(rows[0]))
    for row in rows:
        print("  ".join(str(value).rjust(len(name)) for name, value in row.items()))


if __name__ == "__main__":
    main()

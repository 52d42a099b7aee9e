#!/usr/bin/env python3
"""Goal: every command that a page tells its reader to type works as it is written. Method: the commands are read from the
page (each line of a code block without a language, and each `span` that begins with a program and goes on) and typed one
after the other, on a terminal, on a machine that the test makes and throws away (machine.py). One that runs until it is
stopped gets its Ctrl-C after ten seconds; the lines below it do not wait for that, as in another terminal. ./test.sh alone
is left out. Before the guide removes what it has installed, the packages are installed once more over what runs. What
stands for something else: a build is the copy of this build's programs, systemctl is a stand-in.

usage: pages.py README.md|docs/guide.md FOLDER_OF_PROGRAMS
"""
import fcntl
import glob
import os
import pty
import re
import shutil
import struct
import subprocess
import sys
import termios
import threading
import time
from xml.etree import ElementTree

from machine import Machine, StandIn
from support import (SKIPPED, TREE, build_packages, in_namespaces_of_its_own, loudest, make_mp3, make_stereo_flac, need, run,
                     samples_of)

OURS = ("orv-audio-feed", "orv-config", "orvctl", "orv-listen", "orv-publish", "orv-convert")
PROGRAM = re.compile(r"(\./[^ ]+\.sh\b|packaging/[^ ]+\.sh\b|build/|(" + "|".join(OURS) + r"|apt|adduser|chown|cp|curl|ffmpeg|man|sox|"
                     r"systemctl|systemd-[a-z]+|journalctl)\s)")
COLOUR = re.compile(r"\x1b\[\d+m")
LONGEST = 60  # seconds for a command that ends by itself
STOPPED_AFTER = 10
METER = r"\] +-[1-6]?\d\.\d dB  peak"  # no silence, which is -96 dB or less


class Expected:
    """What is known of one command. All others must end by themselves, with 0."""

    def __init__(self, text, says="", stopped=False, answer="", whole_page=False, codes=(0,)):
        self.text, self.says, self.stopped, self.answer, self.codes = text, says, stopped, answer, codes
        self.whole_page = whole_page  # runs while the others are typed
        self.ahead = None             # what the test does itself ahead of it
        self.used = False


class Typed:
    """A command on a terminal of its own."""

    def __init__(self, machine, line, user, folder, environment):
        self.line = line
        self.said = ""  # without colours
        self.began = time.monotonic()
        self.terminal, there = pty.openpty()
        fcntl.ioctl(there, termios.TIOCSWINSZ, struct.pack("HHHH", 30, 120, 0, 0))
        uid, gid, _ = machine.ids(user, user)
        os.fchown(there, uid, gid)
        self.process = subprocess.Popen(
            ["setsid", "--ctty", *machine.entry(user, user), "/bin/bash", "-c", f"cd {folder} && {line}"],
            stdin=there, stdout=there, stderr=there, env=environment)
        os.close(there)
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()

    def read(self):
        while True:
            try:
                data = os.read(self.terminal, 65536)
            except OSError:  # the last one has closed the terminal
                return
            if not data:
                return
            self.said = COLOUR.sub("", self.said + data.decode(errors="replace"))

    def type(self, text):
        os.write(self.terminal, text.encode())

    def wait_for(self, pattern, seconds):
        end = time.monotonic() + seconds
        while not re.search(pattern, self.said):
            need(self.process.poll() is None and time.monotonic() < end, f"{self.line}: never said {pattern}:\n{self.said}")
            time.sleep(0.05)

    def end(self, expected):
        """Waits for it, or stops it when it is time for that, and looks at how it ended."""
        if expected.stopped:
            time.sleep(max(0.0, self.began + STOPPED_AFTER - time.monotonic()))
            need(self.process.poll() is None, f"{self.line}: ended by itself with {self.process.returncode}:\n{self.said}")
            self.type("\x03")
        try:
            code = self.process.wait(LONGEST)
        except subprocess.TimeoutExpired:
            raise AssertionError(f"{self.line}: does not end:\n{self.said}") from None
        self.reader.join(5)
        os.close(self.terminal)
        need(code in expected.codes, f"{self.line}: ended with {code}:\n{self.said}")
        # What goes on for ten seconds must say it to its end.
        said = self.said[-2000:] if expected.stopped and not expected.whole_page else self.said
        need(re.search(expected.says, said), f"{self.line}: did not say {expected.says}:\n{said}")


def commands_of(page):
    """The page's commands in order, in groups that belong together: the lines of a block, or one span."""
    groups, block, plain, language = [], None, [], None

    def flush():
        for span in re.findall(r"`([^`]+)`", "\n".join(plain)):
            command = " ".join(span.split())
            # What has been typed above is only mentioned.
            if PROGRAM.match(span) and not any(command in group for group in groups):
                groups.append([command])
        plain.clear()

    for line in page.splitlines():
        if line.startswith("```"):
            flush()
            if block is None:
                block, language = [], line[3:].strip()
            else:
                if not language and block:
                    groups.append(block)
                block = None
        elif block is None:
            plain.append(line)
        elif re.sub(r"(^|\s)#.*", "", line).strip():
            block.append(re.sub(r"\s+#.*", "", line))
    need(block is None, "a code block has no end")
    flush()
    return groups


class Page:
    """Types the commands of one page."""

    def __init__(self, machine, user, folder, path, expected):
        self.machine, self.user, self.folder, self.expected = machine, user, folder, expected
        self.environment = {"PATH": path, "HOME": folder, "TERM": "xterm", "LC_ALL": "C.UTF-8", "USER": user,
                            "DEBIAN_FRONTEND": "noninteractive", "DEB_BUILD_OPTIONS": "noautodbgsym",
                            "ORV_COMPRESSION": "-Zgzip -z1",  # as the tests of the packages have it
                            "MANPAGER": "cat", "PAGER": "cat"}
        self.running = []
        self.said = {}
        self.count = 0

    def find(self, line):
        for expected in self.expected:
            if line.startswith(expected.text):
                expected.used = True
                return expected
        return Expected(line)

    def type_group(self, lines):
        running = []
        for line in lines:
            if line.startswith("./test.sh"):
                continue
            expected = self.find(line)
            if expected.ahead:
                expected.ahead()
            typed = Typed(self.machine, line, self.user, self.folder, self.environment)
            self.count += 1
            if expected.whole_page:
                typed.wait_for(expected.says, LONGEST)
                self.running.append((typed, expected))
            elif expected.stopped:
                typed.wait_for(expected.says, LONGEST)
                running.append((typed, expected))
            else:
                if expected.answer:
                    typed.wait_for(r"\[Y/n\]", LONGEST)
                    typed.type(expected.answer)
                typed.end(expected)
            self.said[line] = typed
            print(f"{time.monotonic() - self.began:6.1f} s  {line}", flush=True)
        # Who listens first, then what is listened to.
        for typed, expected in reversed(running):
            typed.end(expected)

    def type_all(self, text):
        self.began = time.monotonic()
        for group in commands_of(text):
            self.type_group(group)
        for typed, expected in self.running:
            typed.end(expected)
        unused = [expected.text for expected in self.expected if not expected.used]
        need(not unused, f"the page does not say any more: {unused}")
        print(f"{self.count} commands in {time.monotonic() - self.began:.0f} s")


# --- the pages ---

CTL = "build/release/bin/orvctl -c run/orvctl.ini "
LISTEN = "build/release/bin/orv-listen "
README = [
    Expected("./run.sh", r"sorted +level -[1-6]?\d\.\d dB.*plays \S+\.wav", stopped=True, whole_page=True),
    Expected(CTL + "feed set", "its clients stay connected"),
    Expected(LISTEN + "sorted --pipe-folder run/pipe --meter", METER, stopped=True),
    Expected("ffmpeg", "", stopped=True),
    Expected(LISTEN + "hold", METER, stopped=True),
    Expected(CTL + "status --watch", r"sorted +playing", stopped=True, codes=(-2,)),
    Expected(CTL + "status", r"PIPE +STATE"),
    Expected("curl", '"feeds"'),
    Expected("packaging/build.sh", "orv-tools_.*deb"),
]
GUIDE = [
    Expected("apt install", "Setting up orv-audio-feed"),
    Expected("orvctl setup", "The services run"),
    Expected("orv-listen default --meter", METER, stopped=True),
    Expected("orv-listen hold --meter", METER, stopped=True),
    Expected("orvctl import song.flac", r"(?s)\] +\d+%  1/1  song\.flac.*song\.wav"),  # its bar, then its table
    Expected("ffmpeg", "", stopped=True),
    Expected("orvctl status --watch", r"hold +", stopped=True, codes=(-2,)),
    Expected("orvctl status", r"hold +(playing|idle)"),
    Expected("orvctl doctor", "Nothing is wrong"),
    Expected("curl", "orv_"),
    Expected("systemctl status", r"Active: active \(running\)"),
    Expected("orvctl export", ""),
    Expected("apt purge", "The sound files stay in", answer="y\n"),
]


def check_picture(shown):
    """The page's picture has the headings that are shown, which it would keep after they have changed."""
    with open(f"{TREE}/README.md", encoding="utf-8") as file:
        name = re.search(r"!\[[^]]*\]\((docs/[^)]*\.svg)\)", file.read())[1]
    words = [text.text for text in ElementTree.parse(f"{TREE}/{name}").iter() if text.tag.endswith("}text")]
    headings = words[words.index("PIPE"):words.index("PLAYS") + 1]
    need(re.search(" +".join(headings), shown), f"{name} shows the headings {headings}, and orvctl:\n{shown[-2000:]}")


def readme(machine, programs):
    run("useradd", "--root", machine.path, "--create-home", "reader")
    home = "/home/reader"
    copy = home + "/orv-audio-feed"
    shutil.copytree(TREE, machine / copy, symlinks=True,
                    ignore=lambda folder, names: {"build", "run", ".git"} & set(names) if folder == TREE else set())
    os.makedirs(machine / "opt/built")
    for program in OURS:
        run("strip", "-o", machine / f"opt/built/{program}", f"{programs}/{program}")
    os.makedirs(machine / f"{home}/bin")
    # In place of a build, whose programs are these.
    machine.write(f"{home}/bin/cmake", '#!/bin/sh\n[ "$1" != --build ] || { mkdir -p "$2/bin" && cp -u /opt/built/* "$2/bin/"; }\n')
    run("chown", "-R", "--reference", machine / home, machine / home)
    page = Page(machine, "reader", copy, f"{home}/bin:{copy}/build/release/bin:/usr/bin:/bin", README)
    with open(f"{TREE}/README.md", encoding="utf-8") as file:
        page.type_all(file.read())
    check_picture(page.said[CTL + "status --watch"].said)
    heard = samples_of(machine / f"{copy}/hold.wav")
    need(len(heard) == 80000 and loudest(heard) > 500, f"hold.wav has {len(heard)} samples, the loudest {loudest(heard)}")


def check_upgrade(machine, manager, folder):
    """New packages over those that run: each service is started anew, and a new orv-config is not left without the audio
    feed service, which would never connect to it again by itself."""
    config, feed = "orv-config.service", "orv-audio-feed.service"
    for package, expected in ((config, ["stop " + config, "start " + config, "stop " + feed, "start " + feed]),
                              (feed, ["stop " + feed, "start " + feed])):
        before, done = {unit: manager.process_of(unit) for unit in (config, feed)}, len(manager.done)
        file = os.path.basename(*glob.glob(f"{machine / folder}/{package.split('.')[0]}_*.deb"))
        machine.run("/usr/bin/dpkg", "--install", f"{folder}/{file}", environment={"DEBIAN_FRONTEND": "noninteractive"})
        need(manager.done[done:] == expected, f"the upgrade by {file} did {manager.done[done:]}")
        for unit, process in before.items():
            again = manager.process_of(unit)
            need(again, f"{unit} does not run after the upgrade by {file}")
            need((again != process) == ("start " + unit in expected), f"{unit} was process {process} and is {again}")
        # Ready comes before the tables.
        said, end = "", time.monotonic() + 20
        while "Nothing is wrong" not in said:
            need(time.monotonic() < end, f"doctor says after the upgrade by {file}:\n{said}")
            said = machine.start(("/usr/bin/orvctl", "doctor")).communicate(timeout=60)[0]
    print("upgraded")


def guide(machine, programs):
    folder = machine / "root/orv"
    os.makedirs(folder)
    for package in build_packages(programs, machine / "tmp/packages"):
        shutil.copy(package, folder)
    # What the reader has: a media server's user, and music.
    run("useradd", "--root", machine.path, "--system", "asterisk")
    make_stereo_flac(folder + "/song.flac", 20)
    make_mp3(folder + "/thanks.mp3", 3)
    manager = StandIn(machine)
    # The last thing that the guide does with what it has installed.
    purge = next(expected for expected in GUIDE if expected.text == "apt purge")
    purge.ahead = lambda: check_upgrade(machine, manager, "/root/orv")
    page = Page(machine, "root", "/root/orv", "/usr/sbin:/usr/bin:/sbin:/bin", GUIDE)
    with open(f"{TREE}/docs/guide.md", encoding="utf-8") as file:
        page.type_all(file.read())


def main():
    pages = {"README.md": readme, "docs/guide.md": guide}
    if len(sys.argv) != 3 or sys.argv[1] not in pages:
        sys.exit(__doc__.strip().splitlines()[-1])
    if not in_namespaces_of_its_own("--pid", "--fork", "--kill-child"):
        print("only root can make a machine of its own: skipped")
        return SKIPPED
    machine = Machine()
    try:
        pages[sys.argv[1]](machine, sys.argv[2])
        return 0
    except AssertionError:
        machine.tell_logs()
        raise
    finally:
        machine.close()


if __name__ == "__main__":
    sys.exit(main())

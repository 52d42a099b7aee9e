#!/usr/bin/env python3
"""Goal: the packages install into a clean root, one command makes them play, people's own music comes in and is heard in
other programs, and a purge leaves the sound files and nothing else. Method: the packages are made from the programs of
this build and installed by dpkg into an empty folder; no service manager runs, so users and folders come from the
packages' own files, and the programs are started in that root as the installed units say (ExecStart, User, Group,
SupplementaryGroups, the limits, UMask, Environment), with a notify socket of the test's own and in a network of their own.

usage: install.py FOLDER_OF_PROGRAMS
"""
import array
import glob
import os
import re
import shutil
import signal
import socket
import sqlite3
import stat
import sys
import tempfile
import wave

from support import (SKIPPED, Notify, Root, Unit, build_packages, in_namespaces_of_its_own, loudest, make_mp3,
                     make_stereo_flac, need, run, samples_of, within)

PROGRAMS = ("/usr/sbin/orv-audio-feed", "/usr/sbin/orv-config", "/usr/bin/orvctl", "/usr/bin/orv-listen",
            "/usr/bin/orv-publish",
            "/usr/libexec/orv/orv-convert")
UNITS = ("orv-audio-feed.service", "orv-config.service", "orv-log-clean.service", "orv-log-clean.timer")
MOST_EXPOSED = 15  # tenths
JAZZ = "var/lib/Orv/Data/Ivr/Prompts/Playlist/jazz"
OWN_FOLDER = "srv/our pipes"
PIECE = 3  # seconds of each imported file
HEARD = 8  # seconds of the feed that plays them in turn


class CleanRoot(Root):
    """An empty folder in which nothing is installed but these packages."""

    def __init__(self):
        super().__init__(tempfile.mkdtemp(prefix="orv-root-", dir="/tmp"))
        os.chmod(self.path, 0o755)
        for folder in ("var/lib/dpkg/info", "var/lib/dpkg/updates", "etc", "run", "tmp", "dev", "proc"):
            os.makedirs(self / folder)
        os.chmod(self / "tmp", 0o1777)
        for name, text in (("var/lib/dpkg/status", ""), ("etc/passwd", "root:x:0:0:root:/root:/bin/sh\n"),
                           ("etc/group", "root:x:0:\n")):
            with open(self / name, "w", encoding="utf-8") as file:
                file.write(text)
        # The programs reach open files by their names in there.
        run("mount", "--bind", "/proc", self / "proc")

    def dpkg(self, *arguments):
        return run("dpkg", "--root=" + self.path, "--force-script-chrootless", "--force-depends", "--force-unsafe-io",
                   "--path-include=/*", *arguments, env=dict(os.environ, DEBIAN_FRONTEND="noninteractive", LC_ALL="C"))

    def lend_libraries(self):
        """What the programs load, from this system: the dependencies of the packages are not what is tested here."""
        self.lent = set()
        wanted = set()
        for program in PROGRAMS:
            wanted.update(re.findall(r"(/\S+) \(0x", run("ldd", self / program)))
        for library in wanted:
            target = self / library
            os.makedirs(os.path.dirname(target), exist_ok=True)
            if not os.path.exists(target):
                shutil.copy2(os.path.realpath(library), target)
                self.lent.add(target)
        for name, mode, major, minor in (("null", 0o666, 1, 3), ("urandom", 0o666, 1, 9)):
            os.mknod(self / f"dev/{name}", stat.S_IFCHR | mode, os.makedev(major, minor))

    def close(self):
        self.end_children()
        run("umount", "--lazy", self / "proc")
        shutil.rmtree(self.path, ignore_errors=True)


def check_lintian(folder):
    found = run("lintian", "--allow-root", "--fail-on", "error,warning", *glob.glob(folder + "/*.changes"))
    need(found == "", f"lintian says:\n{found}")


def check_units(root):
    feed = Unit(root / "lib/systemd/system/orv-audio-feed.service")
    for key, value in (("Type", "notify"), ("WatchdogSec", "60"), ("LimitNOFILE", "65536"), ("TasksMax", "32768"),
                       ("TimeoutStopSec", "15min"),
                       ("ExecStart", "/usr/sbin/orv-audio-feed -c /etc/orv/OrvPhoneSystem.ini")):
        need(feed.get(key) == value, f"{key} of the unit is {feed.get(key)}")
    # The rest of a system that the units refer to, in a root of its own: nothing here starts it.
    system = tempfile.mkdtemp(prefix="orv-units-", dir="/tmp")
    try:
        units = os.path.join(system, "lib/systemd/system")
        shutil.copytree("/lib/systemd/system", units, symlinks=True)
        for unit in UNITS:
            shutil.copy(root / f"lib/systemd/system/{unit}", units)
        for program in PROGRAMS + ("/usr/libexec/orv/log-clean",):
            os.makedirs(os.path.dirname(system + program), exist_ok=True)
            shutil.copy(root / program, system + program)
        environment = dict(os.environ, MANPATH=root / "usr/share/man", LC_ALL="C")
        said = run("systemd-analyze", "verify", "--root=" + system, *UNITS, env=environment)
        need(said == "", f"systemd-analyze verify says:\n{said}")
        for unit in UNITS[:3]:
            said = run("systemd-analyze", "security", "--offline=yes", f"--threshold={MOST_EXPOSED}", "--no-pager",
                       "--root=" + system, unit, env=environment)
            print(said.strip().splitlines()[-1].encode("ascii", "ignore").decode().strip())
    finally:
        shutil.rmtree(system, ignore_errors=True)


def check_enabled(root):
    """The services and the timer start with the system, which is what the packages' scripts have to see to."""
    for wanted in ("multi-user.target.wants/orv-audio-feed.service", "multi-user.target.wants/orv-config.service",
                   "timers.target.wants/orv-log-clean.timer"):
        link = root / f"etc/systemd/system/{wanted}"
        need(os.path.islink(link), f"{wanted} is not enabled")
        need(os.readlink(link) == "/lib/systemd/system/" + os.path.basename(wanted), f"{wanted} is {os.readlink(link)}")


def check_started(root, name, process):
    """The process has what its unit gives it."""
    unit = Unit(root / f"lib/systemd/system/{name}")
    with open(f"/proc/{process.pid}/status", encoding="utf-8") as file:
        umask = next(line.split()[1] for line in file if line.startswith("Umask:"))
    need(umask == unit.get("UMask"), f"{name} runs with the umask {umask}")
    with open(f"/proc/{process.pid}/limits", encoding="utf-8") as file:
        limits = file.read()
    for title, limit in (("Max open files", "nofile"), ("Max locked memory", "memlock")):
        if limit in unit.limits():
            need(re.search(rf"^{title} +{unit.limits()[limit]} ", limits, re.M), f"{name} runs with\n{limits}")


def check_rights(root, path, mode, user, group):
    uid, gid, _ = root.ids(user, group, "")
    status = os.stat(root / path)
    found = (oct(stat.S_IMODE(status.st_mode)), status.st_uid, status.st_gid)
    need(found == (oct(mode), uid, gid), f"{path} is {found}, not {(oct(mode), uid, gid)}")


def check_folders(root):
    for name in ("orv-audio-feed", "orv-config"):
        # Once more by hand: what the packages' scripts have done must be what these files say.
        run("systemd-sysusers", "--root=" + root.path, root / f"usr/lib/sysusers.d/{name}.conf")
        run("systemd-tmpfiles", "--root=" + root.path, "--create", root / f"usr/lib/tmpfiles.d/{name}.conf")
    check_rights(root, "/run/Orv/pipe", 0o3770, "root", "orv-audio")
    check_rights(root, "/etc/orv", 0o2750, "root", "orv")
    check_rights(root, "/var/lib/Orv/Data/Logs", 0o750, "orv", "orv")
    check_rights(root, "/var/lib/Orv/Config", 0o700, "orv-config", "orv-config")


def check_setup(root):
    said = root.run("/usr/bin/orvctl", "setup")
    for made in ("Database ", "User admin, role admin", "User feeder, role reader", "Feed default"):
        need(f"made   {made}" in said, f"setup did not make {made}:\n{said}")
    check_rights(root, "/etc/orv/OrvPhoneSystem.ini", 0o640, "root", "orv")
    check_rights(root, "/etc/orv/orvctl.ini", 0o600, "root", "orv")
    check_rights(root, "/var/lib/Orv/Config/orv-config.db", 0o600, "orv-config", "orv-config")
    before = {name: open(root / name, encoding="utf-8").read() for name in
              ("etc/orv/OrvPhoneSystem.ini", "etc/orv/orvctl.ini")}
    said = root.run("/usr/bin/orvctl", "setup")
    need("made " not in said, f"a second setup made something:\n{said}")
    for name, text in before.items():
        need(open(root / name, encoding="utf-8").read() == text, f"a second setup has changed {name}")


def check_sound(root):
    """What is heard is a piece of the default sound, sample for sample."""
    # The service is ready before it has its tables.
    within(15, lambda: os.path.exists(root / "run/Orv/pipe/default"), "the feed has no pipe")
    # Any user will do, as long as it has the group of the pipes.
    root.run("/usr/bin/orv-listen", "default", "--wav", "/tmp/heard.wav", "--seconds", "5", user="orv-config",
             group="orv-audio")
    with wave.open(root / "tmp/heard.wav") as file:
        format_ = (file.getframerate(), file.getnchannels(), file.getsampwidth())
        need(format_ == (8000, 1, 2), f"the format is {format_}")
        heard = file.readframes(file.getnframes())
    with wave.open(root / "usr/share/orv/default.wav") as file:
        whole = file.readframes(file.getnframes())
    need(len(heard) == 5 * 16000, f"{len(heard)} bytes came in 5 seconds")
    samples = array.array("h", heard)
    need(loudest(samples) > 1000, f"the loudest of {len(samples)} samples is {loudest(samples)}")
    # Silence until the stream is there, then a rise of 1.25 seconds.
    need(heard[-16000:] in whole + whole, "the last second heard is no part of the default sound")


def check_change(root):
    said = root.run("/usr/bin/orvctl", "feed", "set", "default", "--max-volume", "5")
    need("its clients stay connected" in said, f"orvctl says:\n{said}")
    said = root.run("/usr/bin/orvctl", "setup")
    need("made " not in said, f"setup beside running services made something:\n{said}")


def same_music(one, other, most_lag):
    """How much alike two sounds are, 1 for the same at any level, where they fit best; a piece from their middle tells."""
    middle, length = len(one) // 2, 4000
    piece = one[middle:middle + length]
    best = 0.0
    for lag in range(-most_lag, most_lag + 1):
        there = other[middle + lag:middle + lag + length]
        product = sum(map(int.__mul__, piece, there))
        scale = (sum(x * x for x in piece) * sum(x * x for x in there)) ** 0.5
        best = max(best, product / scale if scale else 0.0)
    return best


def check_import(root):
    """What people have becomes what a feed plays."""
    make_mp3(root / "tmp/a-song.mp3", PIECE)
    make_stereo_flac(root / "tmp/b-song.flac", PIECE)
    root.run("/usr/bin/orvctl", "feed", "add", "hold", "--type", "sorted", "--folder", "jazz")
    said = root.run("/usr/bin/orvctl", "import", "/tmp/a-song.mp3", "/tmp/b-song.flac", "--feed", "hold")
    need(said.count(".wav") >= 2, f"import says:\n{said}")
    print(said.strip())
    # The feed has begun with the default file, since its folder was empty.
    root.run("/usr/bin/orvctl", "feed", "rebuild", "hold")
    # A frame of MP3 has 1152 samples, and a decoder's own delay is not everywhere taken off: at 8000 Hz some 400.
    for source, lag in (("a-song.mp3", 420), ("b-song.flac", 2)):
        made = root / f"{JAZZ}/{source.split('.')[0]}.wav"
        said = run("soxi", made)
        for value in ("Channels       : 1", "Sample Rate    : 8000", "Precision      : 16-bit"):
            need(value in said, f"{made} is not as it should be:\n{said}")
        samples = samples_of(made)
        need(abs(len(samples) - PIECE * 8000) <= 420, f"{made} has {len(samples)} samples")
        alike = same_music(samples, samples_of(root / f"tmp/{source}"), lag)
        print(f"{source}: alike {alike:.4f}")
        need(alike > 0.98, f"{made} is not the music of {source}: {alike}")


def without_zeros(samples):
    """orv-listen --follow puts silence where a loaded machine made it wait; nothing else may differ."""
    return array.array("h", filter(None, samples)).tobytes()


def check_consumers(root):
    """The lines of the page for media servers, behind the installed program, hand on every sample of the two files."""
    with open(root / "usr/share/doc/orv-tools/consumers.md", encoding="utf-8") as page:
        lines = [line for line in page if line.startswith("orv-listen hold ")]
    lines = {name: next(line for line in lines if f"hold-{name}.wav" in line) for name in ("sox", "ffmpeg")}
    work = tempfile.mkdtemp(prefix="orv-heard-", dir="/tmp")
    try:
        # Any user with the group of the pipes; the line itself never ends.
        with open(work + "/orv-listen", "w", encoding="utf-8") as script:
            script.write(f"#!/bin/sh\nexec {' '.join(root.entry('orv-config', 'orv-audio'))} "
                         f'/usr/bin/orv-listen "$@" --seconds {HEARD}\n')
        os.chmod(work + "/orv-listen", 0o755)
        environment = dict(os.environ, PATH=f"{work}:{os.environ['PATH']}")
        players = {name: root.start_outside(line, cwd=work, env=environment) for name, line in lines.items()}
        for name, player in players.items():
            said = player.communicate(timeout=60)[0]
            need(player.returncode == 0, f"{lines[name]} ended with {player.returncode}:\n{said}")
            heard = samples_of(f"{work}/hold-{name}.wav")
            need(len(heard) == HEARD * 8000, f"{name} got {len(heard)} samples in {HEARD} seconds")
            for file in ("a-song", "b-song"):
                whole = samples_of(root / f"{JAZZ}/{file}.wav")
                # The feed's first sound rises for 10000 samples.
                need(without_zeros(whole[11000:]) in without_zeros(heard), f"{name} did not hear {file}.wav to its end")
    finally:
        shutil.rmtree(work, ignore_errors=True)


def stop(process, manager):
    process.send_signal(signal.SIGTERM)
    manager.wait_for("STOPPING=1")
    need(process.wait(20) == 0, f"a service ended with {process.returncode}")
    manager.wait_for("STATUS=Stopped")


def leave_sockets(root):
    """A service that is killed while its pipes and its state lie in folders that an administrator chose."""
    uid, gid, _ = root.ids("orv", "orv-audio")
    os.makedirs(root / OWN_FOLDER)
    os.chown(root / OWN_FOLDER, uid, gid)
    with open(root / "etc/orv/OrvPhoneSystem.ini", "a", encoding="utf-8") as file:
        file.write(f'\n[General]\n pipepath = "/{OWN_FOLDER}/" ; not the package\'s\nStatusPath=/{OWN_FOLDER}/state\n')
    with open(root / f"{OWN_FOLDER}/notes.txt", "w", encoding="utf-8") as file:
        file.write("somebody's\n")
    with socket.socket(socket.AF_UNIX) as others:  # as who publishes a live source leaves one
        others.bind(root / f"{OWN_FOLDER}/radio")
    manager = Notify(root, "notify-killed")
    feed = root.start_unit("orv-audio-feed.service", manager)
    for name in ("default", "hold", "state"):
        within(15, lambda name=name: os.path.exists(root / f"{OWN_FOLDER}/{name}"), f"there is no socket {name}")
    feed.kill()
    feed.wait(20)
    left = sorted(os.listdir(root / OWN_FOLDER))
    need(left == ["default", "hold", "notes.txt", "radio", "state"], f"the killed service left {left}")


def check_purge(root):
    need(glob.glob(root / "var/lib/Orv/Data/Logs/Backup/*/OrvAudioProvider.*.log"), "there is no closed log to remove")
    said = root.dpkg("--purge", "orv-tools", "orv-config", "orv-audio-feed")
    need("The sound files stay in /var/lib/Orv/Data/Ivr" in said, f"purge does not say where the sound files are:\n{said}")
    left = []
    for where, folders, names in os.walk(root.path):
        if where == root.path:
            folders.remove("proc")
        left += [os.path.join(where, name)[len(root.path):] for name in names
                 if os.path.join(where, name) not in root.lent]
    ours = sorted(path for path in left if not path.startswith(("/var/lib/dpkg/", "/tmp/", "/dev/", "/run/notify-"))
                  and path not in ("/etc/passwd", "/etc/group", "/etc/shadow", "/etc/gshadow", "/etc/shadow-", "/etc/gshadow-", "/etc/passwd-",
                                   "/etc/group-", "/etc/.pwd.lock", "/var/log/dpkg.log"))
    backups = [path for path in ours if path.startswith("/var/backups/orv-config-")]
    need(ours == sorted(backups + [f"/{JAZZ}/a-song.wav", f"/{JAZZ}/b-song.wav", f"/{OWN_FOLDER}/notes.txt",
                                   f"/{OWN_FOLDER}/radio"]), f"left over: {ours}")
    need(len(backups) == 1, f"the database was kept as {backups}")
    with sqlite3.connect(root / backups[0]) as database:
        rows = database.execute("SELECT pipename, maxvolume FROM AUDIOFEED").fetchall()
    need(rows == [("default", 5), ("hold", None)], f"the kept database has the feeds {rows}")
    for folder in ("etc/orv", "run/Orv", "var/lib/Orv/Config", "var/lib/Orv/Data/Logs"):
        need(not os.path.exists(root / folder), f"/{folder} is left over")


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__.strip().splitlines()[-1])
    if not in_namespaces_of_its_own():
        print("only root can install packages: skipped")
        return SKIPPED
    work = tempfile.mkdtemp(prefix="orv-packages-", dir="/tmp")
    root = CleanRoot()
    try:
        packages = build_packages(sys.argv[1], work)
        check_lintian(work)
        root.dpkg("--install", *packages)
        check_units(root)
        check_enabled(root)
        check_folders(root)
        root.lend_libraries()
        check_setup(root)
        config_manager, feed_manager = Notify(root, "notify-config"), Notify(root, "notify-feed")
        config = root.start_unit("orv-config.service", config_manager)
        config_manager.wait_for("READY=1")
        feed = root.start_unit("orv-audio-feed.service", feed_manager)
        feed_manager.wait_for("READY=1")
        for manager in (config_manager, feed_manager):
            manager.wait_for("WATCHDOG=1")
        check_started(root, "orv-config.service", config)
        check_started(root, "orv-audio-feed.service", feed)
        check_sound(root)
        check_change(root)
        check_import(root)
        check_consumers(root)
        stop(feed, feed_manager)
        leave_sockets(root)
        stop(config, config_manager)
        check_purge(root)
        print("installed, imported, heard, purged")
        return 0
    except AssertionError:
        root.tell_logs()
        raise
    finally:
        root.close()
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())

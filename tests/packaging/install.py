#!/usr/bin/env python3
"""Goal: the packages install into a clean root, one command makes them play, and a purge leaves the sound files and
nothing else. Method: the packages are made from the programs of this build and installed by dpkg into an empty folder;
no service manager runs, so users and folders come from the packages' own files, and the programs are started in that
root as the installed units say (ExecStart, User, Group, SupplementaryGroups, the limits), with a notify socket of the
test's own and in a network of their own.

usage: install.py FOLDER_OF_PROGRAMS
"""
import array
import glob
import os
import re
import resource
import shutil
import signal
import socket
import sqlite3
import stat
import struct
import subprocess
import sys
import tempfile
import time
import wave

SKIPPED = 77
TREE = os.path.realpath(os.path.join(os.path.dirname(__file__), "..", ".."))
PROGRAMS = ("/usr/sbin/orv-audio-feed", "/usr/sbin/orv-config", "/usr/bin/orvctl", "/usr/bin/orv-listen",
            "/usr/bin/orv-publish",
            "/usr/libexec/orv/orv-convert")
UNITS = ("orv-audio-feed.service", "orv-config.service", "orv-log-clean.service", "orv-log-clean.timer")
MOST_EXPOSED = 15  # tenths


def need(condition, text):
    if not condition:
        raise AssertionError(text)


def run(*command, code=0, **options):
    result = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                            text=True, check=False, **options)
    need(code is None or result.returncode == code, f"{' '.join(command)} ended with {result.returncode}:\n{result.stdout}")
    return result.stdout


class Unit:
    """One unit file; a key that may be given again has the list of its values."""

    def __init__(self, path):
        self.values = {}
        section = ""
        with open(path, encoding="utf-8") as file:
            for line in map(str.strip, file):
                if line.startswith("["):
                    section = line[1:-1]
                elif line and not line.startswith(("#", ";")):
                    key, _, value = line.partition("=")
                    self.values.setdefault((section, key), []).append(value)

    def get(self, key, section="Service"):
        return self.values.get((section, key), [""])[-1]


class Root:
    """The clean root, and the programs that run in it."""

    def __init__(self):
        self.path = tempfile.mkdtemp(prefix="orv-root-", dir="/tmp")
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
        self.children = []

    def __truediv__(self, path):
        return os.path.join(self.path, path.lstrip("/"))

    def dpkg(self, *arguments):
        return run("dpkg", "--root=" + self.path, "--force-script-chrootless", "--force-depends", "--force-unsafe-io",
                   *arguments, env=dict(os.environ, DEBIAN_FRONTEND="noninteractive", LC_ALL="C"))

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

    def ids(self, user, group, extra):
        groups = {}
        with open(self / "etc/group", encoding="utf-8") as file:
            for line in file:
                name, _, number, members = line.strip().split(":")
                groups[name] = (int(number), members.split(","))
        with open(self / "etc/passwd", encoding="utf-8") as file:
            numbers = {line.split(":")[0]: int(line.split(":")[2]) for line in file}
        more = [groups[name][0] for name in extra.split()]
        more += [number for number, members in groups.values() if user in members]
        return numbers[user], groups[group][0], sorted(set(more))

    def start(self, command, user="root", group="root", extra="", files=None, environment=None, output=None):
        uid, gid, groups = self.ids(user, group, extra)

        def enter():
            os.chroot(self.path)
            os.chdir("/")
            if files:
                # A container may allow less.
                files_allowed = min(files, resource.getrlimit(resource.RLIMIT_NOFILE)[1])
                resource.setrlimit(resource.RLIMIT_NOFILE, (files_allowed, files_allowed))
            os.setgroups(groups)
            os.setgid(gid)
            os.setuid(uid)

        variables = {"PATH": "/usr/sbin:/usr/bin", "LC_ALL": "C.UTF-8"}
        variables.update(environment or {})
        process = subprocess.Popen(command, preexec_fn=enter, env=variables, stdin=subprocess.DEVNULL,
                                   stdout=output or subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        self.children.append(process)
        return process

    def run(self, *command, code=0, **options):
        process = self.start(command, **options)
        output, _ = process.communicate(timeout=30)
        need(process.returncode == code, f"{' '.join(command)} ended with {process.returncode}:\n{output}")
        return output

    def start_unit(self, name, notify):
        unit = Unit(self / f"lib/systemd/system/{name}")
        need(unit.get("Type") == "notify", f"{name} is not of type notify")
        environment = dict(item.split("=", 1) for item in unit.get("Environment").split())
        environment["NOTIFY_SOCKET"] = notify.inside
        environment["WATCHDOG_USEC"] = str(int(unit.get("WatchdogSec")) * 1000000)
        output = open(self / f"tmp/{name}.out", "w", encoding="utf-8")
        return self.start(unit.get("ExecStart").split(), unit.get("User"), unit.get("Group"),
                          unit.get("SupplementaryGroups"), int(unit.get("LimitNOFILE")), environment, output)

    def tell_logs(self):
        for path in glob.glob(self / "tmp/*.out") + glob.glob(self / "var/lib/Orv/Data/Logs/**/*.log", recursive=True):
            with open(path, encoding="utf-8", errors="replace") as file:
                print(f"--- {path}\n{file.read()[-4000:]}")

    def close(self):
        for child in self.children:
            if child.poll() is None:
                child.kill()
                child.wait()
        run("umount", "--lazy", self / "proc")
        shutil.rmtree(self.path, ignore_errors=True)


class Notify:
    """The socket of a service manager, and what it was told."""

    def __init__(self, root, name):
        self.inside = f"/run/{name}"
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(root / self.inside)
        os.chmod(root / self.inside, 0o666)
        self.lines = []

    def wait_for(self, line, seconds=15):
        end = time.monotonic() + seconds
        while line not in self.lines:
            self.socket.settimeout(max(0.01, end - time.monotonic()))
            try:
                self.lines += self.socket.recv(4096).decode().splitlines()
            except TimeoutError:
                raise AssertionError(f"{self.inside} never heard {line}; it heard {self.lines}") from None


def build_packages(binaries, folder):
    run(os.path.join(TREE, "packaging/build.sh"), "--fast", "--binaries", binaries, "--output", folder)
    packages = sorted(glob.glob(folder + "/*.deb"))
    names = [os.path.basename(package).split("_")[0] for package in packages]
    need(names == ["orv-audio-feed", "orv-config", "orv-tools"], f"the packages are {names}")
    return packages


def check_lintian(folder):
    found = run("lintian", "--allow-root", "--fail-on", "error,warning", *glob.glob(folder + "/*.changes"))
    need(found == "", f"lintian says:\n{found}")


def check_units(root):
    feed = Unit(root / "lib/systemd/system/orv-audio-feed.service")
    for key, value in (("WatchdogSec", "60"), ("LimitNOFILE", "65536"), ("TasksMax", "32768"),
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
    end = time.monotonic() + 15  # the service is ready before it has its tables
    while not os.path.exists(root / "run/Orv/pipe/default"):
        need(time.monotonic() < end, "the feed has no pipe")
        time.sleep(0.05)
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
    loudest = max(abs(sample) for sample in samples)
    need(loudest > 1000, f"the loudest of {len(samples)} samples is {loudest}")
    # Silence until the stream is there, then a rise of 1.25 seconds.
    need(heard[-16000:] in whole + whole, "the last second heard is no part of the default sound")


def check_change(root):
    said = root.run("/usr/bin/orvctl", "feed", "set", "default", "--max-volume", "5")
    need("its clients stay connected" in said, f"orvctl says:\n{said}")
    said = root.run("/usr/bin/orvctl", "setup")
    need("made " not in said, f"setup beside running services made something:\n{said}")


def check_purge(root):
    music = root / "var/lib/Orv/Data/Ivr/Prompts/Playlist/jazz"
    os.makedirs(music)
    shutil.copy(root / "usr/share/orv/default.wav", music + "/mine.wav")
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
    need(ours == sorted(backups + ["/var/lib/Orv/Data/Ivr/Prompts/Playlist/jazz/mine.wav"]), f"left over: {ours}")
    need(len(backups) == 1, f"the database was kept as {backups}")
    with sqlite3.connect(root / backups[0]) as database:
        rows = database.execute("SELECT pipename, maxvolume FROM AUDIOFEED").fetchall()
    need(rows == [("default", 5)], f"the kept database has the feeds {rows}")
    for folder in ("etc/orv", "run/Orv", "var/lib/Orv/Config", "var/lib/Orv/Data/Logs"):
        need(not os.path.exists(root / folder), f"/{folder} is left over")


def bring_loopback_up():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as any_socket:
        import fcntl
        fcntl.ioctl(any_socket, 0x8914, struct.pack("16sH14s", b"lo", 1, b""))  # SIOCSIFFLAGS, IFF_UP


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__.strip().splitlines()[-1])
    if os.geteuid() != 0:
        print("only root can install packages: skipped")
        return SKIPPED
    if os.environ.get("ORV_OWN_NETWORK") != "1":
        os.execvpe("unshare", ["unshare", "--net", "--mount", "--", sys.executable, *sys.argv], dict(os.environ, ORV_OWN_NETWORK="1"))
    bring_loopback_up()
    work = tempfile.mkdtemp(prefix="orv-packages-", dir="/tmp")
    root = Root()
    try:
        packages = build_packages(sys.argv[1], work)
        check_lintian(work)
        root.dpkg("--install", *packages)
        check_units(root)
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
        check_sound(root)
        check_change(root)
        for process, manager in ((feed, feed_manager), (config, config_manager)):
            process.send_signal(signal.SIGTERM)
            manager.wait_for("STOPPING=1")
            need(process.wait(20) == 0, f"a service ended with {process.returncode}")
            manager.wait_for("STATUS=Stopped")
        check_purge(root)
        print("installed, heard, purged")
        return 0
    except AssertionError:
        root.tell_logs()
        raise
    finally:
        root.close()
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())

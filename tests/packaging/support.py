"""What the tests of the packages share: commands that must succeed, units, roots with processes in them, and the outside
tools that make and count sound."""
import array
import glob
import os
import resource
import shlex
import socket
import struct
import subprocess
import sys
import time

SKIPPED = 77
TREE = os.path.realpath(os.path.join(os.path.dirname(__file__), "..", ".."))
MUSIC = "/usr/share/asterisk/moh"


def need(condition, text):
    if not condition:
        raise AssertionError(text)


def run(*command, code=0, **options):
    result = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                            text=True, check=False, **options)
    need(code is None or result.returncode == code, f"{' '.join(command)} ended with {result.returncode}:\n{result.stdout}")
    return result.stdout


def within(seconds, condition, text):
    end = time.monotonic() + seconds
    while not condition():
        need(time.monotonic() < end, text)
        time.sleep(0.05)


def in_namespaces_of_its_own(*namespaces):
    """Starts this program again in them, once. False when it cannot be done because root is missing."""
    if os.geteuid() != 0:
        return False
    if os.environ.get("ORV_OWN_NAMESPACES") != "1":
        os.execvpe("unshare", ["unshare", "--net", "--mount", *namespaces, "--", sys.executable, *sys.argv],
                   dict(os.environ, ORV_OWN_NAMESPACES="1"))
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as any_socket:
        import fcntl
        fcntl.ioctl(any_socket, 0x8914, struct.pack("16sH14s", b"lo", 1, b""))  # SIOCSIFFLAGS, IFF_UP
    return True


def build_packages(binaries, folder):
    run(os.path.join(TREE, "packaging/build.sh"), "--fast", "--binaries", binaries, "--output", folder)
    packages = sorted(glob.glob(folder + "/*.deb"))
    names = [os.path.basename(package).split("_")[0] for package in packages]
    need(names == ["orv-audio-feed", "orv-config", "orv-tools"], f"the packages are {names}")
    return packages


# --- sound, by outside tools ---

def make_stereo_flac(path, seconds):
    """Two pieces of real music, one on each side, at a rate that nothing here plays."""
    run("sox", "-M", f"{MUSIC}/macroform-cold_day.wav", f"{MUSIC}/manolo_camp-morning_coffee.wav", "-r", "48000", path,
        "trim", "20", str(seconds))


def make_mp3(path, seconds):
    run("ffmpeg", "-v", "error", "-y", "-ss", "30", "-t", str(seconds), "-i", f"{MUSIC}/macroform-the_simplicity.wav",
        "-ar", "44100", "-ac", "2", path)


def samples_of(path):
    """Any sound file as 8000 Hz, mono."""
    result = subprocess.run(["ffmpeg", "-v", "error", "-i", path, "-f", "s16le", "-ar", "8000", "-ac", "1", "-"],
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
    need(result.returncode == 0, f"{path} cannot be read:\n{result.stderr.decode()}")
    return array.array("h", result.stdout)


def loudest(samples):
    return max(map(abs, samples), default=0)


def size_of(text):
    """A number as units have it, with a K, M or G behind it or without."""
    return int(text.rstrip("KMG")) << {"K": 10, "M": 20, "G": 30}.get(text[-1], 0)


def allowed(limit, wanted):
    """What can be had of a limit: a container may allow less."""
    most = resource.getrlimit(limit)[1]
    return wanted if most == resource.RLIM_INFINITY else min(wanted, most)


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

    def environment(self):
        """What all Environment= lines set together; an empty one takes back what stands before it."""
        variables = {}
        for line in self.values.get(("Service", "Environment"), []):
            if not line:
                variables.clear()
            variables.update(item.split("=", 1) for item in shlex.split(line))
        return variables

    def limits(self):
        """The limits of the process, under the names that prlimit has for them."""
        limits = (("nofile", "LimitNOFILE", resource.RLIMIT_NOFILE), ("memlock", "LimitMEMLOCK", resource.RLIMIT_MEMLOCK))
        return {name: allowed(limit, size_of(self.get(key))) for name, key, limit in limits if self.get(key)}

    def umask(self):
        return int(self.get("UMask") or "0022", 8)


class Root:
    """A folder that is the root of a system, and the programs that run in it."""

    def __init__(self, path):
        self.path = path
        self.children = []

    def __truediv__(self, path):
        return os.path.join(self.path, path.lstrip("/"))

    def ids(self, user, group, extra=""):
        """The numbers of a user, of a group, and of all groups that come with the user and `extra`."""
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

    def entry(self, user="root", group="root", extra=""):
        """The command in front of one that is to run in this root as that user."""
        uid, gid, groups = self.ids(user, group, extra)
        return ["/usr/sbin/chroot", f"--userspec={uid}:{gid}", "--groups=" + ",".join(map(str, groups or [gid])), self.path]

    def start(self, command, user="root", group="root", extra="", limits=None, environment=None, output=None, **options):
        front = self.entry(user, group, extra)
        if limits:
            front = ["prlimit", *(f"--{name}={value}:{value}" for name, value in limits.items()), *front]
        variables = {"PATH": "/usr/sbin:/usr/bin", "LC_ALL": "C.UTF-8"}
        variables.update(environment or {})
        process = subprocess.Popen([*front, *command], env=dict(variables, PATH=variables["PATH"] + ":/sbin:/bin"),
                                   stdin=options.pop("stdin", subprocess.DEVNULL), stdout=output or subprocess.PIPE,
                                   stderr=subprocess.STDOUT, text=True, **options)
        self.children.append(process)
        return process

    def start_outside(self, line, **options):
        """A line for the shell, by a user of this system who is root."""
        process = subprocess.Popen(["/bin/sh", "-c", line], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                   stderr=subprocess.STDOUT, text=True, **options)
        self.children.append(process)
        return process

    def run(self, *command, code=0, **options):
        process = self.start(command, **options)
        output, _ = process.communicate(timeout=60)
        need(process.returncode == code, f"{' '.join(command)} ended with {process.returncode}:\n{output}")
        return output

    def start_unit(self, name, notify):
        """Starts what the installed unit says, in its way, but for the hardening."""
        unit = Unit(self / f"lib/systemd/system/{name}")
        need(unit.get("Type") == "notify", f"{name} is not of type notify")
        environment = unit.environment()
        environment["NOTIFY_SOCKET"] = notify.inside
        environment["WATCHDOG_USEC"] = str(int(unit.get("WatchdogSec")) * 1000000)
        with open(self / f"tmp/{name}.out", "a", encoding="utf-8") as output:
            return self.start(unit.get("ExecStart").split(), unit.get("User"), unit.get("Group"),
                              unit.get("SupplementaryGroups"), unit.limits(), environment, output, umask=unit.umask())

    def tell_logs(self):
        for path in glob.glob(self / "tmp/*.out") + glob.glob(self / "var/lib/Orv/Data/Logs/**/*.log", recursive=True):
            with open(path, encoding="utf-8", errors="replace") as file:
                print(f"--- {path}\n{file.read()[-4000:]}")

    def end_children(self):
        for child in self.children:
            if child.poll() is None:
                child.kill()
                child.wait()


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

    def drain(self):
        """Takes what has come; a service must never wait for somebody to listen here."""
        self.socket.setblocking(False)
        try:
            while True:
                self.lines += self.socket.recv(4096).decode().splitlines()
        except BlockingIOError:
            pass

"""A machine of the test's own for commands that change one: a copy of this system that nothing outlives, and a stand-in
for its service manager."""
import glob
import json
import os
import signal
import socket
import subprocess
import tempfile
import threading

from support import Notify, Root, Unit, need, run

CONTROL = "/run/systemd/stand-in"
# Hands its arguments to the thread of StandIn, and tells what that answers.
SYSTEMCTL = f"""#!/usr/bin/python3
import json, socket, sys
with socket.socket(socket.AF_UNIX) as manager:
    manager.connect("{CONTROL}")
    manager.sendall(json.dumps(sys.argv[1:]).encode() + b"\\n")
    code, text = json.loads(manager.makefile().read())
sys.stdout.write(text)
sys.exit(code)
"""


class Machine(Root):
    """Everything of this system, under a folder in memory that takes what is written. Needs mount and PID namespaces of
    the test's own, which end it all."""

    def __init__(self):
        super().__init__(tempfile.mkdtemp(prefix="orv-machine-", dir="/tmp"))
        os.chmod(self.path, 0o755)
        run("mount", "-t", "tmpfs", "-o", "mode=755", "machine", self.path)
        for folder in ("upper", "work", "root"):
            os.mkdir(self / folder)
        self.folder = parts = self.path
        self.path = parts + "/root"
        run("mount", "-t", "overlay", "overlay", "-o", f"lowerdir=/,upperdir={parts}/upper,workdir={parts}/work", self.path)
        run("mount", "--rbind", "/dev", self / "dev")
        run("mount", "-t", "proc", "proc", self / "proc")
        for folder in ("run", "tmp"):
            run("mount", "-t", "tmpfs", "-o", "mode=1777" if folder == "tmp" else "mode=755", folder, self / folder)
        # An image for containers may leave out manual pages and documents, and install them no more.
        for path in glob.glob(self / "etc/dpkg/dpkg.cfg.d/*"):
            os.remove(path)
        # A file here forbids packages to start services, on systems that have no manager.
        self.write("usr/sbin/policy-rc.d", "#!/bin/sh\nexit 0\n")
        self.write("usr/bin/systemctl", SYSTEMCTL)
        # Packages and orvctl look for a manager by this folder.
        os.makedirs(self / "run/systemd/system")

    def close(self):
        """What lies in memory goes with the namespaces; the folder that it was seen in stays on the disk."""
        self.end_children()
        run("umount", "--lazy", "--recursive", self.folder)
        os.rmdir(self.folder)

    def write(self, path, text):
        # Whatever stands there may be a link.
        if os.path.lexists(self / path):
            os.remove(self / path)
        with open(self / path, "w", encoding="utf-8") as file:
            file.write(text)
        os.chmod(self / path, 0o755)


class StandIn:
    """What systemctl does, as far as packages, orvctl and the pages ask for it: it starts programs as their units say,
    waits until they are ready, and stops them."""

    def __init__(self, machine):
        self.machine = machine
        self.running = {}
        self.done = []  # "start orv-config.service", in order
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(machine / CONTROL)
        self.listener.listen()
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        while True:
            client, _ = self.listener.accept()
            with client:
                arguments = json.loads(client.makefile().readline())
                try:
                    answer = self.command([item for item in arguments if not item.startswith("-")])
                except (AssertionError, OSError, subprocess.TimeoutExpired) as error:
                    answer = 1, f"{error}\n"
                client.sendall(json.dumps(answer).encode())

    def command(self, words):
        action, units = words[0], [unit if "." in unit else unit + ".service" for unit in words[1:]]
        if action == "daemon-reload":
            return 0, ""
        if action == "is-enabled":
            return 0, "".join(map(self.enabled, units))
        if action == "is-active":
            return (0, "active\n") if all(map(self.is_active, units)) else (3, "inactive\n")
        if action == "status":
            return (0 if all(map(self.is_active, units)) else 3), "".join(map(self.status, units))
        need(action in ("start", "stop", "restart", "try-restart"), f"the stand-in knows no {action}")
        for unit in units:
            if action == "try-restart" and not self.is_active(unit):
                continue
            if action != "start":
                self.stop(unit)
            if action != "stop":
                self.start(unit)
        return 0, ""

    def is_active(self, unit):
        return unit in self.running and self.running[unit][0].poll() is None

    def enabled(self, name):
        """The packages enable all that says for what it is wanted; nobody else disables it here."""
        wanted = Unit(self.machine / f"lib/systemd/system/{name}").get("WantedBy", "Install")
        return "enabled\n" if wanted else "static\n"

    def process_of(self, unit):
        """The number of its process, None when it does not run."""
        return self.running[unit][0].pid if self.is_active(unit) else None

    def status(self, unit):
        process, manager = self.running.get(unit, (None, None))
        if not self.is_active(unit):
            return f"{unit}\n     Active: inactive (dead)\n"
        manager.drain()
        told = [line[7:] for line in manager.lines if line.startswith("STATUS=")]
        return f"{unit}\n     Active: active (running)\n     Status: \"{told[-1] if told else ''}\"\n   Main PID: {process.pid}\n"

    def start(self, name):
        if self.is_active(name) or not name.endswith(".service"):
            return
        unit = Unit(self.machine / f"lib/systemd/system/{name}")
        condition = unit.get("ConditionPathExists", "Unit")
        if condition and not os.path.exists(self.machine / condition):
            return
        for wanted in unit.get("Wants", "Unit").split():
            self.start(wanted)
        self.done.append(f"start {name}")
        manager = Notify(self.machine, f"notify-{len(self.done)}")
        self.running[name] = self.machine.start_unit(name, manager), manager
        manager.wait_for("READY=1", 30)

    def stop(self, name):
        if not self.is_active(name):
            return
        self.done.append(f"stop {name}")
        process = self.running.pop(name)[0]
        process.send_signal(signal.SIGTERM)
        need(process.wait(30) == 0, f"{name} ended with {process.returncode}")

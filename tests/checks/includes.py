"""Includes go one way, and only Platform/ sees the operating system.

Each folder may include itself and what stands in its row below; the audio path's folders may not use the parts of the
standard library that reach the clock, threads or files behind Platform's back.
"""
import os
import re
import sys

ENGINE = "Projects/Common/VoIPFileEngine"
MAY_INCLUDE = {
    "Platform": set(),
    "ServiceProcess": {"Platform"},
    "VX": {"Platform"},
    ENGINE: {"Platform", "ServiceProcess"},
    "ConfigClient": {"Platform", "ServiceProcess", "VX"},
    "AudioFeeder": {"Platform", "ServiceProcess", "VX", ENGINE, "ConfigClient"},
    "ConfigService": {"Platform", "ServiceProcess", "VX"},
    "Tools": {"Platform", "ServiceProcess", "VX", "ConfigService", ENGINE},
}
# Folders that run under a simulated clock and scheduler.
SEAMED = {"ServiceProcess", "VX", ENGINE, "ConfigClient", "AudioFeeder"}

OS_HEADER = re.compile(
    r"^(sys/|linux/|netinet/|arpa/|net/|bits/|asm/|unistd\.h|pthread\.h|fcntl\.h|poll\.h|signal\.h|dirent\.h|sched\.h|"
    r"termios\.h|spawn\.h|dlfcn\.h|pwd\.h|grp\.h|ucontext\.h|syslog\.h|windows\.h|io\.h|direct\.h|csignal)"
)
BEHIND_THE_SEAM = re.compile(r"^(thread|mutex|shared_mutex|condition_variable|chrono|random|fstream|filesystem|future|ctime|time\.h)$")
ALLOWED_BEHIND = {"random": {"AudioFeeder"}}  # the engine of the draws; its seed comes from Platform
FORBIDDEN_WORD = re.compile(r"\b(thread_local|std::random_device|std::this_thread|std::thread\b|std::mutex\b)")
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')


def folder_of(path):
    return ENGINE if path.startswith(ENGINE + "/") else path.split("/")[0]


def faults_in(path, lines):
    folder = folder_of(path)
    system_side = path.startswith(("Platform/linux/", "Platform/sim/"))
    seamed = folder in SEAMED
    for number, line in enumerate(lines, 1):
        match = INCLUDE.match(line)
        if match:
            kind, target = match.groups()
            if kind == '"':
                to = folder_of(target)
                if to in MAY_INCLUDE and to != folder and to not in MAY_INCLUDE[folder]:
                    yield f"{path}:{number}: {folder}/ may not include {target}"
                if target.startswith(("Platform/linux/", "Platform/sim/")) and not system_side:
                    yield f"{path}:{number}: only Platform itself may include {target}"
            elif OS_HEADER.match(target) and not system_side:
                yield f"{path}:{number}: <{target}> belongs behind Platform/"
            elif seamed and BEHIND_THE_SEAM.match(target) and folder not in ALLOWED_BEHIND.get(target, ()):
                yield f"{path}:{number}: <{target}> reaches behind Platform/'s seams"
        elif seamed and FORBIDDEN_WORD.search(line.split("//")[0]):
            yield f"{path}:{number}: reaches behind Platform/'s seams: {line.strip()}"


def check_tree():
    found, files = [], 0
    for folder in MAY_INCLUDE:
        for where, _, names in os.walk(folder):
            for name in sorted(names):
                if name.endswith((".h", ".cpp")):
                    path = os.path.join(where, name)
                    files += 1
                    with open(path, encoding="utf-8") as source:
                        found.extend(faults_in(path, source))
    if files < 100:
        found.append(f"only {files} files found: is this the root of the tree?")
    return found


def self_test():
    wrong = [
        ("VX/A.cpp", '#include "AudioFeeder/PipeFeed.h"'),
        ("Platform/A.h", "#include <unistd.h>"),
        ("AudioFeeder/A.cpp", "#include <sys/socket.h>"),
        ("AudioFeeder/A.cpp", "#include <mutex>"),
        (ENGINE + "/A.cpp", '#include "AudioFeeder/PipeFeed.h"'),
        (ENGINE + "/A.cpp", "static thread_local int x;"),
        ("AudioFeeder/A.cpp", '#include "Platform/linux/Pipes.h"'),
        ("VX/GrpcExchange.cpp", "    std::random_device device;"),
    ]
    right = [
        ("AudioFeeder/A.cpp", '#include "VX/VX.h"'),
        ("Platform/linux/A.cpp", "#include <unistd.h>"),
        ("Tools/a/A.cpp", "#include <chrono>"),
    ]
    bad = [line for path, line in wrong if not list(faults_in(path, [line]))]
    bad += [line for path, line in right if list(faults_in(path, [line]))]
    return bad


if __name__ == "__main__":
    faults = self_test() if "--self-test" in sys.argv else check_tree()
    print("\n".join(faults) or "nothing to object to")
    sys.exit(1 if faults else 0)

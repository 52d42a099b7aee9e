#!/usr/bin/env python3
"""Makes docs/status-watch.svg, the README's picture of `orvctl status --watch`, from a real run: starts ./run.sh, gives
its feeds levels and listeners, adds one that nobody listens to, and takes the first screen on which an announcement
plays over music. What it changes in the tables of run.sh it puts back.

usage: docs/status-watch.py
"""
import fcntl
import html
import os
import pty
import re
import select
import signal
import struct
import subprocess
import sys
import termios
import time

TREE = os.path.realpath(os.path.join(os.path.dirname(__file__), ".."))
PICTURE = os.path.join(TREE, "docs/status-watch.svg")
CTL = ["build/release/bin/orvctl", "-c", "run/orvctl.ini"]
LISTEN = ["build/release/bin/orv-listen", "--pipe-folder", "run/pipe", "--follow"]
COLUMNS, ROWS = 142, 10  # the longest line of the table as it will be
STARTED_WITHIN = 1800  # seconds; the first start builds everything
LONGEST = 300          # until one plays whose name has room
SETTLED = 15           # seconds of sound, so that the figures tell something

# One character, in the picture's own units.
WIDTH, HEIGHT, SIZE = 8.4, 19, 14
MARGIN, TITLE = 16, 34
COLOURS = {"31": "#ff7b72", "32": "#56d364", "33": "#e3b341"}
INK, FAINT, STRONG, PAPER, BAR, EDGE = "#c9d1d9", "#8b949e", "#ffffff", "#0d1117", "#161b22", "#30363d"


def run(*command):
    return subprocess.run(command, cwd=TREE, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True, check=True).stdout


def screens(process, terminal, seconds):
    """What stands on the terminal, each time that it has been drawn whole: lines of runs, each a style and a text."""
    drawn, end = "", time.monotonic() + seconds
    while time.monotonic() < end and process.poll() is None:
        if not select.select([terminal], [], [], 1)[0]:
            continue
        drawn += os.read(terminal, 65536).decode(errors="replace")
        # Each screen begins at the upper left and ends by clearing what is below.
        while (begin := drawn.find("\x1b[H")) >= 0 and (stop := drawn.find("\x1b[J", begin)) >= 0:
            yield [runs_of(line) for line in drawn[begin + 3:stop].replace("\r", "").replace("\x1b[K", "").split("\n")]
            drawn = drawn[stop + 3:]


def runs_of(line):
    runs, style = [], "0"
    for part in re.split(r"(\x1b\[[0-9]+m)", line):
        if part.startswith("\x1b["):
            style = part[2:-1]
        elif part:
            runs.append((style, part))
    return runs


def text_of(screen):
    return "\n".join("".join(text for _, text in line) for line in screen)


def wait_for(condition, seconds, what):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            sys.exit(f"{what} within {seconds} s")
        time.sleep(0.2)


def take_screen():
    """The feeds as they play, at the moment of an announcement."""
    terminal, there = pty.openpty()
    fcntl.ioctl(there, termios.TIOCSWINSZ, struct.pack("HHHH", ROWS, COLUMNS, 0, 0))
    environment = dict(os.environ, TERM="xterm", LC_ALL="C.UTF-8")
    environment.pop("NO_COLOR", None)
    watch = subprocess.Popen([*CTL, "status", "--watch"], cwd=TREE, stdin=there, stdout=there, stderr=there, env=environment)
    os.close(there)
    try:
        for screen in screens(watch, terminal, LONGEST):
            text = text_of(screen)
            if re.search(r"^sorted .* \+ \S+\.wav$", text, re.M) and text.count(" dB") == 3:
                return screen
    finally:
        watch.kill()
        watch.wait()
        os.close(terminal)
    sys.exit(f"no announcement with room for its name was played within {LONGEST} s")


def picture(screen):
    while screen and not screen[-1]:
        screen.pop()
    width = 2 * MARGIN + WIDTH * COLUMNS
    height = TITLE + 2 * MARGIN + HEIGHT * len(screen)
    lines = [
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width:g} {height:g}" width="{width:g}" height="{height:g}" '
        f'font-family="ui-monospace,SFMono-Regular,Menlo,Consolas,\'DejaVu Sans Mono\',\'Liberation Mono\',monospace" '
        f'font-size="{SIZE}" fill="{INK}">',
        "<title>orvctl status --watch</title>",
        f'<rect x="0.5" y="0.5" width="{width - 1:g}" height="{height - 1:g}" rx="10" fill="{PAPER}" stroke="{EDGE}"/>',
        f'<path d="M1 {TITLE}V10.5a9.5 9.5 0 0 1 9.5-9.5H{width - 10.5:g}a9.5 9.5 0 0 1 9.5 9.5V{TITLE}z" fill="{BAR}"/>',
    ]
    for place, colour in enumerate(("#f85149", "#d29922", "#3fb950")):
        lines.append(f'<circle cx="{20 + 20 * place}" cy="{TITLE / 2:g}" r="6" fill="{colour}"/>')
    lines.append(f'<text x="{width / 2:g}" y="{TITLE / 2 + 5:g}" text-anchor="middle" fill="{FAINT}">orvctl status --watch</text>')
    for row, runs in enumerate(screen):
        column, y = 0, TITLE + MARGIN + HEIGHT * row + SIZE
        for style, text in runs:
            # Each word stands in its column whatever the reader's font.
            for word in re.finditer(r"\S+(?: \S+)*", text):
                x, length = MARGIN + WIDTH * (column + word.start()), WIDTH * len(word[0])
                look = {"1": f' fill="{STRONG}" font-weight="bold"', "2": f' fill="{FAINT}"'}.get(style, "")
                if style in COLOURS:
                    look = f' fill="{COLOURS[style]}"'
                lines.append(f'<text x="{x:g}" y="{y:g}" textLength="{length:g}" lengthAdjust="spacingAndGlyphs"{look}>'
                             f"{html.escape(word[0], quote=False)}</text>")
            column += len(text)
    return "\n".join(lines) + "\n</svg>\n"


def main():
    if len(sys.argv) != 1:
        sys.exit(__doc__.strip().splitlines()[-1])
    with open("/dev/null", "rb") as nothing:
        exchange = subprocess.Popen(["./run.sh"], cwd=TREE, stdin=nothing, stdout=subprocess.DEVNULL, start_new_session=True)
    listeners, before = [], None
    try:
        def plays():
            if exchange.poll() is not None:
                sys.exit(f"./run.sh ended with {exchange.returncode}")
            return all(os.path.exists(f"{TREE}/run/pipe/{feed}") for feed in ("hold", "sorted", "shuffled"))
        wait_for(plays, STARTED_WITHIN, "./run.sh did not play")
        before = run(*CTL, "export")
        run(*CTL, "feed", "set", "hold", "--max-volume", "25")
        run(*CTL, "feed", "set", "shuffled", "--max-volume", "90", "--autogain", "on")
        run(*CTL, "feed", "add", "night", "--type", "sorted", "--folder", "shuffled")
        for feed in ("hold", "hold", "sorted"):
            listeners.append(subprocess.Popen([*LISTEN, feed], cwd=TREE, stdout=subprocess.DEVNULL))
        time.sleep(SETTLED)
        made = picture(take_screen())
    finally:
        for listener in listeners:
            listener.terminate()
            listener.wait()
        if before is not None:
            run(*CTL, "feed", "remove", "night")
            subprocess.run([*CTL, "apply", "-"], cwd=TREE, input=before, text=True, stdout=subprocess.DEVNULL, check=True)
        exchange.send_signal(signal.SIGTERM)
        exchange.wait()
    with open(PICTURE, "w", encoding="utf-8") as file:
        file.write(made)
    print(f"{PICTURE} is made")


if __name__ == "__main__":
    main()

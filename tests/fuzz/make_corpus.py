#!/usr/bin/env python3
"""Makes the kept files of the fuzz targets, from the rules of their formats.

  make_corpus.py           writes corpus/, beside this script; files under other names stay as they are
  make_corpus.py --check   fails when a file of corpus/ is not what this script makes

What a fuzz run finds is kept by hand under a name that begins with "found-".
"""
import pathlib
import struct
import sys

ROOT = pathlib.Path(__file__).resolve().parent / "corpus"
LENGTHS = [0x7FFFFFFF, 0x80000000, 0xFFFFFFF8, 0xFFFFFFFF]


def le16(value):
    return struct.pack("<H", value & 0xFFFF)


def le32(value):
    return struct.pack("<I", value & 0xFFFFFFFF)


def chunk(tag, body, length=None):
    return tag + le32(len(body) if length is None else length) + body


def fmt(tag=1, channels=1, rate=8000, bits=16, align=2):
    return le16(tag) + le16(channels) + le32(rate) + le32(rate * align) + le16(align) + le16(bits)


def riff(chunks, length=None):
    return chunk(b"RIFF", b"WAVE" + chunks, length)


def tone(samples):
    return b"".join(le16(1000 if i // 20 % 2 else -1000) for i in range(samples))


def adpcm_block(index, first=100, count=252):
    return le16(first) + bytes([index, 0]) + bytes((i * 37 + 11) % 256 for i in range(count))


PCM = chunk(b"fmt ", fmt())
ADPCM = chunk(b"fmt ", fmt(17, 1, 8000, 4, 256) + le16(2) + le16(505))


def wave_files():
    audio = tone(60)
    files = {
        "pcm": riff(PCM + chunk(b"data", audio)),
        "pcm-long": riff(PCM + chunk(b"data", tone(4096))),  # one stretch of 8192 bytes to the byte
        "pcm-empty": riff(PCM + chunk(b"data", b"")) + b"\0",
        "pcm-odd-chunk": riff(chunk(b"JUNK", b"abc") + PCM + chunk(b"LIST", b"12345") + chunk(b"data", audio)),
        "adpcm": riff(ADPCM + chunk(b"fact", le32(1010)) + chunk(b"data", adpcm_block(10) + adpcm_block(88))),
        "adpcm-short-block": riff(ADPCM + chunk(b"data", adpcm_block(0) + adpcm_block(40, 5, 7))),
        "adpcm-bad-index": riff(ADPCM + chunk(b"data", adpcm_block(89) + adpcm_block(3))),
        "adpcm-three-bytes": riff(ADPCM + chunk(b"data", adpcm_block(1) + b"abc")),
        "no-data": riff(PCM + chunk(b"LIST", audio)),
        "no-fmt": riff(chunk(b"LIST", audio)),
        "fmt-short": riff(chunk(b"fmt ", fmt()[:14]) + chunk(b"data", audio)),
        "fmt-cut": riff(b"LIST" + le32(20) + bytes(20) + b"fmt " + le32(16) + fmt()[:6]),
        "data-header-cut": riff(PCM + chunk(b"LIST", bytes(30)) + b"data\x10\0"),
        "empty-chunks": riff(PCM + 40 * chunk(b"void", b"") + chunk(b"data", audio)),
        "stereo": riff(chunk(b"fmt ", fmt(1, 2, 8000, 16, 4)) + chunk(b"data", audio)),
    }
    for rate in (7999, 8001, 11025, 16000, 22050, 32000, 44100, 48000, 96000, 0x80000000, 0x80000001,
                 0xFFFFFFFF):
        files["rate-%d" % rate] = riff(chunk(b"fmt ", fmt(rate=rate)) + chunk(b"data", tone(200)))
    for length in LENGTHS:
        name = "%08x" % length
        files["riff-length-" + name] = riff(PCM + chunk(b"data", audio), length)
        files["fmt-length-" + name] = riff(chunk(b"fmt ", fmt(), length) + chunk(b"data", audio))
        files["list-length-" + name] = riff(PCM + chunk(b"LIST", audio, length) + chunk(b"data", audio))
        files["data-length-" + name] = riff(PCM + chunk(b"data", audio, length))
        files["rate-44100-data-length-" + name] = riff(
            chunk(b"fmt ", fmt(rate=44100)) + chunk(b"data", audio, length))
        files["adpcm-data-length-" + name] = riff(ADPCM + chunk(b"data", adpcm_block(7), length))
    return files


def adpcm_files():
    def stream(frame, fill, *blocks):
        samples = frame - 1  # 1 + first * 4 + second / 64
        return bytes([samples // 4, samples % 4 * 64 + fill]) + b"".join(blocks)

    return {
        "whole": stream(1000, 0, adpcm_block(10), adpcm_block(50)),
        "small-frames": stream(80, 0, adpcm_block(10), adpcm_block(50)),
        "one-sample-frames": stream(1, 0, adpcm_block(60, 30000)),
        "short": stream(1000, 0, adpcm_block(10), adpcm_block(20, -5, 13)),
        "short-filled-up": stream(1000, 1, adpcm_block(10), adpcm_block(20, -5, 13)),
        "header-alone": stream(80, 0, adpcm_block(88, -32768, 0)),
        "three-bytes": stream(80, 0, adpcm_block(88), b"\1\2\3"),
        "bad-index": stream(505, 0, adpcm_block(89), adpcm_block(255), adpcm_block(88)),
        "to-the-clamp": stream(505, 0, le16(32000) + b"\x58\0" + b"\x77" * 252),
        "to-the-lower-clamp": stream(505, 0, le16(-32000) + b"\x58\0" + b"\xff" * 252),
    }


def name_files():
    pipe = "\\\\.\\pipe\\"
    names = {
        "gap": "#5#", "gap-silence": "##5#", "gap-empty": "###", "gap-none": "##", "gap-minus": "#-5#",
        "gap-huge": "#99999999999999999999#", "gap-wraps": "##268436#", "gap-text": "#abc#",
        "http": "http://host/a.wav", "mms": "MMS:x", "pipe": pipe + "radio", "pipe-bare": pipe,
        "pipe-remote": "\\\\host\\pipe\\radio", "pipe-wrong": "\\\\.\\tube\\radio", "pipe-host-only": "\\\\host",
        "box": "box:", "box-default": "defaultset:", "colon": ":", "raw": "/a.raw", "raw-case": "/A.Raw",
        "wav": "/folder/b.wav", "wav-backslash": "\\folder\\B.WAV", "wav-bare": ".wav", "raw-relative": "a.raw",
        "dots": "/folder/../folder/./b.wav", "pipe-file": "/any/where/radio.pipe", "pipe-file-bare": ".pipe",
        "pipe-file-there": "/c.pipe", "empty": "", "blank": " ", "folder": "/folder", "root": "/",
        "long": "/" + "x" * 2040 + ".wav", "too-long": "/" + "y" * 2100 + ".wav", "latin": "/m\xfcsik.wav",
    }
    return {name: text.encode("latin-1") for name, text in names.items()}


def settings_files():
    files = {
        "usual": "[General]\nAppDataPath=/var/lib/Orv/ ; there\nPipePath=/run/Orv/pipe\n\n[ConfService]\n"
                 "confNIC=127.0.0.1\nConfPort=5485\nconfUser=feeder\nconfPass=\"a password\"\n",
        "nested": "[a/b/c]\nk=1\n[a/b]\nk=2\n[/a//d/]\nk=3\n[]\nk=4\n[/]\nk=5\n",
        "values": "k = \"one\" \"two\" three # four\nl=\"unmatched\nm=\\\"escaped\\\" \"a\\\"b\"\nn=\"\"\no=\n=p\nq\n",
        "comments": "# a\n; b\nk # c\nk=#\nk=;\n#=;\n\"=\"\n",
        "numbers": "a=0\nb=0x1F\nc=99999999999999999999999\nd=-1\ne=007\nf=0x\ng=0xFFFFFFFFFFFFFFFFFF\n",
        "twice": "Key=1\nkEY=2\nKEY=\n",
        "no-line-feed": "k=v", "carriage-returns": "[a]\r\nk=v\r\n\r\n", "open-section": "[a\nk=v\n[a]b]\nk=v\n",
        "zero-byte": "k\0l=v\0w\n[s\0t]\nk=v\n", "formats": "%s%n%d=%s%n\n[%n%s\n%s%s%s%s\n",
        "long-line": "k=" + "v" * 3000 + "\n" + "x" * 3000 + "\n[" + "y" * 1500 + "\n", "empty": "",
        "deep": "[" + "a/" * 60 + "b]\nk=v\n",
    }
    return {name: text.encode("latin-1") for name, text in files.items()}


def main():
    wanted = {}
    for folder, files in (("wave", wave_files()), ("adpcm", adpcm_files()), ("names", name_files()),
                          ("settings", settings_files())):
        for name, content in files.items():
            wanted[ROOT / folder / name] = content
    if sys.argv[1:] == ["--check"]:
        there = {path: path.read_bytes() for path in ROOT.glob("*/*") if not path.name.startswith("found-")}
        wrong = [path for path in sorted(set(wanted) | set(there)) if wanted.get(path) != there.get(path)]
        for path in wrong:
            print(f"{path.relative_to(ROOT)} differs; run {pathlib.Path(__file__).name}", file=sys.stderr)
        return 1 if wrong else 0
    for path, content in wanted.items():
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)
    return 0


if __name__ == "__main__":
    sys.exit(main())

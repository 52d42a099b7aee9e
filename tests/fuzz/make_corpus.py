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


# --- the link: the ParamList of Link.proto, written by hand

def varint(value):
    value &= 0xFFFFFFFFFFFFFFFF
    out = b""
    while value >= 0x80:
        out += bytes([value & 0x7F | 0x80])
        value >>= 7
    return out + bytes([value])


def sized(field, body):
    return varint(field << 3 | 2) + varint(len(body)) + body


def param(key, value):
    return sized(1, sized(1, key.encode("latin-1")) + value)


def text(key, value):
    return param(key, sized(2, value.encode("latin-1")))


def number(key, value):
    return param(key, b"\x18" + varint(value))


def long_number(key, value):
    return param(key, b"\x20" + varint(value))


def nested(key, body):
    return param(key, sized(5, body))


def binary(key, body):
    return param(key, sized(6, body))


def numbers(key, *values):
    return param(key, sized(7, sized(1, b"".join(varint(value) for value in values))))


def lists(key, *bodies):
    return param(key, sized(8, b"".join(sized(1, body) for body in bodies)))


def ids(*values):
    return b"".join(le32(value) for value in values)


def list_files():
    everything = (text("text\xff", "a\xfe z") + text("empty", "") + number("number", -7) + number("most", 0x7FFFFFFF)
                  + long_number("long", -(1 << 63)) + binary("binary", b"\0x") + numbers("numbers", 1, -2, 3)
                  + numbers("none") + nested("list", text("name", "in")) + lists("lists", text("name", "in"), b""))
    deep = b""
    for _ in range(16):
        deep = nested("in", deep)
    return {
        "empty": b"", "everything": everything, "one": number("a", 1), "twice": number("a", 1) + number("a", 2),
        "no-key": param("", b"\x18\1"), "no-value": param("a", b""), "two-values": param("a", b"\x18\1\x18\2"),
        "key-253": number("k" * 253, 1), "key-254": number("k" * 254, 1), "key-nul": number("a\0b", 1),
        "text-nul": text("a", "b\0c"), "deep": deep[8:], "too-deep": nested("in", deep), "cut": everything[:-3],
        "long-length": b"\x0a\xff\xff\xff\xff\x0f", "padded-length": b"\x0a\x88\x80\x80\x80\x00" + number("abc", 1)[2:],
        "unknown-fields": b"\x10\1" + sized(1, sized(1, b"a") + b"\x18\1" + sized(9, b"new") + b"\x55abcd") + b"\x1b\x1c",
        "not-packed": param("a", sized(7, b"\x08\1\x08\2")), "wide-number": param("a", b"\x18" + varint(1 << 40)),
        "many": b"".join(number("k%d" % i, i) for i in range(40)), "empty-lists": lists("l", *[b""] * 60),
        "wrong-type": param("a", b"\x12"), "tag-zero": b"\0\0\0",
    }


def change(table, action, key, values=b"", unset=b"", row=0):
    name = number("id", row) if row else text("key", key)
    return text("table", table) + text("action", action) + name + nested("values", values) + nested("unset", unset)


def request_files():
    feed = (text("thename", "jazz") + number("feedtype", 2) + number("minannouncementpause", 1)
            + number("maxannouncementpause", 9) + number("maxvolume", 70) + number("nonstop", 1))
    files = {
        "add": lists("changes", change("AUDIOFEED", "add", "new", feed)),
        "add-taken": lists("changes", change("AUDIOFEED", "add", "HOLD", feed)),
        "set": lists("changes", change("AUDIOFEED", "set", "hold", number("maxvolume", 5), number("thename", 1))),
        "set-by-id": lists("changes", change("AUDIOFEED", "set", "", text("pipename", "b"), b"", 1)),
        "put": lists("changes", change("ANNOUNCEMENT", "put", "n", text("thefile", "/m.wav"))),
        "remove": lists("changes", change("AUDIOFEED", "remove", "a")),
        "drop": lists("changes", change("PARAMETER", "drop", "none")),
        "rebuild": lists("changes", change("AUDIOFEED", "rebuild", "hold")),
        "content": lists("changes", change("AUDIOFEEDCONTENT", "add", "", number("fkidaudiofeed", 1))),
        "content-of-none": lists("changes", change("AUDIOFEEDCONTENT", "add", "", number("fkidaudiofeed", 77))),
        "swap": lists("changes", change("AUDIOFEED", "set", "", text("pipename", "a"), b"", 1),
                      change("AUDIOFEED", "set", "", text("pipename", "hold"), b"", 2)),
        "gone-and-back": lists("changes", change("AUDIOFEED", "remove", "a"), change("AUDIOFEED", "add", "a")),
        "parameters": lists("changes", change("PARAMETER", "put", "AUDIO_PROVIDER_MAX_VOLUME", text("value", "100")),
                            change("PARAMETER", "put", "SYSTEMLOGGINGLEVEL", text("value", "9"))),
        "wrong-types": lists("changes", change("AUDIOFEED", "put", "x", text("feedtype", "3") + number("thename", 1))),
        "control": lists("changes", change("ANNOUNCEMENT", "put", "a\nb", text("thefile", "c\x7f"))),
        "latin": lists("changes", change("ANNOUNCEMENT", "put", "m\xfcsik", text("thefile", "\xc2\x85"))),
        "no-table": lists("changes", change("USERS", "put", "x")), "no-action": lists("changes", text("table", "PARAMETER")),
        "bad-pauses": lists("changes", change("AUDIOFEED", "put", "p", number("minannouncementpause", -1)
                                              + number("maxannouncementpause", -0x80000000))),
        "ids": binary("ids", ids(1, 2, -1)), "ids-broken": binary("ids", b"1234567"), "nothing": lists("changes"),
        "changes-no-lists": text("changes", "all"), "values-no-list": lists("changes", text("action", "set")
                                                                             + text("values", "x")),
    }
    return files


def event_files():
    batch, update, reply, lookup = 0, 1, 2, 3

    def messages(*parts):
        return b"".join(bytes([kind]) + le16(len(body)) + body for kind, body in parts)

    def start(*table_ids):
        return tuple((reply, binary("ids", ids(*each))) for each in table_ids)

    def row(number_of, name):
        return number("idaudiofeed", number_of) + text("pipename", name) + number("feedtype", 3)

    tables = start((1, 2), (1,), (1,))
    changed = nested("AUDIOFEED", binary("DELETED", ids(2)) + binary("UPDATED", ids(1, 3)))
    rows = (reply, lists("OD", row(1, "hold"), row(3, "new")))
    return {
        "start": messages(*tables),
        "update": messages(*tables, (update, text("OC", "AUDIOFEED") + text("TO", "Updated") + numbers("IDA", 1, 0, 2)),
                           (reply, nested("OD", row(1, "a"))), (reply, nested("OD", b""))),
        "delete": messages(*tables, (update, text("OC", "AUDIOFEED") + text("TO", "Deleted") + numbers("IDA", 1, 0, 9))),
        "batch": messages(*tables, (batch, long_number("__TRN", 5) + changed), rows),
        "batch-short-reply": messages(*tables, (batch, changed), (reply, lists("OD", row(1, "hold")))),
        "batch-wrong-reply": messages(*tables, (batch, changed), (reply, text("OD", "rows"))),
        "batch-same-twice": messages(*tables, (batch, nested("PARAMETER", binary("UPDATED", ids(1, 1)))),
                                     (reply, lists("OD", text("name", "A"), text("name", "B")))),
        "batch-unknown": messages(*tables, (batch, number("__TRN", 1) + nested("USERS", binary("UPDATED", ids(1)))
                                            + text("AUDIOFEED", "x"))),
        "lookup": messages(*tables, (batch, changed), rows, (lookup, text("OC", "AUDIOFEED") + text("FS", "hold")),
                           (reply, binary("ids", ids(1, 2))), (reply, nested("OD", row(2, "found")))),
        "no-index-key": messages(*tables, (update, text("OC", "AUDIOFEED") + numbers("IDA", 1)),
                                 (reply, nested("OD", number("pipename", 7)))),
        "ids-no-binary": messages((reply, text("ids", "12345678")), (reply, numbers("ids", 1, 2)), (reply, binary("ids", b"1"))),
        "nothing": b"", "cut": messages(*tables)[:-2],
    }


def row_files():
    files = {
        "usual": '{"feeds": [{"pipe": "hold", "folder": "jazz", "type": "sorted", "max-volume": 20, "nonstop": true}],\n'
                 ' "announcements": [{"name": "hello", "kind": "over", "file": "/srv/hello.wav"}],\n'
                 ' "parameters": [{"name": "SYSTEMLOGGINGLEVEL", "value": "2"}],\n'
                 ' "remove": {"feeds": ["old"], "announcements": [], "parameters": []}}\n',
        "columns": '{"announcements": [{"thename": "a", "thetype": 1, "thefile": "f"}]}',
        "null": '{"feeds": [{"pipe": "a", "folder": null, "announcements": null}]}',
        "hex": '{"feeds": [{"pipe": {"hex": "6d fc"}}, {"pipe": {"hex": "6dfc"}, "folder": {"hex": "c0AF"}}]}',
        "switches": '{"feeds": [{"pipe": "a", "nonstop": "on", "announcements": "off", "autogain": 2}]}',
        "choices": '{"feeds": [{"pipe": "a", "type": "shuffled"}, {"pipe": "b", "type": 7}, {"pipe": "c", "type": -1}]}',
        "numbers": '{"feeds": [{"pipe": "a", "min-pause": -2147483648, "max-pause": 2147483647}]}',
        "too-large": '{"feeds": [{"pipe": "a", "max-volume": 18446744073709551616}]}', "real": '{"feeds": [{"pipe": 1e5}]}',
        "twice": '{"feeds": [{"pipe": "A"}, {"pipe": "a"}]}', "key-twice": '{"feeds": [], "feeds": []}',
        "removed-too": '{"feeds": [{"pipe": "a"}], "remove": {"feeds": ["A"]}}', "empty-name": '{"remove": {"feeds": [""]}}',
        "escapes": '{"parameters": [{"name": "\\u0041\\ud83c\\udfb5", "value": "\\"\\\\ \\u00e9"}]}',
        "surrogate": '{"parameters": [{"name": "\\ud83c"}]}', "nul": '{"feeds": [{"pipe": "a\\u0000b"}]}',
        "no-section": '{"food": []}', "no-list": '{"feeds": {}}', "no-object": "[1, 2]", "empty": "", "blank": " \n",
        "open": '{"feeds": [', "deep": "[" * 400, "no-utf8": '{"feeds": [{"pipe": "m\xfc"}]}', "bom": '\xef\xbb\xbf{}',
        "trailing": "{} x", "formats": '{"parameters": [{"name": "%s%n%d", "value": "%99999s"}]}',
    }
    return {name: content.encode("latin-1") for name, content in files.items()}


def main():
    wanted = {}
    for folder, files in (("wave", wave_files()), ("adpcm", adpcm_files()), ("names", name_files()),
                          ("settings", settings_files()), ("lists", list_files()), ("requests", request_files()),
                          ("events", event_files()), ("rows", row_files())):
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

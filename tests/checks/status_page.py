#!/usr/bin/env python3
"""Every field of the state and every metric, with its labels, stands in orv-status(5), and that page names no other.

The names are the literals and the columns in the sources that write the two forms; in the page they are the bold words.
"""
import re
import sys

PAGE = "packaging/man/orv-status.5"
JSON = "AudioFeeder/StateSnapshotJson.cpp"
METRICS = "AudioFeeder/StateSnapshotMetrics.cpp"
KEY = re.compile(r'Key\("(\w+)"\)|Columns::(\w+)')
FAMILY = re.compile(r'(?:Family|One)\(\s*"(\w+)"|\{"(\w+)",\s*"(?:gauge|counter)"')
LABEL = re.compile(r'",?(\w+)="')
ENOUGH = 20


def words_of(pattern, text):
    return {word for match in pattern.findall(text) for word in ([match] if isinstance(match, str) else match) if word}


def named_in(page):
    """The names of the fields, of the metrics, and of the labels, by the page."""
    fields, metrics, labels = set(), set(), set()
    for line in page.splitlines():
        match = re.match(r"\.BR? (.*)", line)
        if not match:
            continue
        for names in re.findall(r"\{([^}]*)\}", line):
            labels |= set(re.findall(r"\w+", names))
        words = set(re.findall(r"[a-z][a-z_]+", re.sub(r"\{[^}]*\}|\(\d\)", "", match[1])))
        metrics |= {word for word in words if word.startswith("orv_")}
        fields |= {word for word in words if not word.startswith("orv_")}
    return fields, metrics, labels


def body_of(page):
    """The part that tells fields and metrics."""
    return page[page.index('.SH "JSON'):page.index(".SH EXAMPLES")]


def faults_in(json, metrics, page):
    fields, families, labels = named_in(body_of(page))
    written = words_of(KEY, json)
    made = {"orv_" + word for word in words_of(FAMILY, metrics)}
    # References to other pages and to labels are bold as well.
    known = written | {"feed", "orv", "tables"}
    yield from (f"{PAGE} does not tell the field {word}" for word in sorted(written - fields))
    yield from (f"{PAGE} tells a field that is not written: {word}" for word in sorted(fields - known))
    yield from (f"{PAGE} does not tell the metric {word}" for word in sorted(made - families))
    yield from (f"{PAGE} tells a metric that is not written: {word}" for word in sorted(families - made))
    wanted = words_of(LABEL, metrics)
    yield from (f"{PAGE} does not tell the label {word}" for word in sorted(wanted - labels))
    yield from (f"{PAGE} tells a label that is not written: {word}" for word in sorted(labels - wanted))
    for what, count in (("fields", len(written)), ("metrics", len(made))):
        if count < ENOUGH:
            yield f"only {count} {what} found: is this the root of the tree?"


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def self_test():
    json, metrics = 'json.Key("here"); json.Key("absent"); Columns::column', 'Family("one", "gauge"); "a=" + x + ",b="'
    page = '.SH "JSON"\n.TP\n.BR here ", " column\n.B stranger\n.BR orv_two " {a}"\n.SH EXAMPLES\n.B other\n'
    found = [fault for fault in faults_in(json, metrics, page) if not fault.startswith("only ")]
    wanted = ["absent", "stranger", "orv_one", "orv_two", "label b"]
    return [] if len(found) == len(wanted) and all(map(str.endswith, found, wanted)) else [f"the check found {found}"]


if __name__ == "__main__":
    faults = self_test() if "--self-test" in sys.argv else list(faults_in(read(JSON), read(METRICS), read(PAGE)))
    print("\n".join(faults) or "nothing to object to")
    sys.exit(1 if faults else 0)

#!/usr/bin/env python3
"""Every Error and Warn line that the service can write stands in the administrator's guide.

A line is known by its literal texts: each of three letters or more must be found there.
"""
import os
import re
import sys

FOLDERS = ("AudioFeeder", "ConfigClient", "Projects", "ServiceProcess", "VX")
STATEMENT = re.compile(r"(?:ORV_LOG\((?:Error|Warn)\)|ORV_ENGINE_LOG\(Log(?:Error|Warn)Sink,)(.*?);", re.DOTALL)
LITERAL = re.compile(r'"((?:[^"\\]|\\.)*)"')
ENOUGH = 20


def texts_of(source):
    for statement in STATEMENT.findall(source):
        for literal in LITERAL.findall(statement):
            text = re.sub(r"\\.", " ", literal).strip(" '\"():,.-/<>=")
            if len(re.sub("[^A-Za-z]", "", text)) >= 3:
                yield text


def missing_in(guide, texts):
    return sorted({text for text in texts if text not in guide})


def main():
    with open("docs/guide.md", encoding="utf-8") as file:
        guide = file.read()
    texts = []
    for folder in FOLDERS:
        for where, _, names in os.walk(folder):
            for name in names:
                if name.endswith(".cpp"):
                    with open(os.path.join(where, name), encoding="utf-8") as file:
                        texts += texts_of(file.read())
    if len(texts) < ENOUGH:
        return [f"only {len(texts)} texts found: is this the root of the tree?"]
    return [f"docs/guide.md says nothing about the line with: {text}" for text in missing_in(guide, texts)]


if __name__ == "__main__":
    if "--self-test" in sys.argv:
        sample = 'ORV_LOG(Error) << prefix << "It broke: " << 5 << " x"; ORV_ENGINE_LOG(LogWarnSink, "No\\n" << "luck");'
        wrong = missing_in("It broke", texts_of(sample)) != ["luck"]
        faults = ["the check does not find what is missing"] if wrong else []
    else:
        faults = main()
    print("\n".join(faults) or "nothing to object to")
    sys.exit(1 if faults else 0)

#!/usr/bin/env python3
"""Every command, record type and stat field of wire/ is described in the documents, and each command has a test."""

import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent


def read(name):
    return (ROOT / name).read_text()


def between(text, begin, end):
    return text.split(begin)[1].split(end)[0]


commands = re.findall(r"COMMAND_NAME\((\w+)\) = (\d+),", read("wire/file_migrate_orvane.h"))
types = re.findall(r'"(\w+)"', between(read("wire/record_format.h"), "RECORD_TYPES[] = {", "};"))
fields = re.findall(r"(st_\w+)", between(read("wire/record_format.h"), "STAT_FIELDS = {", "};"))
PLACES = [  # a page, and the texts that it must hold
    ("docs/protocol.md", [rf"\n\| {number} \| `{name}` \|" for name, number in commands]),
    ("tests/daemon/commands_test.cpp", [rf'Ask\({name}, "' for name, _ in commands]),
    ("docs/records.md", [rf"`{name}`" for name in types] + [rf"{field}:…" for field in fields]),
    ("docs/records.md", [rf"`{field}`" for field in fields]),
]
missing = [f"{page} lacks {text}" for page, texts in PLACES for text in texts if not re.search(text, read(page))]
print("\n".join(missing))
sys.exit(bool(missing or not commands or not types or not fields))

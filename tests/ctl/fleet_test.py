#!/usr/bin/python3
"""The lines of orvanectl records --json against their schema, and the import and the queries of docs/fleet.md."""
import json
import pathlib
import re
import sqlite3
import subprocess
import sys
import tempfile

import jsonschema

TOOL = sys.argv[1]
SOURCE = pathlib.Path(__file__).parents[2]
FLEET = SOURCE / "packaging/fleet"


def line(kind, src, error, time):
    return f"type:{kind},src:{src},dst:,user:,group:,perm:,recurseOpt:,errno:{error},times:202611{time};"


def stat(path, uid):
    return (f"lstat {path}:st_dev:1,st_ino:12,st_mode:16877,st_nlink:1,st_uid:{uid},st_gid:0,st_rdev:0,st_size:0,"
            "st_blksize:4096,st_blocks:0;")


def run(*words, text=""):
    return subprocess.run(words, input=text, capture_output=True, text=True, check=True).stdout


def lines_of(folder):
    return run(TOOL, "records", "--json", *(f"--directory={machine}" for machine in sorted(folder.iterdir())))


def check_schema(folder):
    """Each sample of the reader's fuzzing corpus is a record of another kind."""
    schema = json.loads((FLEET / "record.schema.json").read_text())
    jsonschema.Draft7Validator.check_schema(schema)
    samples = b"".join(sample.read_bytes() for sample in sorted((SOURCE / "fuzz/corpus/record").iterdir()))
    (folder / "a").mkdir(parents=True)
    (folder / "a/file_migrate_ab.txt").write_bytes(samples)
    records = [json.loads(text) for text in lines_of(folder).splitlines()]
    kinds = {snapshot["kind"] for record in records for snapshot in record["snapshots"]}
    assert kinds == {"stat", "attribute", "flags", "process", "label"}, kinds
    for record in records:
        jsonschema.validate(record, schema)
        unknown = {key.removesuffix("_hex") for key in record} - set(schema["properties"])
        assert not unknown, f"the schema lacks {unknown}"


def check_queries(folder):
    machines = {
        "device-1": line("ISDIR", "/data/n", 2, "20101530") + line("RMDIR", "/data/d", 30, "21101530"),
        "device-2": line("RMDIR", "/data/d", 30, "21111530") + stat("/data/d", 1000),
    }
    for host, records in machines.items():
        (folder / host).mkdir(parents=True)
        (folder / host / "file_migrate_ab.txt").write_text(records)
    database = str(folder.parent / "fleet.db")
    assert run(FLEET / "import_records.py", database, text=lines_of(folder)) == "3 new records\n"
    assert run(FLEET / "import_records.py", database, text=lines_of(folder)) == "0 new records\n"
    expected = [
        [("read-only", 2, 2), ("source-missing", 1, 1)],
        [("device-1", 2, "2026-11-20T10:15:30", "2026-11-21T10:15:30"),
         ("device-2", 1, "2026-11-21T11:15:30", "2026-11-21T11:15:30")],
        [("read-only", "2026-11-21T10:15:30", 2)],
        [("/data/d", "read-only", 2)],
        [(1000, 1)],
    ]
    queries = re.findall(r"```sql\n(.*?)```", (SOURCE / "docs/fleet.md").read_text(), re.DOTALL)
    with sqlite3.connect(database) as connection:
        assert [connection.execute(query).fetchall() for query in queries] == expected, queries


with tempfile.TemporaryDirectory() as scratch:
    check_schema(pathlib.Path(scratch, "samples"))
    check_queries(pathlib.Path(scratch, "fleet"))

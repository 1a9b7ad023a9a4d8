#!/usr/bin/python3
"""Adds the lines of "orvanectl records --json" on standard input to the SQLite database that is named.

A record that the database already has is left out, so the same files can be imported again.
"""
import json
import pathlib
import sqlite3
import sys

COLUMNS = ("host time type failure errno error src dst cause cause_path likely_cause to_check file position "
           "line").split()


def row(line):
    record = json.loads(line)
    record.update(host=record.get("host", ""), position=record["offset"], line=line.strip())
    return [record[column] for column in COLUMNS]


def main(database):
    table = pathlib.Path(__file__).with_name("records.sql").read_text()
    insert = f"INSERT OR IGNORE INTO records ({','.join(COLUMNS)}) VALUES ({','.join('?' * len(COLUMNS))})"
    with sqlite3.connect(database) as connection:
        connection.execute(table)
        connection.executemany(insert, (row(line) for line in sys.stdin))
        print(connection.total_changes, "new records")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(f"usage: orvanectl records --json ... | {sys.argv[0]} DATABASE")
    main(sys.argv[1])

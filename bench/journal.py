#!/usr/bin/python3
"""The request rate of a daemon that logs to a real journal, and the entries that are lost.

    journal.py BUILD RESULTS [NAME...]

Runs in tests/sandbox; `./dev bench journal` builds and starts it. The journal has a /run of its own in memory, so that
this machine's journal is neither read nor written. Its limit of the rate is off: the rows measure what it can take.
"""

import json
import subprocess
import time
from dataclasses import asdict
from pathlib import Path

import bench

SOCKET = Path("/run/systemd/journal/socket")
STREAM = Path("/tmp/stream")  # takes the place of the stream that init connects
CLIENTS = (1, 4, 16, 64)
QUERIES, CHANGES = 0.5, 0.25


class Journal:
    """A journald with an empty journal."""

    def __enter__(self):
        bench.clear("/run/systemd/journal", "/run/log/journal")
        for folder in ("/run/systemd/journal", "/run/log/journal", "/run/systemd/journald.conf.d"):
            Path(folder).mkdir(parents=True)
        Path("/run/systemd/journald.conf.d/bench.conf").write_text(
            "[Journal]\nStorage=volatile\nRateLimitIntervalSec=0\nReadKMsg=no\nRuntimeMaxUse=2G\nRuntimeKeepFree=1M\n")
        self.process = subprocess.Popen(["/lib/systemd/systemd-journald"], stderr=subprocess.DEVNULL)
        while not SOCKET.exists():
            time.sleep(0.01)
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()
        bench.clear("/run/systemd/journald.conf.d")

    def lost(self):
        """The lines that the daemon could not hand over, by its own count, and those that journald says it dropped."""
        out = subprocess.run(["journalctl", "-D", "/run/log/journal", "-o", "cat", "-p", "warning"], check=True,
                             stdout=subprocess.PIPE).stdout.decode(errors="replace")
        return sum(int(line.split()[1]) for line in out.splitlines() if "lines are missing here" in line) + sum(
            int(line.split()[1]) for line in out.splitlines() if line.startswith(("Suppressed ", "Missed ")))


def main():
    run = Path("/tmp/run")
    run.mkdir()
    bench.run("mount", "--bind", run, "/run")
    Path("/proc/sys/net/unix/max_dgram_qlen").write_text("512")  # as init sets it
    STREAM.touch()
    stream = STREAM.stat()
    for mode, label, target in (("requests", "queries", QUERIES), ("changes", "changes (chmod of one path)", CHANGES)):
        for clients in CLIENTS:
            name = f"journal, {label}"
            if not bench.wants(name):
                continue
            with Journal() as journal:
                bench.compare_load(name, mode, clients, STREAM, target, JOURNAL_STREAM=f"{stream.st_dev}:{stream.st_ino}")
                time.sleep(1)  # until journald has stored what it has received
                bench.add(bench.Row(f"{name}, {clients} clients, lines lost", journal.lost(), None, "", 0))
    bench.RESULTS.mkdir(parents=True, exist_ok=True)
    (bench.RESULTS / "results-journal.json").write_text(
        json.dumps([asdict(row) for row in bench.rows], indent=1) + "\n")


if __name__ == "__main__":
    main()

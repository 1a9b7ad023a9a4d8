#!/usr/bin/python3
"""Looks for files that a power cut loses, in the states in which it can leave the disks.

    crash.py BUILD [--quick] [ROW...]

Runs in tests/sandbox; `./dev crash` builds and starts it. Each row is a request or a tool's command on file systems
whose disks log their writes. For each point of that log, the script builds the disks as a power cut there may leave
them, mounts them, and looks for every file. A file is lost if it is complete neither at the source nor at the
destination. A record is lost if it is missing although its request was answered. With --quick there are fewer points
and rows; with names only those rows. The status is 1 if one of our rows lost something. It is also 1 if the row without
flushes lost nothing, because the search then does not notice losses.
"""

import json
import os
import random
import socket
import subprocess
import sys
import time
import zlib
from contextlib import contextmanager
from dataclasses import dataclass, field
from pathlib import Path

from disks import FileSystem, Workshop, end, start
from states import states

BUILD = Path(sys.argv[1]).resolve()
IS_QUICK = "--quick" in sys.argv
CHOSEN = [word for word in sys.argv[2:] if word != "--quick"]
CTL, DAEMON, DISK = BUILD / "ctl/orvanectl", BUILD / "service/file_migrate_orvane", BUILD / "tests/crash/crash_disk"
NO_FLUSH = BUILD / "tests/libno_flush.so"
SOCKET = "/dev/unix/socket/file_migrate_orvane"
RECORDS = Path("/data/zelto/update/migrate")
POINTS, HALVES = (40, 1) if IS_QUICK else (4000, 3)  # points of each log; random halves for each disk at a point
SECONDS = 1.2 if IS_QUICK else 3  # until the kernel has written back data on its own; our ext4 commits each second
SKIPPED = 77  # ctest reports this status as a skipped test
# Small file systems that are mounted and copied quickly. With a commit each second, ext4 writes back a lot on its own
# during a request and soon after it.
FILE_SYSTEMS = [
    FileSystem("ext4", 48 << 20, ("mkfs.ext4", "-q", "-b", "4096", "-N", "4096", "-J", "size=4",
                                  "-E", "lazy_itable_init=0,lazy_journal_init=0,nodiscard"), "commit=1"),
    FileSystem("xfs", 48 << 20, ("mkfs.xfs", "-q", "--unsupported", "-K", "-d", "agcount=1", "-l", "size=1368b")),
]


def run(*command):
    subprocess.run(list(map(str, command)), check=True, stdout=subprocess.DEVNULL)


class Tree:
    """A tree that a command takes from from/tree to to/tree, on another disk or the same. A view is the set of complete
    files."""

    def __init__(self, command, directories=10, files=90, destination=None):
        choose = random.Random(2)
        self.command, self.destination = command, destination
        self.content = {f"{number % directories}/{number}": choose.randbytes(3000 if number % 10 else 200000)
                        for number in range(files)}
        self.wanted = {(name, zlib.crc32(data)) for name, data in self.content.items()}

    def fill(self, number, place):
        if number == 0:
            self.write(place / "from/tree", lambda data: data)
        (place / "to").mkdir()
        if self.destination == "empty":
            (place / "to/tree").mkdir()
        elif self.destination == "other files":
            self.write(place / "to/tree", lambda data: data[::-1])

    def write(self, top, change):
        for name, data in self.content.items():
            (top / name).parent.mkdir(parents=True, exist_ok=True)
            (top / name).write_bytes(change(data))

    def act(self, places, _):
        run(*self.command, places[0] / "from/tree", places[-1] / "to/tree")

    def look(self, place):
        paths = [Path(folder, name) for folder, _, names in os.walk(place) for name in names]
        for path in paths:  # so that the kernel reads them in parallel
            with open(path, "rb") as file:
                os.posix_fadvise(file.fileno(), 0, 0, os.POSIX_FADV_WILLNEED)
        return {("/".join(path.parts[-2:]), zlib.crc32(path.read_bytes())) for path in paths}

    def required(self, _):
        return self.wanted

    def lost(self, views, required):
        return required.difference(*views)


class Records:
    """Requests that fail one after the other, with their records on the disk. A view is the set of records that
    orvanectl reads there. An incomplete record counts as a different one."""

    NAME = "/none/" + 4 * ("x" * 250 + "/")  # long, so that 45 records cause a rotation

    def fill(self, *_):
        pass

    def act(self, places, log):
        self.answered = []  # the length of the log at each answer
        for number in range(45):
            words = [CTL, "move", "/data", self.NAME + str(number)]
            assert subprocess.run(words, stderr=subprocess.DEVNULL).returncode == 1
            self.answered.append(log.stat().st_size)
        self.records = sorted(self.look(places[0]), key=lambda text: int(Path(json.loads(text)["dst"]).name))
        self.names = {json.loads(text)["dst"] for text in self.records}
        assert len(self.records) == len(self.answered) and len(list(places[0].glob("*_ab_*"))) == 1

    def look(self, place):
        files = list(place.glob("file_migrate_ab*.txt"))
        lines = subprocess.run([CTL, "records", "--json", *files], check=True, stdout=subprocess.PIPE,
                               stderr=subprocess.DEVNULL).stdout.splitlines() if files else []
        return {json.dumps(json.loads(line) | {"file": "", "offset": 0}) for line in lines}

    def required(self, at):
        return self.records[:sum(length <= at for length in self.answered)]

    def lost(self, views, required):
        strange = {text for text in views[0] if json.loads(text)["dst"] not in self.names}
        return set(required) - views[0] | strange


@dataclass
class Row:
    name: str
    subject: object
    places: list = field(default_factory=lambda: ["first", "second"])  # where its disks are mounted
    loses: bool | None = False  # the expected outcome; None: either is right
    environment: dict = field(default_factory=dict)  # the daemon's
    is_quick: bool = True


def rows():
    ours = lambda *words: [CTL, *words]  # noqa: E731
    move, comb = ours("move"), ours("copy-comb", "1000:1000", "0750")
    no_flush = {"LD_PRELOAD": str(NO_FLUSH), "ASAN_OPTIONS": "verify_asan_link_order=0"}
    yield Row("move", Tree(move))
    yield Row("move without its flush", Tree(move), loses=True, environment=no_flush)
    yield Row("move of children", Tree(ours("move-children"), destination="empty"), is_quick=False)
    yield Row("combined copy", Tree(comb, destination="empty"))
    yield Row("combined copy, 400 directories", Tree(comb, 400, 400, destination="empty"), is_quick=False)
    yield Row("combined copy within a file system", Tree(comb, destination="empty"), places=["first"], is_quick=False)
    yield Row("copy onto other files", Tree(ours("copy"), destination="other files"), is_quick=False)
    yield Row("records, with a rotation", Records(), places=[RECORDS])
    yield Row("`mv`", Tree(["mv"]), loses=None, is_quick=False)
    yield Row("`rsync --remove-source-files`", Tree(["rsync", "-a", "--remove-source-files"]), loses=None,
              is_quick=False)


@contextmanager
def daemon(environment):
    Path(SOCKET).unlink(missing_ok=True)
    process = start([DAEMON], stderr=subprocess.DEVNULL, env=os.environ | environment)
    try:
        with socket.socket(socket.AF_UNIX) as probe:
            while probe.connect_ex(SOCKET) != 0:
                time.sleep(0.001)
        yield
    finally:
        end(process)
        Path(SOCKET).unlink(missing_ok=True)


def record(workshop, row, file_system):
    """Runs a row on disks that log. Returns the images from before the row, and the log."""
    places = [workshop.folder(place) for place in row.places]
    images = [workshop.make_image(f"image{number}", file_system, lambda place: row.subject.fill(number, place))
              for number in range(len(places))]
    log = workshop.top / "log"
    log.unlink(missing_ok=True)
    with workshop.served(images, file_system, places, "log", log):
        with daemon(row.environment):
            row.subject.act(places, log)
        time.sleep(SECONDS)
        for place in places:  # the source first, which is the worst order
            run("sync", "-f", place)
        whole = log.read_bytes()
    return images, whole


def search(workshop, row, file_system):
    """Prints one line of the table. Returns whether the outcome is as expected."""
    images, log = record(workshop, row, file_system)
    seen, losses, worst = set(), 0, 0
    for at, combination in states(workshop, images, file_system.kind, log, row.subject.look, POINTS, HALVES):
        required = row.subject.required(at)
        if (state := (combination, len(required))) in seen:
            continue
        seen.add(state)
        lost = row.subject.lost([view.found for view in combination], required)
        losses += bool(lost)
        worst = max(worst, len(lost))
    is_right = row.loses is None or row.loses == (losses > 0)
    print(f"| {row.name} | {file_system.kind} | {len(seen)} | {losses} | {worst} |" + ("" if is_right else " WRONG"),
          flush=True)
    return is_right


def main():
    chosen = [row for row in rows() if (row.name in CHOSEN if CHOSEN else row.is_quick or not IS_QUICK)]
    if not chosen:
        sys.exit("the rows are:\n" + "\n".join(row.name for row in rows()))
    try:
        workshop = Workshop(os.environ["FILE_MIGRATE_SECOND_FS"], DISK)
    except OSError as error:
        print(f"crash: Skipped\nneeds privilege: a mount namespace, /dev/fuse and loop devices ({error})")
        return SKIPPED
    print("| | file system | states | with losses | lost at worst |\n|---|---|---|---|---|", flush=True)
    file_systems = FILE_SYSTEMS[:1] if IS_QUICK else FILE_SYSTEMS
    results = [search(workshop, row, file_system) for row in chosen for file_system in file_systems]
    return 0 if all(results) else 1


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/python3
"""What bench.py measures, on a disk that nobody has read yet and that answers each read after 150 µs.

    cold.py BUILD RESULTS [NAME...]

Runs in tests/sandbox; `./dev bench cold` builds and starts it. Each run gets a fresh copy of a disk's image, newly
attached and mounted, so that nothing of it is in any cache. The slow disk is the one of tests/crash. It works on up to
64 reads at once, as flash does, and waits for writes one after the other.
"""

import json
import sys
import time
from dataclasses import asdict
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent.parent / "tests/crash"))
import bench  # noqa: E402
from disks import FileSystem, Workshop  # noqa: E402

READ_US, WRITE_US = "150", "20"
FILES = 10000
ROUNDS = 5
TARGETS = {"chown -r": 0.5, "chmod -r": 0.5, "used space": 0.5, "remove": 0.5, "remove --keep-going": 0.5,
           "copy, small": 0.25, "move": 0.25, "combined copy": 0.25, "copy, large": 0.35}
TREES = {
    "50 files a directory": lambda top: bench.make_small(top, FILES, files_per_directory=50),
    "5 files a directory": lambda top: bench.make_small(top, FILES, files_per_directory=5),
    "one directory": lambda top: bench.make_small(top, FILES, files_per_directory=FILES),
    "deep": bench.make_deep,
}
EXT4 = FileSystem("ext4", 2 << 30, ("mkfs.ext4", "-q", "-m", "0", "-N", "40000",
                                    "-E", "lazy_itable_init=0,lazy_journal_init=0,nodiscard"))
COLD, WARM = Path("/data/cold"), bench.PLACES["tmpfs"]


def rows():
    """Each pair that bench.py measures on small files, on each tree; and the copy of a large file. A chain of
    directories has no target, because only a directory that has been read says what is below it."""
    for pair in bench.pairs():
        if pair.tree == "small" and not pair.no_flush:
            for tree, make in TREES.items():
                yield (f"cold {pair.name.removesuffix(', small')}, {tree}", pair, make,
                       None if tree == "deep" else TARGETS.get(pair.name))
        elif pair.name == "copy, large":
            yield f"cold {pair.name}", pair, bench.make_large, TARGETS[pair.name]


def measure(workshop, name, pair, image, target):
    made = (WARM if pair.across else COLD) / "made"
    times = {"ours": [], "theirs": []}
    for number in range(ROUNDS):
        for side in ("ours", "theirs") if number % 2 else ("theirs", "ours"):
            bench.clear(WARM / "made")
            with workshop.served([image], EXT4, [COLD], "delay", READ_US, WRITE_US):
                times[side].append(1000 * bench.clock(getattr(pair, side), COLD / "tree", made))
    bench.add(bench.Row.of_rounds(name, times["ours"], times["theirs"], "ms", target))


def main():
    COLD.mkdir()
    WARM.mkdir()
    workshop = Workshop(bench.os.environ["FILE_MIGRATE_SECOND_FS"], bench.BUILD / "tests/crash/crash_disk")
    bench.install_policy()
    images = {}
    for name, pair, make, target in rows():
        if not bench.wants(name):
            continue
        if make not in images:
            images[make] = workshop.make_image(f"image{len(images)}", EXT4, lambda place: make(place / "tree"))
        with bench.Daemon(log="/tmp/log"):
            measure(workshop, name, pair, images[make], target)
    bench.RESULTS.mkdir(parents=True, exist_ok=True)
    (bench.RESULTS / "results-cold.json").write_text(json.dumps([asdict(row) for row in bench.rows], indent=1) + "\n")


if __name__ == "__main__":
    main()

#!/usr/bin/python3
"""Compares the daemon with the usual command-line tools, and its request rate with a minimal server.

    bench.py BUILD RESULTS [NAME...]

Runs in tests/sandbox; `./dev bench` builds and starts it. BUILD is the build folder. RESULTS is the folder for the JSON
tables and the points of the plot. With names, only the parts that begin with one of them run. The file system of /data
decides which parts there are: copies that share their blocks on XFS, everything else on ext4.

A comparison runs both sides in turn within one run, on identical trees and after a sync. The ratio in the table is the
median of the ratios of the single rounds.
"""

import itertools
import json
import os
import re
import resource
import signal
import socket
import statistics
import struct
import subprocess
import sys
import time
from dataclasses import asdict, dataclass
from pathlib import Path

BUILD, RESULTS = Path(sys.argv[1]), Path(sys.argv[2])
CHOSEN = sys.argv[3:]
CALLS = "/tmp/calls"  # strace's output
SOCKET = "/dev/unix/socket/file_migrate_orvane"
DAEMON = BUILD / "service/file_migrate_orvane"
CTL = str(BUILD / "ctl/orvanectl")
# The sandbox's two places: a file system on a loop device, whose image is in memory, and a tmpfs.
DATA_FS = next(kind for _, place, kind, *_ in map(str.split, open("/proc/mounts")) if place == "/data")
PLACES = {DATA_FS: Path("/data/bench"), "tmpfs": Path(os.environ["FILE_MIGRATE_SECOND_FS"]) / "bench"}
OTHER = {DATA_FS: "tmpfs", "tmpfs": DATA_FS}
# A comparison has at least ROUNDS rounds. A short one goes on until our side has run for ENOUGH_SECONDS, up to
# MOST_ROUNDS.
ROUNDS, MOST_ROUNDS, ENOUGH_SECONDS = 5, 25, 10
FILES = int(os.environ.get("BENCH_FILES", "100000"))
FILES_PER_DIRECTORY = 100
LARGE = 512 << 20
REQUEST = struct.Struct("=i4096s4096s36s36s16si")
EXISTS = REQUEST.pack(0, b"/", b"", b"", b"", b"", 0)


@dataclass
class Row:
    """One line of the table. The ratio is always ours divided by theirs, so more is better for a rate."""

    name: str
    ours: float
    theirs: float | None
    unit: str
    target: float | None
    is_rate: bool = False
    spread: str = ""
    ratio: float | None = None

    @staticmethod
    def of_rounds(name, ours, theirs, unit, target, is_rate=False):
        """Takes the median of the rounds' ratios, because a disturbance slows both sides of a round down."""
        ratios = sorted(a / b for a, b in zip(ours, theirs))
        quarter = len(ratios) // 4
        return Row(name, statistics.median(ours), statistics.median(theirs), unit, target, is_rate,
                   f"{ratios[quarter]:.2f} to {ratios[-1 - quarter]:.2f}", statistics.median(ratios))

    @property
    def figure(self):
        return self.ours if self.ratio is None else self.ratio

    @property
    def verdict(self):
        if self.target is None:
            return ""
        is_met = self.figure >= self.target if self.is_rate else self.figure <= self.target
        return "met" if is_met else "missed"

    def line(self):
        theirs = "" if self.theirs is None else f"{self.theirs:.4g}"
        ratio = "" if self.ratio is None else f"{self.ratio:.3f}"
        target = "" if self.target is None else f"{'≥' if self.is_rate else '≤'} {self.target:g}"
        cells = [self.name, f"{self.ours:.4g} {self.unit}", theirs, ratio, self.spread, target, self.verdict]
        return "| " + " | ".join(cells) + " |"


rows: list[Row] = []
points: list[tuple[str, int, float]] = []


def add(row):
    if not rows:
        print("| what | ours | theirs | ratio | middle half | target | |\n|---|---|---|---|---|---|---|")
    rows.append(row)
    print(row.line(), flush=True)


def wants(part):
    return not CHOSEN or any(part.startswith(name) for name in CHOSEN)


# ---- the daemon ----


class Daemon:
    """A running daemon whose log goes to a file or a device."""

    def __init__(self, log="/dev/null", **environment):
        Path(SOCKET).unlink(missing_ok=True)
        with open(log, "wb") as out:
            self.process = subprocess.Popen([DAEMON], stderr=out, env={**os.environ, **environment})
        self.started = time.monotonic()
        wait_for_socket(SOCKET)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        Path(SOCKET).unlink(missing_ok=True)

    def status(self, key):
        """A figure from /proc/PID/status: kilobytes, or a count."""
        for line in Path(f"/proc/{self.process.pid}/status").read_text().splitlines():
            if line.startswith(key + ":"):
                return int(line.split()[1])
        raise KeyError(key)

    def wakeups(self):
        """How often its threads have gone to sleep since they started."""
        return sum(int(re.search(r"^voluntary_ctxt_switches:\s+(\d+)", status.read_text(), re.MULTILINE)[1])
                   for status in Path(f"/proc/{self.process.pid}/task").glob("*/status"))

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.process.pid}/fd"))


def wait_for_socket(path):
    while True:
        with socket.socket(socket.AF_UNIX) as probe:
            try:
                return probe.connect(path)
            except OSError:
                time.sleep(0.0005)


def ctl(*arguments, statuses=(0,)):
    status = subprocess.run([CTL, *map(str, arguments)], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    if status.returncode not in statuses:
        raise RuntimeError(f"orvanectl {arguments}: {status.stderr.decode()}")


def run(*command):
    subprocess.run([str(word) for word in command], check=True, stdout=subprocess.DEVNULL)


# ---- trees ----


def make_small(top, files=FILES, size=300, files_per_directory=FILES_PER_DIRECTORY):
    content = b"x" * size
    for number in range(files):
        if number % files_per_directory == 0:
            directory = top / f"directory{number // files_per_directory}"
            directory.mkdir(parents=True)
        (directory / f"file{number}").write_bytes(content)


def make_large(top):
    top.mkdir(parents=True)
    block = os.urandom(1 << 20)
    with open(top / "large", "wb") as file:
        for _ in range(LARGE >> 20):
            file.write(block)


def make_sparse(top):
    top.mkdir(parents=True)
    for number in range(100):
        with open(top / f"sparse{number}", "wb") as file:
            for at in range(0, 64 << 20, 16 << 20):
                file.seek(at)
                file.write(b"x" * 8192)
            file.truncate(64 << 20)


def make_deep(top):
    level = top
    for _ in range(400):
        level = level / "d"
        level.mkdir(parents=True)
        (level / "file").write_bytes(b"x")


MAKE = {"small": make_small, "large": make_large, "sparse": make_sparse, "deep": make_deep}


def clear(*paths):
    for path in paths:
        run("rm", "-rf", path)


# ---- pairs ----


@dataclass
class Pair:
    """Two ways to do the same work. `ours` and `theirs` take the tree and the path of the result."""

    name: str
    tree: str
    ours: object
    theirs: object
    targets: tuple[float | None, float | None]  # on ext4, on tmpfs
    makes: bool = False  # it creates a result
    takes: bool = False  # it removes or changes the tree, so each run needs a new one
    across: bool = False  # the result is on the other file system
    no_flush: bool = False
    is_cold: bool = False  # the tree's files are not in the page cache


def clock(action, *arguments):
    os.sync()
    begin = time.perf_counter()
    action(*arguments)
    return time.perf_counter() - begin


def settle(tree, is_cold):
    """Loads the files of a tree into the page cache, or drops them from it."""
    for folder, _, names in os.walk(tree):
        for name in names:
            with open(Path(folder) / name, "rb") as file:
                if is_cold:
                    os.fsync(file.fileno())
                    os.posix_fadvise(file.fileno(), 0, 0, os.POSIX_FADV_DONTNEED)
                else:
                    while file.read(1 << 20):
                        pass


def measure(pair, place):
    """Measures one row. Each round runs both sides; they take turns at being first."""
    source = PLACES[place] / "template" / pair.tree
    times = {"ours": [], "theirs": []}
    for number in range(MOST_ROUNDS + 1):
        if number > ROUNDS and sum(times["ours"]) >= 1000 * ENOUGH_SECONDS:
            break
        for side in ("ours", "theirs") if number % 2 else ("theirs", "ours"):
            work = PLACES[place] / "work"
            made = PLACES[OTHER[place] if pair.across else place] / "made"
            clear(work, made)
            if pair.takes:
                run("cp", "-r", source, work)
            elif pair.makes:
                settle(source, pair.is_cold)
            taken = clock(getattr(pair, side), work if pair.takes else source, made)
            if number > 0:  # the first round warms up
                times[side].append(1000 * taken)
    clear(work, made)
    target = pair.targets[list(PLACES).index(place)]
    arrow = f"{place} to {OTHER[place]}" if pair.across else place
    add(Row.of_rounds(f"{pair.name}, {arrow}", times["ours"], times["theirs"], "ms", target))


def changes(name, ours, theirs, values, targets):
    """A pair whose commands change nothing when repeated with the same value: each run takes the next value."""
    value = itertools.cycle(values)

    def action(words):
        return lambda tree, _: run(*filled(words, TREE=tree, VALUE=next(value)))

    return Pair(name, "small", action(ours), action(theirs), targets)


def filled(words, **places):
    return [places.get(word, word) for word in words]


def on_tree(*words):
    return lambda tree, made: run(*filled(words, TREE=tree, MADE=made))


def comb_of_tools(tree, made):
    made.mkdir()
    run("cp", "-r", f"{tree}/.", made)
    run("chown", "-R", "1000:1000", made)
    run("chmod", "-R", "0750", made)
    run("rm", "-rf", tree)


def comb_of_ours(tree, made):
    made.mkdir()
    run(CTL, "copy-comb", "1000:1000", "0750", tree, made)


def copies():
    for tree, targets in (("small", (0.56, 0.55)), ("large", (1.05, 1.05)), ("sparse", (None, None)),
                          ("deep", (None, None))):
        yield Pair(f"copy, {tree}", tree, on_tree(CTL, "copy", "TREE", "MADE"), on_tree("cp", "-r", "TREE", "MADE"),
                   targets, makes=True)
    yield Pair("copy, large, not in the page cache", "large", on_tree(CTL, "copy", "TREE", "MADE"),
               on_tree("cp", "-r", "TREE", "MADE"), (None, None), makes=True, is_cold=True)


def pairs():
    yield changes("chown -r", (CTL, "chown", "-r", "VALUE", "TREE"), ("chown", "-R", "VALUE", "TREE"), ("1:1", "2:2"),
                  (0.62, 0.62))
    yield changes("chmod -r", (CTL, "chmod", "-r", "VALUE", "TREE"), ("chmod", "-R", "VALUE", "TREE"), ("700", "755"),
                  (0.56, 0.5))
    yield Pair("used space", "small", on_tree(CTL, "du", "TREE"), on_tree("du", "-s", "TREE"), (0.65, 0.65))
    yield Pair("largest file", "small", on_tree(CTL, "largest", "TREE"), on_tree("du", "-a", "TREE"), (0.65, 0.65))
    yield from copies()
    mv = on_tree("mv", "TREE", "MADE")
    move = on_tree(CTL, "move", "TREE", "MADE")
    yield Pair("move", "small", move, mv, (0.5, 0.5), makes=True, takes=True, across=True)
    yield Pair("move, no flush", "small", move, mv, (None, None), makes=True, takes=True, across=True, no_flush=True)
    rm = on_tree("rm", "-rf", "TREE")
    yield Pair("remove", "small", on_tree(CTL, "rm", "TREE"), rm, (0.7, 0.63), takes=True)
    yield Pair("remove --keep-going", "small", on_tree(CTL, "rm", "--keep-going", "TREE"), rm, (0.7, 0.63), takes=True)
    yield Pair("remove, deep", "deep", on_tree(CTL, "rm", "TREE"), rm, (None, None), takes=True)
    yield Pair("combined copy", "small", comb_of_ours, comb_of_tools, (0.55, 0.55), makes=True, takes=True)
    rules = "/etc/selinux/bench/contexts/files/file_contexts"
    yield Pair("restorecon -r", "small", on_tree(CTL, "restorecon", "-r", "TREE"),
               on_tree("setfiles", "-T", "0", rules, "TREE"), (1.0, 1.0), takes=True)


def install_policy():
    """Mounts a small policy over /etc/selinux. The labels can be set even if SELinux is disabled in the kernel."""
    folder = PLACES["tmpfs"] / "selinux"
    rules = folder / "bench/contexts/files"
    rules.mkdir(parents=True)
    (folder / "config").write_text("SELINUX=permissive\nSELINUXTYPE=bench\n")
    (rules / "file_contexts").write_text("".join(
        f"{path}(/.*)?  system_u:object_r:{label}_t:s0\n"
        for path, label in (("/data", "data"), ("/second-fs", "second"), (r"/data/.*/file[0-9]*5", "five"))))
    Path("/etc/selinux").mkdir(exist_ok=True)
    run("mount", "--bind", folder, "/etc/selinux")


def bench_pairs():
    chosen = [pair for pair in pairs() if wants(pair.name)]
    if any(pair.name.startswith("restorecon") for pair in chosen):
        install_policy()
    for place, top in PLACES.items():
        for tree in {pair.tree for pair in chosen}:
            MAKE[tree](top / "template" / tree)
    for pair in chosen:
        preload = {"LD_PRELOAD": str(BUILD / "tests/libno_flush.so")} if pair.no_flush else {}
        for place in PLACES:
            if pair.is_cold and place == "tmpfs":
                continue  # a tmpfs is always in the page cache
            with Daemon(log="/tmp/log", **preload):
                measure(pair, place)
    for top in PLACES.values():
        clear(top / "template")


def bench_reflink():
    """Copies a large file by sharing its blocks. The copy must take no space; the time is that of starting up."""
    top = PLACES[DATA_FS]
    copy = Pair("copy, large, by reflink", "large", on_tree(CTL, "copy", "TREE", "MADE"),
                on_tree("cp", "-r", "TREE", "MADE"), (None, None), makes=True)
    make_large(top / "template/large")
    with Daemon(log="/tmp/log"):
        measure(copy, DATA_FS)
        before = used_kilobytes(top)
        ctl("copy", top / "template/large", top / "made")
        add(Row(f"space that this copy takes, {DATA_FS}", used_kilobytes(top) - before, None, "KB", 1024))


def used_kilobytes(top):
    os.sync()
    found = os.statvfs(top)
    return (found.f_blocks - found.f_bfree) * found.f_frsize / 1024


# ---- requests ----


def load(path, mode, clients, seconds=1):
    out = subprocess.run([BUILD / "bench/load", path, mode, str(clients), str(seconds)], check=True,
                         stdout=subprocess.PIPE).stdout
    return json.loads(out)


def compare_load(name, mode, clients, log, rate_target, tail_target=None, **environment):
    bare = "/tmp/bare"
    Path(bare).unlink(missing_ok=True)
    floor = subprocess.Popen([BUILD / "bench/bare_loop", bare])
    figures = {SOCKET: [], bare: []}
    try:
        with Daemon(log, **environment):
            wait_for_socket(bare)
            for number in range(ENOUGH_SECONDS + 1):  # one second each
                for path in (SOCKET, bare) if number % 2 else (bare, SOCKET):
                    figure = load(path, mode, clients)
                    if number > 0:  # the first round warms up
                        figures[path].append(figure)
    finally:
        floor.kill()
        floor.wait()

    def of(key):
        return [[figure[key] for figure in figures[path]] for path in (SOCKET, bare)]

    def row(label, key, unit, target, is_rate):
        add(Row.of_rounds(f"{name}, {clients} clients{label}", *of(key), unit, target, is_rate))

    row("", "per_second", "/s", rate_target, True)
    row(", p50", "p50_us", "us", None, False)
    row(", p99", "p99_us", "us", tail_target, False)


def bench_requests():
    for log, label, target in (("/dev/null", "log to /dev/null", 0.95), ("/tmp/log", "log in a file", 0.85)):
        for clients in (1, 4, 16, 64):
            compare_load(f"requests, {label}", "requests", clients, log, target,
                         2 if clients == 16 and log == "/dev/null" else None)
    for clients in (1, 16):
        compare_load("connections, log to /dev/null", "connections", clients, "/dev/null", 0.5)


# ---- the daemon by itself ----


def first_answer():
    """Milliseconds from exec to the first answer."""
    with Daemon() as daemon:
        with socket.socket(socket.AF_UNIX) as client:
            client.connect(SOCKET)
            client.sendall(EXISTS)
            client.recv(12)
        return 1000 * (time.monotonic() - daemon.started)


def bench_start():
    """CPU time of one run of the tool, and of the usual tool that asks the same."""
    times = {CTL: [], "stat": []}
    with Daemon():
        for _ in range(ROUNDS * 20):
            for tool, arguments in ((CTL, ("exists", "/")), ("stat", ("/",))):
                before = resource.getrusage(resource.RUSAGE_CHILDREN)
                run(tool, *arguments)
                after = resource.getrusage(resource.RUSAGE_CHILDREN)
                times[tool].append(1000 * (after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime))
    add(Row.of_rounds("start of the tool, CPU time", times[CTL], times["stat"], "ms", None))


def bench_daemon():
    add(Row("first answer after exec", statistics.median(first_answer() for _ in range(ROUNDS)), None, "ms", 25))
    stripped = PLACES["tmpfs"] / "stripped"
    run("strip", "-o", stripped, DAEMON)
    add(Row("stripped daemon", stripped.stat().st_size / 1024, None, "KB", 1024))
    many = PLACES["tmpfs"] / "many"
    with Daemon() as daemon:
        add(Row("resident, idle", daemon.status("VmRSS"), None, "KB", 6 * 1024))
        add(Row("descriptors, idle", daemon.descriptors(), None, "", None))
        time.sleep(0.5)  # wait until its workers sleep
        before = daemon.wakeups()
        time.sleep(3)
        add(Row("wake-ups a second, idle", (daemon.wakeups() - before) / 3, None, "", 11))
        with subprocess.Popen([BUILD / "bench/load", SOCKET, "requests", "64", "1"], stdout=subprocess.DEVNULL):
            time.sleep(0.5)
            add(Row("resident, 64 clients", daemon.status("VmRSS"), None, "KB", None))
            add(Row("descriptors, 64 clients", daemon.descriptors(), None, "", None))
        load(SOCKET, "requests", 16, 1)  # each worker's heap grows once, to the size of its largest request
        grown = daemon.status("VmRSS")
        served = 0
        while served < 100000:
            served += load(SOCKET, "requests", 16, 1)["per_second"]
        add(Row("growth over 100,000 requests", daemon.status("VmRSS") - grown, None, "KB", 128))
        for entries, limit in ((100000, 4096), (1000000, None)):
            clear(many)
            make_small_names(many, entries)
            before = daemon.status("VmRSS")
            Path(f"/proc/{daemon.process.pid}/clear_refs").write_text("5")  # reset the peak
            ctl("ls", many)
            names = sum(len(entry.name) + 1 for entry in os.scandir(many)) / 1024
            peak = daemon.status("VmHWM") - before
            add(Row(f"listing {entries} entries, peak, to the bytes of the names", peak, names, "KB", None,
                    ratio=peak / names))
            load(SOCKET, "requests", 4, 0.1)  # gives the worker time to release its list
            add(Row(f"listing {entries} entries, kept", daemon.status("VmRSS") - before, None, "KB", limit))
        clear(many)


def make_small_names(top, entries):
    top.mkdir(parents=True)
    for number in range(entries):
        os.mknod(top / f"com.example.document{number}")


# ---- system calls per object ----


def calls_of(action, daemon):
    """Counts the daemon's system calls for an action, except those for logging and waiting."""
    tracer = subprocess.Popen(["strace", "-fqq", "-o", CALLS, "-p", str(daemon.process.pid)])
    while any("TracerPid:\t0\n" in status.read_text()
              for status in Path(f"/proc/{daemon.process.pid}/task").glob("*/status")):
        time.sleep(0.01)
    action()
    tracer.send_signal(signal.SIGINT)
    tracer.wait()
    return count_calls(apart=("epoll_wait", "futex", "write", "restart_syscall"))


def calls_of_tool(*command):
    run("strace", "-fqq", "-o", CALLS, *command)
    return count_calls()


def count_calls(apart=()):
    """Counts the lines, because `strace -c` leaves out calls that it has no name for."""
    names = re.findall(r"^\d+ +(\w+)\(", Path(CALLS).read_text(), re.MULTILINE)
    return sum(name not in apart for name in names)


def bench_calls():
    files = 5000
    objects = files + files // FILES_PER_DIRECTORY
    for name, ours, theirs, target in (
            ("chown", ("chown", "-r", "1:1", "TREE"), ("chown", "-R", "2:2", "TREE"), None),
            ("chmod", ("chmod", "-r", "700", "TREE"), ("chmod", "-R", "755", "TREE"), None),
            ("used space", ("du", "TREE"), ("du", "-s", "TREE"), None),
            ("copy", ("copy", "TREE", "MADE"), ("cp", "-r", "TREE", "MADE"), 8.2),
            ("move", ("move", "TREE", "OTHER"), ("mv", "TREE", "OTHER"), 11.2),
            ("remove", ("rm", "TREE"), ("rm", "-rf", "TREE"), None)):
        places = {"TREE": PLACES["ext4"] / "tree", "MADE": PLACES["ext4"] / "made", "OTHER": PLACES["tmpfs"] / "made"}

        def prepare():
            clear(*places.values())
            make_small(places["TREE"], files)

        with Daemon() as daemon:
            prepare()
            count = calls_of(lambda: ctl(*filled(ours, **places)), daemon)
        prepare()
        other = calls_of_tool(*filled(theirs, **places))
        add(Row(f"system calls per object, {name}", count / objects, other / objects, "", target))
    clear(*places.values())


# ---- cost per entry ----


def bench_scale():
    """Measures the points of the plot: microseconds per entry for trees of 1,000 to 1,000,000 empty files."""
    top = PLACES["ext4"] / "scale"
    made = PLACES["ext4"] / "copied"
    for entries in (1000, 10000, 100000, 1000000):
        make_small(top, entries, size=0)
        with Daemon():
            for name, command in (("chown", ("chown", "-r", "1:1", top)), ("used space", ("du", top)),
                                  ("copy", ("copy", top, made)), ("remove", ("rm", made))):
                points.append((name, entries, 1e6 * clock(lambda: ctl(*command)) / entries))
                print(f"{name:<12} {entries:>8} entries: {points[-1][2]:6.2f} us per entry", flush=True)
        clear(top, made)
    lines = [f"{entries} " + " ".join(f"{cost:.3f}" for name, number, cost in points if number == entries)
             for entries in sorted({number for _, number, _ in points})]
    names = list(dict.fromkeys(name for name, _, _ in points))
    (RESULTS / "scale.dat").write_text("# entries, " + ", ".join(names) + "\n" + "\n".join(lines) + "\n")


PARTS = {
    "ext4": (("", bench_pairs), ("requests", bench_requests), ("daemon", bench_daemon), ("start", bench_start),
             ("calls", bench_calls), ("scale", bench_scale)),
    "xfs": (("reflink", bench_reflink),),
}


def main():
    if DATA_FS not in PARTS:
        sys.exit(f"/data is a {DATA_FS}: nothing was measured")
    for top in PLACES.values():
        top.mkdir()
    RESULTS.mkdir(parents=True, exist_ok=True)
    for part, bench in PARTS[DATA_FS]:
        if part == "" or wants(part):  # the pairs have names of their own
            bench()
    if not rows:
        return
    (RESULTS / f"results-{DATA_FS}.json").write_text(json.dumps(
        [{**asdict(row), "figure": row.figure, "verdict": row.verdict} for row in rows], indent=1) + "\n")
    missed = sum(row.verdict == "missed" for row in rows)
    print(f"{sum(row.verdict == 'met' for row in rows)} targets met, {missed} missed")


if __name__ == "__main__":
    main()

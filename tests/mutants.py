#!/usr/bin/env python3
"""Measures the tests: puts one fault at a time into a copy of the sources and runs the tests that should notice it.

    tests/mutants.py SOURCE BUILD FOLDER...

SOURCE is a copy of the project that may be changed, and BUILD an empty folder. For each FOLDER of the product a fixed
number of faults is drawn with a fixed seed, so that two runs on the same sources try the same faults. A fault that does
not compile, or that leaves the programs the same byte for byte, is replaced by the next one. FILE_MIGRATE_MUTANTS is
the number of faults for each folder.
"""

import hashlib
import os
import random
import re
import signal
import subprocess
import sys
import tempfile
import time
from dataclasses import dataclass
from pathlib import Path

SEED = 17
COUNT = int(os.environ.get("FILE_MIGRATE_MUTANTS", "30"))
PROGRAMS = ["service/file_migrate_orvane", "ctl/orvanectl", "client/libfile_migrate_client.so", "tests/unit_tests",
            "tests/ctl_tests"]

# The tests of a folder: programs with their filters, the quickest first.
DAEMON_TESTS = [["unit_tests"], ["daemon_tests", "CommandsTest.*"],
                ["daemon_tests", "-CommandsTest.*:RaceTest.*:OutsideProject.*"], ["daemon_tests", "RaceTest.*"]]
TESTS = {
    "client": [["client_tests"], ["ctl_tests", "Orvanectl*"]],
    "ctl": [["ctl_tests"]],
    "reader": [["ctl_tests"]],
    **dict.fromkeys(["service", "commands", "fileops", "record", "platform"], DAEMON_TESTS),
}

# What is replaced by what. The sources are formatted, so binary operators have blanks around them.
REPLACEMENTS = [
    (r" == ", " != "), (r" != ", " == "), (r" < ", " <= "), (r" <= ", " < "), (r" > ", " >= "), (r" >= ", " > "),
    (r" && ", " || "), (r" \|\| ", " && "), (r" \+ ", " - "), (r" - ", " + "), (r"\+\+", "--"), (r" \+= ", " -= "),
    (r" \| ", " & "), (r" & ", " | "), (r"\btrue\b", "false"), (r"\bfalse\b", "true"), (r"(?<=[( ])!(?=\w)", ""),
    (r"\bif \((?=.*\) \{$)", "if (!("), (r"(?<![\w.\"'])(\d+)(?![\w.\"'])", None), (r"\bbreak;", ""), (r"\bcontinue;", ""),
    (r"^(?: {4})+(?:\(void\))?[\w.\->\[\]:]+(?:\(| [-+|]?= ).*;$", ";"),
]
LITERAL = re.compile(r'"(?:[^"\\]|\\.)*"|\'(?:[^\'\\]|\\.)*\'|//.*')


@dataclass(frozen=True)
class Fault:
    file: str
    line: int  # from 0
    old: str
    new: str

    def __str__(self):
        return f"{self.file}:{self.line + 1}: {self.old.strip()}  ->  {self.new.strip()}"


def faults_of_line(file, number, line):
    """Texts and comments are blanked out for the search, so that no fault is put into them."""
    if re.match(r"\s*(#|static_assert|using |namespace |template)|.*\bconsteval\b", line):
        return
    code = LITERAL.sub(lambda found: "\0" * len(found[0]), line)
    for pattern, replacement in REPLACEMENTS:
        for found in re.finditer(pattern, code):
            new = str(int(found[0]) + 1) if replacement is None else replacement
            changed = line[: found.start()] + new + line[found.end() :]
            if new == "if (!(":
                changed = re.sub(r"\) \{$", ")) {", changed)
            yield Fault(file, number, line, changed)


def all_faults(source, folder):
    faults = []
    for path in sorted((source / folder).rglob("*.cpp")):
        lines = path.read_text().split("\n")
        for number, line in enumerate(lines):
            faults += faults_of_line(str(path.relative_to(source)), number, line)
    random.Random(SEED).shuffle(faults)
    return faults


def run(command, seconds):
    """The status and the output of a command; the status is None if it had to be killed."""
    # A file, because log lines to a pipe go through a descriptor that the log's own test cannot replace.
    with tempfile.TemporaryFile() as output:
        with subprocess.Popen(command, stdout=output, stderr=subprocess.STDOUT, start_new_session=True) as process:
            try:
                status = process.wait(seconds)
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, signal.SIGKILL)
                return None, ""
        output.seek(0)
        return status, output.read().decode(errors="replace")


class Runner:
    def __init__(self, source, build):
        self.source, self.build = source, build
        self.limits = {}  # seconds for each command, from its run without a fault
        subprocess.run(["cmake", "--preset", "release", "-S", source, "-B", build], cwd=source, check=True,
                       stdout=subprocess.DEVNULL)
        if not self.builds():
            sys.exit("the sources do not build")
        self.unchanged = self.digest()

    def builds(self):
        return run(["cmake", "--build", self.build, "-j", str(os.cpu_count())], 1800)[0] == 0

    def digest(self):
        return [hashlib.sha256((self.build / name).read_bytes()).digest() for name in PROGRAMS]

    def first_failure(self, test):
        """The name of the first test that fails, or "" if all pass."""
        program, *pattern = test
        command = [self.source / "tests/sandbox", self.build / "tests" / program, "--gtest_fail_fast",
                   f"--gtest_filter={pattern[0] if pattern else '*'}"]
        begin = time.monotonic()
        status, output = run(command, self.limits.get(str(test), 900))
        self.limits.setdefault(str(test), 60 + 4 * (time.monotonic() - begin))
        failed = re.search(r"\[  FAILED  \] ([\w.]+)", output)
        return "" if status == 0 else failed[1] if failed else f"{program} ended with {status}"

    def verdict(self, fault, tests):
        """The test that notices the fault, "" if none does, or None if there is nothing to notice."""
        path = self.source / fault.file
        text = path.read_text()
        lines = text.split("\n")
        lines[fault.line] = fault.new
        path.write_text("\n".join(lines))
        try:
            if not self.builds() or self.digest() == self.unchanged:
                return None
            return next(filter(None, map(self.first_failure, tests)), "")
        finally:
            path.write_text(text)


def measure(runner, folder):
    """Tries the faults of one folder. Returns the survivors and the number of faults tried."""
    for test in TESTS[folder]:
        if str(test) not in runner.limits and (failure := runner.first_failure(test)):
            sys.exit(f"fails without a fault: {failure}")
    survivors, tried = [], 0
    for fault in all_faults(runner.source, folder):
        if tried == COUNT:
            break
        noticed = runner.verdict(fault, TESTS[folder])
        if noticed is None:
            continue
        tried += 1
        print(f"{noticed or 'SURVIVED':40} {fault}", flush=True)
        if not noticed:
            survivors.append(fault)
    return survivors, tried


def main():
    source, build, folders = Path(sys.argv[1]).resolve(), Path(sys.argv[2]).resolve(), sys.argv[3:] or list(TESTS)
    unknown = set(folders) - set(TESTS)
    if unknown:
        sys.exit(f"no tests are named for {', '.join(unknown)}; there are: {' '.join(TESTS)}")
    runner = Runner(source, build)
    results = {folder: measure(runner, folder) for folder in folders}
    for folder, (survivors, tried) in results.items():
        print(f"\n{folder}: {tried - len(survivors)} of {tried} noticed")
        for fault in survivors:
            print(f"  {fault}")


main()

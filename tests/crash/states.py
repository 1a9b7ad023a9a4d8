"""The states in which a power cut can leave disks whose writes and flushes were logged."""

import itertools
import os
import random
from contextlib import ExitStack, closing
from dataclasses import dataclass

from disks import WRITE_HEADER, Loop, mount, read_log, unmount

SECTOR = 4096  # a disk writes all of it or nothing


def copy_sparse(source, target):
    """Copies a file into one that is open elsewhere, such as in a loop device. Holes take no time."""
    size = os.fstat(source).st_size
    os.ftruncate(target, 0)
    os.ftruncate(target, size)
    at = 0
    while at < size:
        try:
            begin = os.lseek(source, at, os.SEEK_DATA)
        except OSError:  # no more data
            return
        at = os.lseek(source, begin, os.SEEK_HOLE)
        os.pwrite(target, os.pread(source, at - begin, begin), begin)


@dataclass(eq=False)
class View:
    """What was found in one state of one disk. Two states are different even if the same was found in them."""

    found: object


class Disk:
    """One disk at a point of the log: the data that is certainly on it, and the data that a power cut may lose."""

    def __init__(self, workshop, image, kind, look, choose, halves):
        self.kind, self.look, self.choose, self.halves = kind, look, choose, halves
        self.place = workshop.folder("state")
        self.flushed = os.open(image, os.O_RDWR | os.O_CLOEXEC)
        probe = workshop.top / f"{image.name}.state"
        probe.write_bytes(b"")
        self.probe = os.open(probe, os.O_RDWR | os.O_CLOEXEC)
        copy_sparse(self.flushed, self.probe)
        self.loop = Loop(workshop.devices, probe)
        self.pending = []  # the sectors written since the last flush
        self.view_flushed = self.view_all = None  # None: not examined yet
        self.views_between = []

    def close(self):
        self.loop.close()
        os.close(self.flushed)
        os.close(self.probe)

    def write(self, offset, data):
        if len(data) == 0:
            self.flush()
            return
        self.pending += [(offset + at, data[at:at + SECTOR]) for at in range(0, len(data), SECTOR)]
        self.view_all, self.views_between = None, []

    def flush(self):
        if self.pending:
            for offset, data in self.pending:
                os.pwrite(self.flushed, data, offset)
            self.pending, self.view_flushed = [], self.view_all

    def views(self):
        """The views after a power cut at this point, with none, all or a random half of the unflushed sectors."""
        if self.view_flushed is None:
            self.view_flushed = self.view([])
        if not self.pending:
            return [self.view_flushed]
        if self.view_all is None:
            self.view_all = self.view(self.pending)
            self.views_between = [self.view([write for write in self.pending if self.choose() < 0.5])
                                  for _ in range(self.halves)]
        return [self.view_flushed, self.view_all, *self.views_between]

    def view(self, writes):
        """Builds a state and examines it."""
        copy_sparse(self.flushed, self.probe)
        for offset, data in writes:
            os.pwrite(self.probe, data, offset)
        self.loop.forget()
        mount(self.loop.path, self.place, self.kind)  # replays the journal
        try:
            return View(self.look(self.place))
        finally:
            unmount(self.place)


def states(workshop, images, kind, log, look, most_points, halves):
    """For each point of the log, yields its offset in the log and each combination of the disks' views at that point.

    At most twice `most_points` are taken, spread evenly. `halves` is the number of states with a random half of the
    sectors that a disk had not flushed. The images are changed.
    """
    choose = random.Random(1).random
    entries = list(read_log(log))
    step = max(1, len(entries) // most_points)
    with ExitStack() as stack:
        disks = [stack.enter_context(closing(Disk(workshop, image, kind, look, choose, halves))) for image in images]
        end = 0
        for number, (disk, offset, data) in enumerate(entries, 1):
            disks[disk].write(offset, data)
            end += WRITE_HEADER.size + len(data)
            if number % step == 0 or number == len(entries):
                for combination in itertools.product(*(each.views() for each in disks)):
                    yield end, combination

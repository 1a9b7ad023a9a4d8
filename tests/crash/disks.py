"""Images, loop devices, mounts, and disks that log what is written to them.

Needs root. Makes a mount namespace of its own, and everything that is mounted or attached here ends with it.
"""

import ctypes
import errno
import fcntl
import os
import signal
import struct
import subprocess
from contextlib import ExitStack, closing, contextmanager
from dataclasses import dataclass
from pathlib import Path

LIBC = ctypes.CDLL(None, use_errno=True)
CLONE_NEWNS = 0x00020000
MS_REC, MS_PRIVATE = 1 << 14, 1 << 18
PR_SET_PDEATHSIG = 1
LOOP_CTL_GET_FREE, LOOP_CONFIGURE = 0x4C82, 0x4C0A
LOOP_CONFIG = struct.Struct("=II52xI184x64x")  # the kernel's loop_config: the file, and the flags in loop_info64
LO_FLAGS_AUTOCLEAR, LO_FLAGS_DIRECT_IO = 4, 16
BLKFLSBUF, BLKRASET = 0x1261, 0x1262
READ_AHEAD = 256  # in sectors of 512 bytes, as for most disks; a loop device on FUSE would get twenty times as much
WRITE_HEADER = struct.Struct("=IIQ")  # as in disk.cpp


@dataclass(frozen=True)
class FileSystem:
    kind: str
    size: int
    command: tuple[str, ...]  # makes it
    options: str = ""  # to mount it


def call(name, *arguments):
    if getattr(LIBC, name)(*arguments) != 0:
        error = ctypes.get_errno()
        raise OSError(error, f"{name}: {os.strerror(error)}")


def mount(device, place, kind, options=""):
    call("mount", os.fsencode(device), os.fsencode(place), kind.encode(), 0, options.encode())


def unmount(place):
    call("umount2", os.fsencode(place), 0)


def start(command, **options):
    """Starts a process that ends with this one at the latest, and that Ctrl-C in the terminal does not reach."""
    return subprocess.Popen(list(map(str, command)), start_new_session=True,
                            preexec_fn=lambda: LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGKILL), **options)


def end(process):
    process.kill()
    process.wait()


class Loop:
    """A loop device for a file. The kernel detaches it when this object is closed and nothing is mounted from it."""

    def __init__(self, devices, image, flags=0):
        with open(image, "r+b") as file, open(devices / "loop-control", "rb") as control:
            config = LOOP_CONFIG.pack(file.fileno(), 0, LO_FLAGS_AUTOCLEAR | flags)
            while True:
                self.path = devices / f"loop{fcntl.ioctl(control, LOOP_CTL_GET_FREE)}"
                self.fd = os.open(self.path, os.O_RDWR | os.O_CLOEXEC)
                try:
                    fcntl.ioctl(self.fd, LOOP_CONFIGURE, config)
                    fcntl.ioctl(self.fd, BLKRASET, READ_AHEAD)
                    return
                except OSError as error:
                    os.close(self.fd)
                    if error.errno != errno.EBUSY:  # another process took this device
                        raise

    def close(self):
        os.close(self.fd)

    def forget(self):
        """Drops cached blocks, because the file has changed."""
        fcntl.ioctl(self.fd, BLKFLSBUF)


class Workshop:
    """A directory on a tmpfs for images. Creates them, mounts them, and serves them through the disk program."""

    def __init__(self, top, disk_program):
        call("unshare", CLONE_NEWNS)
        call("mount", None, b"/", None, MS_REC | MS_PRIVATE, None)
        self.top, self.disk_program = Path(top), disk_program
        self.devices = self.folder("devices")
        mount("devices", self.devices, "devtmpfs")  # the sandbox's /dev has neither loop devices nor FUSE
        for device in ("fuse", "loop-control"):
            os.close(os.open(self.devices / device, os.O_RDWR))

    def folder(self, name):
        path = self.top / name
        path.mkdir(exist_ok=True)
        return path

    def make_image(self, name, file_system, fill):
        """Makes an image of a file system with the files that fill(DIRECTORY) creates. Returns its path."""
        image = self.top / name
        image.unlink(missing_ok=True)
        with open(image, "wb") as file:
            file.truncate(file_system.size)
        subprocess.run([*file_system.command, image], check=True, stdout=subprocess.DEVNULL)
        with self.mounted(image, file_system.kind, self.folder("filling")) as place:
            fill(place)
        subprocess.run(["fallocate", "--dig-holes", image], check=True)
        return image

    @contextmanager
    def mounted(self, image, kind, place, options="", flags=0):
        with closing(Loop(self.devices, image, flags)) as loop:
            mount(loop.path, place, kind, options)
            try:
                yield place
            finally:
                unmount(place)

    @contextmanager
    def served(self, images, file_system, places, *mode):
        """Mounts copies of the images from the disk program, which gets `mode`. The images do not change."""
        served = self.folder("served")
        copies = [f"{image}.live" for image in images]
        for image, live in zip(images, copies):
            subprocess.run(["cp", "--sparse=always", image, live], check=True)
        fuse = os.open(self.devices / "fuse", os.O_RDWR)
        mount("disk", served, "fuse", f"fd={fuse},rootmode=40000,user_id=0,group_id=0")
        with ExitStack() as stack:
            stack.callback(unmount, served)
            stack.callback(end, start([self.disk_program, *mode, f"/dev/fd/{fuse}", *copies], pass_fds=[fuse]))
            os.close(fuse)
            for number, place in enumerate(places):
                stack.enter_context(self.mounted(served / str(number), file_system.kind, place, file_system.options,
                                                 LO_FLAGS_DIRECT_IO))
            yield


def read_log(log):
    """Yields each write in order as the disk's number, the offset and the bytes. A flush has no bytes."""
    data = memoryview(log)
    at = 0
    while at < len(data):
        disk, length, offset = WRITE_HEADER.unpack_from(data, at)
        at += WRITE_HEADER.size + length
        yield disk, offset, data[at - length:at]

"""Images, loop devices, mounts, and disks that log what is written to them.

Needs root. Makes a mount namespace of its own, and everything that is mounted or attached here ends with it.
"""

import ctypes
import errno
import fcntl
import os
import shutil
import signal
import struct
import subprocess
from contextlib import ExitStack, contextmanager
from pathlib import Path

LIBC = ctypes.CDLL(None, use_errno=True)
CLONE_NEWNS = 0x00020000
MS_REC, MS_PRIVATE = 1 << 14, 1 << 18
PR_SET_PDEATHSIG = 1
LOOP_CTL_GET_FREE, LOOP_CONFIGURE = 0x4C82, 0x4C0A
LOOP_CONFIG = struct.Struct("=II52xI184x64x")  # the kernel's loop_config: the file, and the flags in loop_info64
LO_FLAGS_AUTOCLEAR, LO_FLAGS_DIRECT_IO = 4, 16
BLKFLSBUF = 0x1261
WRITE_HEADER = struct.Struct("=IIQ")  # as in disk.cpp

# Small file systems that are mounted and copied quickly: size, command, mount options. With a commit each second, ext4
# writes back a lot on its own during a request and soon after it.
KINDS = {
    "ext4": (48 << 20, ["mkfs.ext4", "-q", "-b", "4096", "-N", "4096", "-J", "size=4",
                        "-E", "lazy_itable_init=0,lazy_journal_init=0,nodiscard"], "commit=1"),
    "xfs": (48 << 20, ["mkfs.xfs", "-q", "--unsupported", "-K", "-d", "agcount=1", "-l", "size=1368b"], ""),
}


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

    def make_image(self, name, kind, fill):
        """Makes an image of a file system with the files that fill(DIRECTORY) creates. Returns its path."""
        size, command, _ = KINDS[kind]
        image = self.top / name
        image.unlink(missing_ok=True)
        with open(image, "wb") as file:
            file.truncate(size)
        subprocess.run([*command, image], check=True, stdout=subprocess.DEVNULL)
        with self.mounted(image, kind, self.folder("filling")) as place:
            fill(place)
        subprocess.run(["fallocate", "--dig-holes", image], check=True)
        return image

    @contextmanager
    def mounted(self, image, kind, place, options="", flags=0):
        loop = Loop(self.devices, image, flags)
        try:
            mount(loop.path, place, kind, options)
            try:
                yield place
            finally:
                unmount(place)
        finally:
            loop.close()

    @contextmanager
    def logged(self, images, kind, places):
        """Mounts copies of the images from disks that log, and yields the log's path. The images do not change."""
        log, served = self.top / "log", self.folder("served")
        log.unlink(missing_ok=True)
        copies = [shutil.copy(image, f"{image}.live") for image in images]
        fuse = os.open(self.devices / "fuse", os.O_RDWR)
        mount("disk", served, "fuse", f"fd={fuse},rootmode=40000,user_id=0,group_id=0")
        disk = start([self.disk_program, log, f"/dev/fd/{fuse}", *copies], pass_fds=[fuse])
        os.close(fuse)
        try:
            with ExitStack() as mounts:
                for number, place in enumerate(places):
                    mounts.enter_context(
                        self.mounted(served / str(number), kind, place, KINDS[kind][2], LO_FLAGS_DIRECT_IO))
                yield log
        finally:
            end(disk)
            unmount(served)


def read_log(log):
    """Yields each write in order as the disk's number, the offset and the bytes. A flush has no bytes."""
    data = memoryview(log)
    at = 0
    while at < len(data):
        disk, length, offset = WRITE_HEADER.unpack_from(data, at)
        at += WRITE_HEADER.size + length
        yield disk, offset, data[at - length:at]

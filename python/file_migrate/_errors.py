"""What the methods of a Client raise."""

from __future__ import annotations

import enum
import errno
import os


class Status(enum.IntEnum):
    """Why there is no answer. The numbers are those of the C interface."""

    INVALID_REQUEST = 1  #: the daemon would refuse or misread the request; nothing was sent
    CONNECTION_CLOSED = 2  #: the daemon closed the connection before the reply was complete
    TIMED_OUT = 3  #: a limit passed; the daemon may still carry out a request that was sent
    MALFORMED_REPLY = 4
    SYSTEM_ERROR = 5  #: a system call failed with the exception's errno
    NULL_ARGUMENT = 6
    NO_MEMORY = 7
    UNTRUSTED_PEER = 8  #: another user than the daemon's listens at the socket; nothing was sent
    CANCELLED = 9
    BUSY = 10


ERRNO_OF_STATUS = {
    Status.INVALID_REQUEST: errno.EINVAL,
    Status.CONNECTION_CLOSED: errno.ECONNRESET,
    Status.TIMED_OUT: errno.ETIMEDOUT,
    Status.MALFORMED_REPLY: errno.EBADMSG,
    Status.NULL_ARGUMENT: errno.EINVAL,
    Status.NO_MEMORY: errno.ENOMEM,
    Status.UNTRUSTED_PEER: errno.EACCES,
    Status.CANCELLED: errno.ECANCELED,
    Status.BUSY: errno.EINPROGRESS,
}


class FileMigrateError(OSError):
    """A command failed.

    errno is the daemon's last error number. It is 0 if the daemon gave none. filename and filename2 are the paths of
    the request, and command is its name.
    """

    def __init__(self, number: int, message: str, command: str, src: str | None = None, dst: str | None = None):
        super().__init__(number, message, src, None, dst)
        self.command = command

    def __reduce__(self) -> tuple[object, ...]:
        return type(self), (self.errno, self.strerror, self.command, self.filename, self.filename2)

    def __str__(self) -> str:
        paths = " -> ".join(repr(path) for path in (self.filename, self.filename2) if path is not None)
        return f"{self.command} {paths}: {self.strerror}" if paths else f"{self.command}: {self.strerror}"


class SourceMissingError(FileMigrateError, FileNotFoundError):
    """The source of a move or copy does not exist.

    If a move is repeated after a crash, this error can mean that the first one finished.
    """


class NoAnswerError(FileMigrateError):
    """The daemon gave no answer. status says why."""

    def __init__(self, number: int, message: str, command: str, src: str | None, dst: str | None, status: Status):
        super().__init__(number, message, command, src, dst)
        self.status = status

    def __reduce__(self) -> tuple[object, ...]:
        return type(self), (self.errno, self.strerror, self.command, self.filename, self.filename2, self.status)


def message_for(number: int) -> str:
    """The text of an error number of the daemon."""
    return os.strerror(number) if number != 0 else "the daemon gave no error number"

"""The client: one method for each of the daemon's commands."""

from __future__ import annotations

import ctypes
import errno
import os
from collections.abc import Callable
from types import TracebackType
from typing import NamedTuple, NoReturn, Union

from file_migrate._errors import (
    ERRNO_OF_STATUS,
    FileMigrateError,
    NoAnswerError,
    SourceMissingError,
    Status,
    message_for,
)
from file_migrate._library import LIBRARY, EntryTaker, Options, Reply, Request

Path = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]
Owner = Union[str, int]

_PATH_ONLY, _RECURSIVE = 1, 2
_SOURCE_MISSING = -2
_COMMANDS = (
    "is_exist is_dir list_dir prepare_dir move_sub move_all copy_sub copy_all remove restorecon restorecon_from_parent "
    "try_remove mkdir chown chmod existed_path used_space max_size copy_comb"
).split()  # in the order of their numbers


class Entry(NamedTuple):
    """An entry of a directory. is_directory is also False if the file system does not store types."""

    name: str
    is_directory: bool


class Size(NamedTuple):
    """A size in KB. is_whole says whether everything below the path is included."""

    kilobytes: int
    is_whole: bool


class Growth:
    """How far a transfer has come; Client.growth() makes it.

    It has a connection of its own, so another thread can use it while the transfer's client waits. It is used by one
    thread at a time.
    """

    def __init__(self, handle: int):
        self._handle = handle
        self.total: int = LIBRARY.file_migrate_growth_total(handle)  # KB

    def __del__(self) -> None:
        LIBRARY.file_migrate_growth_free(self._handle)

    def now(self) -> int | None:
        """The KB that have arrived; None if the daemon could not tell. Do not call it again then."""
        kilobytes: int = LIBRARY.file_migrate_growth_now(self._handle)
        return None if kilobytes < 0 else kilobytes


class Client:
    """A connection to the daemon, made by the first request and closed by close() or at the end of a with block.

    Limits are in seconds; None means no limit. reply_limit is the time from sending a request to the end of its reply;
    a move across file systems can take hours. daemon_user is the user id that must listen at the socket.
    """

    def __init__(
        self,
        socket_path: Path | None = None,
        *,
        connect_limit: float | None = 5.0,
        reply_limit: float | None = None,
        daemon_user: int = 0,
    ):
        self._handle: int | None = None
        path = None if socket_path is None else os.fsencode(socket_path)
        self._options = Options(path, _milliseconds(connect_limit), _milliseconds(reply_limit), daemon_user)
        self._handle = LIBRARY.file_migrate_client_new(ctypes.byref(self._options))
        if self._handle is None:
            raise MemoryError
        # A wait then ends when a signal arrives, so that Python can call its handler.
        LIBRARY.file_migrate_set_interruptible(self._handle, 1)

    def __enter__(self) -> Client:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    def __del__(self) -> None:
        self.close()

    def close(self) -> None:
        """Closes the connection. The client cannot be used again."""
        handle, self._handle = self._handle, None
        if handle is not None:
            LIBRARY.file_migrate_client_free(handle)

    def connect(self) -> None:
        """Connects now, to find out whether the daemon is available."""
        while True:
            reply = LIBRARY.file_migrate_connect(self._open_handle())
            if not _is_interrupted(reply):
                break
        if reply.status != 0:
            _raise_no_answer(reply, "connect", None, None)

    # Questions. They change nothing.

    def is_exist(self, path: Path) -> bool:
        """Whether the path exists. Follows links: False for a dangling one."""
        return self._ask_yes_or_no("is_exist", path)

    def is_dir(self, path: Path) -> bool:
        """Whether the path is a directory; False for a link to one."""
        return self._ask_yes_or_no("is_dir", path)

    def list_dir(self, path: Path) -> list[Entry]:
        """The entries of a directory, in its order."""
        entries: list[Entry] = []
        self.list_each(path, entries.append)
        return entries

    def list_each(self, path: Path, take: Callable[[Entry], object]) -> None:
        """Calls take with each entry of a directory as it arrives, and keeps none of them.

        An exception of take ends the listing. take must not use this client.
        """
        self._change("list_dir", path, take=take)

    def existed_path(self, path: Path) -> str:
        """The path itself, or the nearest ancestor that exists."""
        found: list[Entry] = []
        self._change("existed_path", path, take=found.append)
        return found[0].name

    def used_space(self, path: Path) -> Size:
        """The space that the whole tree uses. After errors the figure is incomplete, and is_whole is False."""
        reply = self._run("used_space", path)
        return Size(reply.result, reply.result >= 0 and reply.err_code == 0)

    def max_size(self, path: Path) -> Size:
        """The size of the largest non-directory in the tree."""
        reply = self._run("max_size", path)
        if reply.result < 0:
            _raise_failure(reply, "max_size", path)
        return Size(reply.result, True)

    # Commands that change something.

    def mkdir(self, path: Path, *, recursive: bool = False) -> None:
        """Creates a directory with mode 0700. With recursive, creates missing ancestors too.

        Does not change an existing one.
        """
        self._change("mkdir", path, recursive=recursive)

    def prepare_dir(self, path: Path, user: Owner, group: Owner, mode: int, *, recursive: bool = False) -> None:
        """Creates a directory with an owner and a mode. Keeps an existing one as it is."""
        self._change("prepare_dir", path, user=user, group=group, mode=mode, recursive=recursive)

    def move_sub(self, src: Path, dst: Path) -> None:
        """Moves each child of src into the directory dst."""
        self._change("move_sub", src, dst)

    def move_all(self, src: Path, dst: Path) -> None:
        """Moves src to dst, which is the new object, not the directory that will contain it."""
        self._change("move_all", src, dst)

    def copy_sub(self, src: Path, dst: Path) -> None:
        """Copies each child of src into the directory dst."""
        self._change("copy_sub", src, dst)

    def copy_all(self, src: Path, dst: Path) -> None:
        """Copies src to dst, which is the new object. A file goes into dst if that is a directory."""
        self._change("copy_all", src, dst)

    def copy_comb(self, src: Path, dst: Path, user: Owner, group: Owner, mode: int) -> None:
        """Copies files and directories with one owner and mode, and removes src, even if the copy failed."""
        self._change("copy_comb", src, dst, user=user, group=group, mode=mode)

    def growth(self, command: str, src: Path, dst: Path) -> Growth | None:
        """Measures a transfer, such as "move_all", that is about to begin, to show its progress.

        None if measuring is useless, since a rename takes no time, or could fail. The paths must be absolute.
        """
        self._open_handle()
        number = _COMMANDS.index(command)
        handle = LIBRARY.file_migrate_growth_new(
            ctypes.byref(self._options), number, _encode_path(src), _encode_path(dst)
        )
        return None if handle is None else Growth(handle)

    def remove(self, path: Path) -> None:
        """Removes a tree."""
        self._change("remove", path)

    def try_remove(self, path: Path) -> None:
        """Removes a tree as far as possible: it goes on after failures."""
        self._change("try_remove", path)

    def restorecon(self, path: Path, *, recursive: bool = False) -> None:
        """Restores the security label."""
        self._change("restorecon", path, recursive=recursive)

    def restorecon_from_parent(self, path: Path) -> None:
        """Gives the path the label that its parent's rules give it."""
        self._change("restorecon_from_parent", path)

    def chown(self, path: Path, user: Owner, group: Owner, *, recursive: bool = False) -> None:
        """Changes the owner. Links are not followed."""
        self._change("chown", path, user=user, group=group, recursive=recursive)

    def chmod(self, path: Path, mode: int, *, recursive: bool = False) -> None:
        """Changes the mode. Links are not followed."""
        self._change("chmod", path, mode=mode, recursive=recursive)

    def _ask_yes_or_no(self, command: str, path: Path) -> bool:
        reply = self._run(command, path)
        if reply.result < 0:
            _raise_failure(reply, command, path)
        return bool(reply.result == 1)

    def _change(
        self,
        command: str,
        src: Path,
        dst: Path | None = None,
        *,
        user: Owner | None = None,
        group: Owner | None = None,
        mode: int | None = None,
        recursive: bool = False,
        take: Callable[[Entry], object] | None = None,
    ) -> None:
        """Runs a command whose result is 0 for success."""
        reply = self._run(command, src, dst, user, group, mode, recursive, take)
        if reply.result != 0:
            _raise_failure(reply, command, src, dst, user, group)

    def _run(
        self,
        command: str,
        src: Path,
        dst: Path | None = None,
        user: Owner | None = None,
        group: Owner | None = None,
        mode: int | None = None,
        recursive: bool = False,
        take: Callable[[Entry], object] | None = None,
    ) -> Reply:
        """Sends a request and waits for its reply."""
        error: list[BaseException] = []

        # An exception cannot pass through the library: it is kept, and raised afterwards.
        def pass_on(_context: int | None, name: bytes, is_directory: int) -> int:
            try:
                assert take is not None
                take(Entry(os.fsdecode(name), bool(is_directory)))
            except BaseException as caught:  # KeyboardInterrupt too
                error.append(caught)
                return 1
            return 0

        request = Request(
            ctypes.sizeof(Request),
            _COMMANDS.index(command),
            _encode_path(src),
            None if dst is None else _encode_path(dst),
            _encode_owner(user),
            _encode_owner(group),
            None if mode is None else f"{mode:04o}".encode(),
            _RECURSIVE if recursive else _PATH_ONLY,
            EntryTaker(0) if take is None else EntryTaker(pass_on),
            None,
        )
        reply = self._exchange(request)
        if error:
            raise error[0]
        if reply.status != 0:
            _raise_no_answer(reply, command, src, dst)
        return reply

    def _exchange(self, request: Request) -> Reply:
        handle = self._open_handle()
        try:
            reply: Reply = LIBRARY.file_migrate_begin(handle, ctypes.byref(request))
            if reply.status != 0:
                return reply
            while True:
                reply = LIBRARY.file_migrate_finish(handle)
                if not _is_interrupted(reply):
                    return reply
        except BaseException:  # from a signal handler
            LIBRARY.file_migrate_cancel(handle)
            raise

    def _open_handle(self) -> int:
        if self._handle is None:
            raise ValueError("the client is closed")
        return self._handle


def _milliseconds(limit: float | None) -> int:
    if limit is None:
        return 0
    if limit <= 0:
        raise ValueError("a limit is a positive number of seconds, or None")
    return max(1, min(round(limit * 1000), 2**62))


def _encode_path(path: Path) -> bytes:
    encoded = os.fsencode(path)
    if b"\0" in encoded:
        raise ValueError("embedded null byte")  # C would see a shorter path
    return encoded


def _encode_owner(owner: Owner | None) -> bytes | None:
    return None if owner is None else _encode_path(str(owner))


def _is_interrupted(reply: Reply) -> bool:
    return bool(reply.status == Status.SYSTEM_ERROR and reply.system_error == errno.EINTR)


def _raise_no_answer(reply: Reply, command: str, src: Path | None, dst: Path | None) -> NoReturn:
    status = Status(reply.status)
    number = ERRNO_OF_STATUS.get(status, reply.system_error)
    message = os.fsdecode(reply.message)
    raise NoAnswerError(number, message, command, _decode_path(src), _decode_path(dst), status)


def _raise_failure(
    reply: Reply,
    command: str,
    src: Path,
    dst: Path | None = None,
    user: Owner | None = None,
    group: Owner | None = None,
) -> NoReturn:
    number: int = reply.err_code
    kind, message = FileMigrateError, message_for(number)
    if reply.result == _SOURCE_MISSING:
        kind, number, message = SourceMissingError, errno.ENOENT, "the source does not exist"
    elif number == errno.ENOENT:
        # The daemon has one error number for a missing path and a missing owner.
        unknown = LIBRARY.file_migrate_unknown_owner(_encode_owner(user), _encode_owner(group))
        message = (message, f"no such user: {user}", f"no such group: {group}")[unknown]
    raise kind(number, message, command, _decode_path(src), _decode_path(dst))


def _decode_path(path: Path | None) -> str | None:
    return None if path is None else os.fsdecode(path)

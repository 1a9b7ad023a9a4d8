"""The C interface of the client library, as ctypes sees it. file_migrate_client.h describes it."""

from __future__ import annotations

import ctypes
from ctypes import CFUNCTYPE, POINTER, c_char, c_char_p, c_int, c_int32, c_int64, c_size_t, c_uint32, c_void_p
from typing import Any


class Options(ctypes.Structure):
    _fields_ = [
        ("socket_path", c_char_p),
        ("connect_limit_ms", c_int64),
        ("reply_limit_ms", c_int64),
        ("daemon_user", c_uint32),
    ]


class Reply(ctypes.Structure):
    _fields_ = [
        ("status", c_int),
        ("result", c_int32),
        ("err_code", c_int32),
        ("system_error", c_int),
        ("message", c_char * 256),
    ]


EntryTaker = CFUNCTYPE(c_int, c_void_p, c_char_p, c_int)


class Request(ctypes.Structure):
    _fields_ = [
        ("size", c_size_t),
        ("command", c_int),
        ("src", c_char_p),
        ("dst", c_char_p),
        ("user", c_char_p),
        ("group", c_char_p),
        ("perm", c_char_p),
        ("recursion", c_int),
        ("taker", EntryTaker),
        ("context", c_void_p),
    ]


def _load() -> ctypes.CDLL:
    """Loads the library, and says what each function takes and returns."""
    library = ctypes.CDLL("libfile_migrate_client.so.0")
    handle = c_void_p
    functions: dict[str, tuple[Any, list[Any]]] = {
        "client_version": (c_uint32, []),
        "client_new": (handle, [POINTER(Options)]),
        "client_free": (None, [handle]),
        "set_interruptible": (None, [handle, c_int]),
        "connect": (Reply, [handle]),
        "begin": (Reply, [handle, POINTER(Request)]),
        "finish": (Reply, [handle]),
        "cancel": (None, [handle]),
        "unknown_owner": (c_int, [c_char_p, c_char_p]),
        "growth_new": (handle, [POINTER(Options), c_int, c_char_p, c_char_p]),
        "growth_free": (None, [handle]),
        "growth_total": (c_int64, [handle]),
        "growth_now": (c_int64, [handle]),
    }
    for name, (result, arguments) in functions.items():
        function = library[f"file_migrate_{name}"]
        function.restype = result
        function.argtypes = arguments
        setattr(library, f"file_migrate_{name}", function)
    return library


LIBRARY = _load()


def library_version() -> str:
    """The version of the client library, such as "0.2.0"."""
    number: int = LIBRARY.file_migrate_client_version()
    return f"{number // 1_000_000}.{number // 1000 % 1000}.{number % 1000}"

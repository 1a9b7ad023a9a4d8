"""Ask the file migration daemon for file-system work.

A Client has one method for each of the daemon's commands. A method returns when
the command has succeeded and raises FileMigrateError when it has not:

    import file_migrate

    with file_migrate.Client(reply_limit=7200) as client:
        if client.is_exist("/data/old"):
            client.move_all("/data/old", "/data/new")

FileMigrateError is an OSError. It carries the error number, the paths and the
command that failed. Its subclass NoAnswerError means that the daemon gave no
answer, so the request may have been carried out or not.

The daemon resolves paths, so use absolute ones. Users and groups are names or
numbers, modes are numbers such as 0o755. A client is used by one thread at a
time. Signals are handled while a method waits, as in the standard library.

A move to another file system and copy_comb LOSE SYMBOLIC LINKS AND SPECIAL
FILES: they remove them with the source and still succeed.
"""

from file_migrate._client import Client, Entry, Growth, Size
from file_migrate._errors import FileMigrateError, NoAnswerError, SourceMissingError, Status
from file_migrate._library import library_version

__all__ = [
    "Client",
    "Entry",
    "FileMigrateError",
    "Growth",
    "NoAnswerError",
    "Size",
    "SourceMissingError",
    "Status",
    "library_version",
]

"""Gives each directory in DIRECTORY to the user it is named after, and says how much it holds."""

import sys

import file_migrate


def main(directory: str) -> int:
    failures = 0
    with file_migrate.Client(reply_limit=600) as client:
        for name, is_directory in client.list_dir(directory):
            path = f"{directory}/{name}"
            try:
                if is_directory:
                    client.chown(path, name, name, recursive=True)
                    client.chmod(path, 0o750)
                    print(f"{name}: {client.used_space(path).kilobytes} KB")
            except file_migrate.NoAnswerError:
                raise  # the daemon is not there, or did not answer in time
            except file_migrate.FileMigrateError as error:
                print(error)
                failures += 1
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))

"""The Python module against the real daemon. Arguments: the daemon's program and the source folder."""

import errno
import os
import pickle
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

import file_migrate

DAEMON, SOURCE = sys.argv.pop(), sys.argv.pop()
SOCKET = "/dev/unix/socket/file_migrate_orvane"


class ModuleTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        if os.path.exists(SOCKET):
            os.unlink(SOCKET)
        cls.daemon = subprocess.Popen([DAEMON], stderr=subprocess.DEVNULL)
        cls.addClassCleanup(cls.daemon.wait)
        cls.addClassCleanup(cls.daemon.kill)
        with socket.socket(socket.AF_UNIX) as probe:
            while probe.connect_ex(SOCKET) != 0 and cls.daemon.poll() is None:
                time.sleep(0.01)

    def setUp(self):
        self.tree = tempfile.mkdtemp(dir="/data")
        self.addCleanup(shutil.rmtree, self.tree)
        self.client = file_migrate.Client(reply_limit=60)
        self.addCleanup(self.client.close)

    def path(self, name):
        return os.path.join(self.tree, name)

    def test_every_command_does_its_work(self):
        client, path = self.client, self.path
        client.mkdir(path("a/b"), recursive=True)
        client.prepare_dir(path("p"), "nobody", 7, 0o2750)
        prepared = os.stat(path("p"))
        self.assertEqual((prepared.st_mode, prepared.st_uid, prepared.st_gid), (0o42750, 65534, 7))
        with open(path("a/f\udcff:"), "wb") as file:  # a name that is no text
            file.write(b"x" * 5000)
        self.assertEqual(sorted(client.list_dir(path("a"))), [("b", True), ("f\udcff:", False)])
        self.assertEqual(client.existed_path(path("a/x/y")), path("a"))
        self.assertEqual((client.is_exist(path("a")), client.is_dir(path("a/f\udcff:"))), (True, False))
        self.assertEqual(client.max_size(path("a")).kilobytes, 8)
        self.assertTrue(client.used_space(os.fsencode(path("a"))).is_whole)
        client.copy_all(path("a"), path("c"))
        client.copy_sub(path("a"), path("p"))
        client.move_all(path("a"), path("m"))
        client.mkdir(path("n"))
        client.move_sub(path("m"), path("n"))
        client.chown(path("n"), 5, "daemon", recursive=True)
        client.chmod(path("n"), 0o50, recursive=False)
        self.assertEqual((os.stat(path("n")).st_mode, os.stat(path("n/b")).st_uid), (0o40050, 5))
        client.mkdir(path("k"))
        client.copy_comb(path("c"), path("k"), 6, 6, 0o700)
        self.assertEqual((os.stat(path("k/b")).st_uid, os.path.exists(path("c"))), (6, False))
        client.remove(path("p"))
        client.try_remove(path("m"))
        self.assertEqual(sorted(os.listdir(self.tree)), ["k", "n"])

    def test_growth_measures_a_copy_and_no_rename(self):
        client, src, dst = self.client, self.path("src"), self.path("dst")
        os.mkdir(src)
        with open(src + "/file", "wb") as file:
            file.write(b"x" * 100_000)
        growth = client.growth("copy_all", src, dst)
        self.assertEqual((growth.total, growth.now()), (104, 0))
        client.copy_all(src, dst)
        self.assertEqual(growth.now(), 104)
        client.remove(dst)
        for command, to in (("move_all", dst), ("remove", dst), ("copy_all", src + "/in"), ("copy_all", "relative")):
            self.assertIsNone(client.growth(command, src, to), command + to)

    def test_a_failure_says_what_failed(self):
        missing = self.path("missing")
        rows = [
            (lambda: self.client.move_all(missing, self.tree + "/d"), file_migrate.SourceMissingError, errno.ENOENT,
             f"move_all '{missing}' -> '{self.tree}/d': the source does not exist"),
            (lambda: self.client.chown(missing, 0, 0), file_migrate.FileMigrateError, errno.ENOENT,
             f"chown '{missing}': No such file or directory"),
            (lambda: self.client.chown(self.tree, "no_such_user", "root"), file_migrate.FileMigrateError, errno.ENOENT,
             f"chown '{self.tree}': no such user: no_such_user"),
            (lambda: self.client.chown(self.tree, 0, 2**32), file_migrate.NoAnswerError, errno.EINVAL,
             f"chown '{self.tree}': group is larger than 4294967294: the request is not valid; it was not sent"),
            (lambda: self.client.list_dir(missing), file_migrate.FileMigrateError, errno.ENOENT,
             f"list_dir '{missing}': No such file or directory"),
            (lambda: file_migrate.Client("/nowhere").connect(), file_migrate.NoAnswerError, errno.ENOENT,
             "connect: connecting to /nowhere: No such file or directory"),
        ]  # fmt: skip
        for call, kind, number, text in rows:
            with self.subTest(text), self.assertRaises(kind) as caught:
                call()
            self.assertEqual((type(caught.exception), caught.exception.errno), (kind, number))
            self.assertEqual(str(caught.exception), text)
            self.assertEqual(str(pickle.loads(pickle.dumps(caught.exception))), text)

    def test_what_cannot_be_sent_is_refused(self):
        for call in (lambda: self.client.is_dir("a\0b"), lambda: file_migrate.Client(reply_limit=0)):
            self.assertRaises(ValueError, call)
        self.client.close()
        self.assertRaises(ValueError, self.client.is_dir, "/")

    def test_a_callback_can_end_a_listing(self):
        def refuse(entry):
            raise KeyError(entry.name)

        os.mkdir(self.path("sub"))
        self.assertRaisesRegex(KeyError, "sub", self.client.list_each, self.tree, refuse)
        self.assertTrue(self.client.is_dir(self.tree), "the client is of use again")

    def test_a_signal_handler_runs_while_a_method_waits(self):
        with socket.socket(socket.AF_UNIX) as silent:  # nobody answers
            silent.bind(self.path("socket"))
            silent.listen()
            calls = []

            def handle(*_):
                calls.append(1)
                if len(calls) == 3:
                    raise InterruptedError("enough")

            signal.signal(signal.SIGALRM, handle)
            signal.setitimer(signal.ITIMER_REAL, 0.05, 0.05)
            self.addCleanup(signal.setitimer, signal.ITIMER_REAL, 0)
            with file_migrate.Client(self.path("socket")) as client:
                self.assertRaisesRegex(InterruptedError, "enough", client.is_dir, "/")

    def test_the_documented_example_works(self):
        example = SOURCE + "/docs/examples/client/give_apps.py"
        with open(example) as code, open(SOURCE + "/docs/client.md") as page:
            self.assertTrue(code.read() + "```\n" in page.read(), "the page's copy differs")
        os.makedirs(self.path("daemon/sub"))
        run = [sys.executable, example, self.tree]
        self.assertEqual(subprocess.check_output(run, text=True), "daemon: 8 KB\n")
        self.assertEqual(os.stat(self.path("daemon/sub")).st_uid, 1)
        os.mkdir(self.path("no_such_user"))
        failed = subprocess.run(run, capture_output=True, text=True, check=False)
        self.assertIn(f"chown '{self.path('no_such_user')}': no such user: no_such_user\n", failed.stdout)
        self.assertEqual((failed.returncode, failed.stderr), (1, ""))


if __name__ == "__main__":
    unittest.main(verbosity=2)

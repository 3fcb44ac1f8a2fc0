"""Failing system calls, injected by strace into the real program."""

import shutil
import subprocess
import unittest

from qrx_tool import ENVIRONMENT, MIB, QRX, ToolTest, is_sanitized, random_bytes

CONTENT = random_bytes(2 * MIB)
NO_NAMELESS_FILES = "access,?faccessat,?faccessat2:error=ENOENT"
NO_EXCLUSIVE_RENAME = "?renameat2:error=EINVAL"


class Faults(ToolTest):
    @classmethod
    def setUpClass(cls):
        trace = ["strace", "-f", "-o", "/dev/null", "true"]
        if shutil.which("strace") is None or subprocess.run(trace, check=False,
                                                            capture_output=True).returncode != 0:
            raise unittest.SkipTest("strace is missing or may not trace")
        cls.environment = dict(ENVIRONMENT)
        if is_sanitized():  # leaks can't be searched for under strace
            cls.environment["ASAN_OPTIONS"] = "detect_leaks=0"

    def setUp(self):
        super().setUp()
        self.put("f", CONTENT)

    def inject(self, *faults, words, status, only=None, stdin=b""):
        """Runs qrx with failing system calls and checks its exit status."""
        names = ",".join(fault.split(":")[0] for fault in faults)
        command = ["-f", "-qq", "-o", "/dev/null", "-e", f"trace={names}"]
        for fault in faults:
            command += ["-e", f"inject={fault}"]
        if only is not None:
            command += ["-P", str(self.dir / only)]
        done = subprocess.run(["strace", *command, QRX, *words], cwd=self.dir, env=self.environment,
                              input=stdin, capture_output=True, check=False, timeout=120)
        self.assertEqual(done.returncode, status, (faults, done.stderr))
        return done.stderr

    def check_failure(self, *faults, message, words=("-b1", "--rm", "f"), **options):
        """Expects a run to fail with one message and to leave only the source."""
        errors = self.inject(*faults, words=words, status=1, **options)
        self.assertEqual(errors.count(b"\n"), 1, errors)
        self.assertIn(message, errors)
        self.assertEqual(self.files(), ["f"])
        self.assertEqual(self.get("f"), CONTENT)

    def check_success(self, *faults, **options):
        errors = self.inject(*faults, words=["-b1", "f"], status=0, **options)
        self.assertEqual(errors, b"")
        self.assertEqual(self.files(), ["f", "f.qrx"])
        self.assertEqual(self.original(self.get("f.qrx")), CONTENT)
        (self.dir / "f.qrx").unlink()

    def test_failing_writes(self):
        for count in (1, 2, 3):
            self.check_failure(f"pwrite64:error=ENOSPC:when={count}",
                               message=b"f.qrx: No space left on device")
        self.check_failure("pwrite64:error=EIO:when=2+", message=b"f.qrx: Input/output error")

    def test_failing_flush(self):
        for error, text in (("EIO", b"Input/output error"), ("ENOSPC", b"No space left")):
            self.check_failure(f"fsync:error={error}:when=1", message=text)
        self.check_success("fsync:error=EINVAL")

    def test_failing_reads(self):
        for count in (1, 2):
            self.check_failure(f"read:error=EIO:when={count}", only="f",
                               message=b"f: Input/output error")

    def test_failing_verification(self):
        self.check_failure("pread64:error=EIO:when=4+", message=b"Input/output error")

    def test_interrupted_calls_are_repeated(self):
        self.check_success("pwrite64:error=EINTR:when=1+2")
        self.check_success("read:error=EINTR:when=1", only="f")

    def test_failing_names(self):
        self.check_failure("linkat:error=EACCES", message=b"f.qrx: Permission denied")
        self.check_failure(NO_NAMELESS_FILES, "?renameat2:error=EROFS", message=b"Read-only")

    def test_traits_that_a_file_system_does_not_have(self):
        self.check_success("fchmod:error=EPERM")
        self.check_success("?utimensat,?futimesat:error=EPERM")
        self.check_success("fchown:error=EPERM")
        self.inject("fchmod:error=EPERM", words=["-o", "out"], status=0, stdin=b"x")

    def test_temporary_names(self):
        self.check_success(NO_NAMELESS_FILES)
        self.check_success(NO_NAMELESS_FILES, NO_EXCLUSIVE_RENAME)
        self.check_success(NO_NAMELESS_FILES, NO_EXCLUSIVE_RENAME, "?link,?linkat:error=EPERM")
        self.check_failure(NO_NAMELESS_FILES, NO_EXCLUSIVE_RENAME, "?link,?linkat:error=EIO",
                           message=b"Input/output error")

    def test_replacing_with_temporary_names(self):
        self.put("f.qrx", b"old")
        self.inject(NO_NAMELESS_FILES, words=["-f", "-b1", "f"], status=0)
        self.assertEqual(self.original(self.get("f.qrx")), CONTENT)
        self.assertEqual(self.files(), ["f", "f.qrx"])

    def test_source_that_cannot_be_removed(self):
        errors = self.inject("?unlink,?unlinkat:error=EACCES", words=["--rm", "f"], status=1)
        self.assertEqual(errors, b"qrx: f: not removed: Permission denied\n")
        self.assertEqual(self.original(self.get("f.qrx")), self.get("f"))

    def test_threads_that_cannot_start(self):
        self.check_failure("?clone,?clone3:error=EAGAIN", words=("-b1", "-T2", "f"),
                           message=b"a thread can't be started")

    def test_decompression(self):
        self.qrx("-b1", "--rm", "f")
        for fault in ("pwrite64:error=ENOSPC:when=2", "fsync:error=EIO:when=1",
                      "linkat:error=EACCES"):
            self.inject(fault, words=["-d", "--rm", "f.qrx"], status=1)
            self.assertEqual(self.files(), ["f.qrx"])

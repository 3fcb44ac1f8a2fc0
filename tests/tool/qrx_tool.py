"""Runs qrx for the tests: programs, temporary directories and sample data.

The environment variable QRX_PROGRAM is the path of qrx; unqrx and qrxcat are beside it.
QUARNEX_PROGRAM is the path of quarnex.  QRX_EMULATOR runs programs for Windows; it is not set for
those of this machine.
"""

import array
import fcntl
import os
import pathlib
import random
import shutil
import subprocess
import termios
import time
import unittest

from temp_dir import temp_dir

QRX = os.path.abspath(os.environ.get("QRX_PROGRAM", "build/release/qrx"))
UNQRX = os.path.join(os.path.dirname(QRX), "unqrx" + os.path.splitext(QRX)[1])
QRXCAT = os.path.join(os.path.dirname(QRX), "qrxcat" + os.path.splitext(QRX)[1])
EMULATOR = [os.environ["QRX_EMULATOR"]] if "QRX_EMULATOR" in os.environ else []
QUARNEX = os.path.abspath(os.environ.get("QUARNEX_PROGRAM", "build/release/quarnex"))
MIB = 1 << 20

# The environment of all runs: system messages in English; qrx, unqrx and qrxcat in PATH.
ENVIRONMENT = dict(os.environ, LC_ALL="C.UTF-8",
                   PATH=os.path.dirname(QRX) + os.pathsep + os.environ.get("PATH", ""))


def run(*args, stdin=None, cwd=None, program=QRX, **options):
    """Runs a program, qrx by default, and returns the CompletedProcess with output in bytes.

    `stdin` is what the program reads: bytes, or a file; None for an empty input.
    """
    if stdin is None or isinstance(stdin, (bytes, bytearray)):
        options["input"] = stdin or b""
    else:
        options["stdin"] = stdin
    for stream in ("stdout", "stderr"):
        options.setdefault(stream, subprocess.PIPE)
    options.setdefault("env", ENVIRONMENT)
    options.setdefault("timeout", 120)
    done = subprocess.run([*emulator(program), program, *args], cwd=cwd, **options)
    if EMULATOR and done.stderr is not None:
        done.stderr = done.stderr.replace(b"\r\n", b"\n")
    return done


def emulator(program):
    """Returns the start of a command that runs a program."""
    return EMULATOR if program in (QRX, UNQRX, QRXCAT, QUARNEX) else []


def posix_only(reason):
    """Marks a test that can't run on Windows, and says why."""
    return unittest.skipIf(EMULATOR, "not on Windows: " + reason)


def is_sanitized():
    """True if the program was built with a sanitizer, which needs terabytes of address space."""
    with open(QRX, "rb") as program:
        content = program.read()
    return b"__asan_init" in content or b"__tsan_init" in content


def is_32_bit(program=QRX):
    """Whether a program, one for Linux, is a 32-bit program."""
    with open(program, "rb") as file:
        return file.read(5) == b"\x7fELF\x01"


WORDS = [word.encode() for word in
         """the of and to in is that it for as with on are be this by not or from have which one
         block file size record level method output input name line error byte value length state
         return const struct static void int while if else for break""".split()]


def text(size, seed=1):
    """Returns `size` bytes of lines of words, which compress to about a quarter."""
    source = random.Random(seed)
    parts = []
    total = 0
    while total < size:
        line = b" ".join(source.choices(WORDS, k=12)) + b" %d\n" % source.randrange(1000)
        parts.append(line)
        total += len(line)
    return b"".join(parts)[:size]


def long_text(size, seed=1):
    """Returns `size` bytes of text in which no two blocks are equal; faster than text()."""
    piece = text(min(size, 300_007), seed)  # an odd period
    return (piece * (size // max(len(piece), 1) + 1))[:size]


def random_bytes(size, seed=1):
    """Returns `size` bytes that can't be compressed."""
    return random.Random(seed).randbytes(size)


class ToolTest(unittest.TestCase):
    """A test with a fresh temporary directory, `self.dir`, in which the programs run."""

    def setUp(self):
        temporary = temp_dir("qrx-test-")
        self.addCleanup(temporary.cleanup)
        self.dir = pathlib.Path(temporary.name).resolve()

    def qrx(self, *args, stdin=b"", status=0, **options):
        """Runs qrx in self.dir and checks its exit status."""
        done = run(*args, stdin=stdin, cwd=options.pop("cwd", self.dir), **options)
        self.assertEqual(done.returncode, status, self.describe(args, done))
        return done

    def shell(self, command, status=0, stdin=b""):
        """Runs a command of bash in self.dir, with qrx in PATH, and checks its exit status."""
        if EMULATOR:
            self.skipTest("not on Windows: a shell doesn't find qrx.exe as qrx")
        done = run("-c", "set -o pipefail; " + command, stdin=stdin, cwd=self.dir,
                   program="/bin/bash")
        self.assertEqual(done.returncode, status, self.describe(command, done))
        return done

    @staticmethod
    def describe(command, done):
        return f"{command}\n{(done.stdout or b'')[-200:]}\n{done.stderr}"

    def put(self, name, content):
        """Creates a file below self.dir, and its directories; returns its path."""
        name = self.dir / os.fsdecode(name)
        name.parent.mkdir(parents=True, exist_ok=True)
        name.write_bytes(content)
        return name

    def get(self, name):
        """Returns the content of a file below self.dir."""
        return (self.dir / os.fsdecode(name)).read_bytes()

    def files(self):
        """Returns the sorted names of all files in self.dir and below, hidden ones too."""
        return sorted(str(found.relative_to(self.dir)) for found in self.dir.rglob("*")
                      if not found.is_dir() or found.is_symlink())

    def make_tree(self, files):
        """Creates files from a dictionary of names and contents."""
        for name, content in files.items():
            self.put(name, content)

    def compressed(self, content, *args):
        """Returns `content` compressed by qrx."""
        return self.qrx("-c", "-q", *args, stdin=content).stdout

    def original(self, content):
        """Returns `content` decompressed by qrx -d."""
        return self.qrx("-dc", stdin=content).stdout

    def start(self, *args, **options):
        """Starts qrx in self.dir without waiting for it; it is killed at the end of the test."""
        options.setdefault("cwd", self.dir)
        for stream in ("stdin", "stdout", "stderr"):
            options.setdefault(stream, subprocess.PIPE)
        program = options.pop("program", QRX)
        process = subprocess.Popen([*emulator(program), program, *args], env=ENVIRONMENT, **options)
        self.addCleanup(stop, process)
        return process

    def unprivileged(self):
        """Returns options of subprocess that give up root's rights, which override file modes."""
        if os.geteuid() != 0:
            return {}
        os.chmod(self.dir, 0o777)
        options = {"user": 65534, "group": 65534, "extra_groups": []}
        try:
            subprocess.run([QRX, "-V"], cwd="/", capture_output=True, check=True, **options)
        except (OSError, subprocess.CalledProcessError) as error:
            self.skipTest(f"other users can't run {QRX}: {error}")
        return options

    def nameless_files_refused(self):
        """Returns the start of a command that runs a program without a list of open files in
        /proc, so that outputs need a temporary name from the start."""
        hide = 'mount -t tmpfs none /proc/$$/fd && exec "$@"'
        flags = "-m" if os.geteuid() == 0 else "-Urm"
        command = ["unshare", flags, "/bin/sh", "-c", hide, "sh"]
        if shutil.which("unshare") is None or subprocess.run([*command, "true"],
                                                             capture_output=True).returncode != 0:
            self.skipTest("no rights to hide /proc from the program")
        return command

    def small_disk(self, kib):
        """Mounts a file system of `kib` KiB as self.dir / "disk"."""
        disk = self.dir / "disk"
        disk.mkdir()
        mount = ["mount", "-t", "tmpfs", "-o", f"size={kib}k", "none", str(disk)]
        if os.geteuid() != 0 or subprocess.run(mount, capture_output=True).returncode != 0:
            self.skipTest("no rights to mount a small file system")
        self.addCleanup(subprocess.run, ["umount", str(disk)], check=True)
        return disk


def stop(process):
    """Ends a process that a test has started."""
    if process.poll() is None:
        process.kill()
    for stream in (process.stdin, process.stdout, process.stderr):
        if stream is not None and not stream.closed:
            try:
                stream.close()
            except BrokenPipeError:
                pass
    process.wait()


def wait_until(condition, seconds=60):
    """Waits until condition() is true."""
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise TimeoutError(condition)
        time.sleep(0.002)


def wait_until_drained(pipe):
    """Waits until everything in a pipe has been read."""
    waiting = array.array("i", [1])

    def is_empty():
        fcntl.ioctl(pipe, termios.FIONREAD, waiting)
        return waiting[0] == 0

    wait_until(is_empty)


def has_open(process, name):
    """True if a process has a file open."""
    directory = f"/proc/{process.pid}/fd"
    try:
        return any(os.path.samefile(os.path.join(directory, fd), name)
                   for fd in os.listdir(directory)
                   if os.path.exists(os.path.join(directory, fd)))
    except OSError:
        return False

"""Runs quarnex, qrx and a client of libqrx with an injected fault, and classifies what they leave."""

import ctypes
import dataclasses
import hashlib
import os
import pathlib
import random
import re
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import typing

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tool"))

from qrx_files import HEADER, block_of, payloads, records  # noqa: E402

MIB = 1 << 20
TIME_LIMIT = 60  # seconds for a run, which takes milliseconds
CELL = "10"
BYSTANDER = b"not a part of the run"
OLD = b"old content"
NAMES = ("first", "big", "last")  # in the order of their processing; faults concern `big`
MAX_WORKERS = 8
HEADER_BEFORE_TYPE = 14  # bytes: magic number, size, method and level


@dataclasses.dataclass(frozen=True)
class Case:
    """A column of the matrix."""
    program: str  # quarnex, qrx or libqrx
    operation: str  # compress or restore
    workers: int

    @property
    def compresses(self):
        return self.operation == "compress"

    @property
    def big_blocks(self):
        """The number of blocks of `big`, unless all files are small."""
        return max(self.workers, 2) + 1

    def source(self, name):
        return name if self.compresses else name + ".qrx"

    def target(self, name):
        return "out/" + (name + ".qrx" if self.compresses else name)


@dataclasses.dataclass(frozen=True)
class Outcome:
    """What a run may do.  `states` are the allowed states of the outputs, in the order of NAMES:

    right     complete
    kept      as before the run: the old content, or no file
    prefix    the first bytes of the right content, or none
    blocks    only whole blocks of the right content, of which some may be missing and the last may be
              cut: records of a .qrx file in any order, or restored blocks with zeros in the gaps
    short     a .qrx file that ends with a stored block, the first bytes of a block of the source
    absent    the old content is gone
    wrong     anything else
    """
    status: int
    err: str  # regular expressions for all of standard error and standard output
    out: str
    states: tuple
    size: typing.Optional[int] = None  # of the output of `big`, if it matters


@dataclasses.dataclass(frozen=True)
class Trial:
    """A fault and the outcomes that are allowed for it."""
    fault: str
    outcomes: tuple
    options: tuple = ()
    mode: str = "file"  # of the client of libqrx
    cell: str = CELL
    has_old: bool = False  # outputs of an earlier run exist
    is_small: bool = False  # all files are small
    loses: str = ""  # a source that the fault removes or truncates
    missing: bool = False  # the source of `big` doesn't exist
    leaves: str = ""  # regular expression for other files that may remain
    delay: float = 0  # seconds until the process is killed; 0: it isn't
    ends_sweep: bool = False  # a run that doesn't reach the fault is the last of a sweep


def block_contents(seed, size):
    """Returns blocks that differ, the second of which can't be compressed."""
    source = random.Random(seed)
    parts = []
    for index in range((size + MIB - 1) // MIB):
        if index == 1:
            parts.append(source.randbytes(MIB))
        else:
            line = b"block %d %d " % (index, seed) + source.randbytes(1000)
            parts.append(line * (MIB // len(line) + 1))
            parts[-1] = parts[-1][:MIB]
    return b"".join(parts)[:size]


class Programs:
    """The programs of a build, and the contents of the files that they get.  They run below `folder`."""

    def __init__(self, build, folder):
        self.folder = folder
        build = pathlib.Path(build).resolve()
        self.quarnex = str(build / "quarnex")
        self.qrx = str(build / "qrx")
        self.client = str(build / "tests/faults/fault_client")
        self.shim = str(build / "tests/faults/libfault_shim.so")
        self.library = str(build / "libqrx.so")
        self.known_contents = {}
        self.known_images = {}

    def contents(self, case, is_small):
        """Returns the content of each file: enough blocks for all workers."""
        big = 70_000 if is_small else (case.big_blocks - 1) * MIB + 300_000
        if big not in self.known_contents:
            self.known_contents[big] = {"first": block_contents(1, 3000),
                                        "big": block_contents(2, big),
                                        "last": block_contents(3, 4000)}
        return self.known_contents[big]

    def compressed(self, case, cell, is_small):
        """Returns the compressed form of each file."""
        program = case.program
        key = (program, cell, case.workers, is_small)
        if key not in self.known_images:
            with tempfile.TemporaryDirectory(dir=self.folder) as place:
                made = {}
                for name, content in self.contents(case, is_small).items():
                    pathlib.Path(place, name).write_bytes(content)
                    command = {"quarnex": [self.quarnex, "-" + cell, "-p0", "-b1", name, "out"],
                               "qrx": [self.qrx, "-" + cell, "-b1", "-q", "-C", "out", name],
                               "libqrx": [self.client, "compress", "file", name,
                                          f"out/{name}.qrx", "0", cell]}[program]
                    pathlib.Path(place, "out").mkdir(exist_ok=True)
                    subprocess.run(command, cwd=place, check=True, capture_output=True)
                    made[name] = pathlib.Path(place, "out", name + ".qrx").read_bytes()
            self.known_images[key] = made
        return self.known_images[key]

    def memory_limit(self, operation, cell):
        """Returns a limit with which qrx starts no workers."""
        class Params(ctypes.Structure):
            _fields_ = [("struct_size", ctypes.c_size_t)] + [
                (name, ctypes.c_uint32) for name in
                ("method", "level", "context_bits", "filter", "hash_bits", "chain_bits",
                 "block_mib", "reserved")]
        params = Params(struct_size=ctypes.sizeof(Params), method=int(cell[0]),
                        level=int(cell[1]), block_mib=1)
        needed = getattr(ctypes.CDLL(self.library), f"qrx_{operation}_memory")
        needed.restype = ctypes.c_uint64
        one, none = needed(ctypes.byref(params), 1), needed(ctypes.byref(params), 0)
        assert none < one - 4096
        return one - 1

    def command(self, case, trial):
        sources = [case.source(name) for name in NAMES]
        workers = str(case.workers)
        if case.program == "quarnex":
            direction = ["-" + trial.cell, "-b1"] if case.compresses else ["-d"]
            return [self.quarnex, *direction, "-p" + workers, *trial.options, *sources, "out"]
        if case.program == "qrx":
            direction = ["-" + trial.cell, "-b1"] if case.compresses else ["-d"]
            threads = ["-T" + workers]
            if case.workers == 0:
                operation = "compress" if case.compresses else "decompress"
                threads = ["-T1", f"--memory-limit={self.memory_limit(operation, trial.cell)}"]
            return [self.qrx, *direction, *threads, "-q", "-f", *trial.options, "-C", "out",
                    *sources]
        return [self.client, case.operation, trial.mode, case.source("big"), case.target("big"),
                workers, trial.cell]


def has_same_blocks(image, other):
    """Whether two .qrx files are equal except for the order of their records."""
    try:
        return image[:HEADER] == other[:HEADER] and payloads(image) == payloads(other)
    except ValueError:
        return False


def has_whole_records(image, right):
    """Whether a .qrx file has only records of the right one, each at most once.  The last may be cut."""
    known = payloads(right)[0]
    found = set()
    if image[:HEADER] != right[:HEADER]:
        return False
    for sequence, (offset, size) in enumerate(records(image)):
        block = block_of(image, sequence, offset)
        if block in found or not 0 <= block < len(known) or size != len(known[block]) or not (
                known[block].startswith(image[offset:offset + size])):
            return False
        found.add(block)
    end = max((offset + size for offset, size in records(image)), default=HEADER)
    head = image[end:]  # the start of one
    return not head or any(struct.pack("<I", len(payload)).startswith(head)
                           for block, payload in enumerate(known) if block not in found)


def is_shortened(image, right, original):
    """Whether a .qrx file has its first blocks, the last of them short and stored.  The type of the
    file, which determines parameters in the header, depends on the first block."""
    try:
        (*whole, last), rest = payloads(image)
    except ValueError:
        return False
    compared = HEADER if whole else HEADER_BEFORE_TYPE
    return (image[:compared] == right[:compared] and whole == payloads(right)[0][:len(whole)] and
            original.startswith(last, len(whole) * MIB) and not rest)


def has_whole_blocks(content, right):
    """Whether a restored file has blocks of the right one, and zeros instead of the others.  The one that was
    being written may be cut."""
    cut = 0
    for start in range(0, len(content), MIB):
        block = content[start:start + MIB]
        expected = right[start:start + MIB]
        if not expected.startswith(block.rstrip(b"\0")) or len(block) > len(expected):
            return False
        cut += block != expected and block.strip(b"\0") != b""
    return cut <= 1


def identity(path):
    """Returns what changes if a file is replaced or written to."""
    found = path.stat()
    return found.st_ino, found.st_size, found.st_mtime_ns


class Run:
    """A directory in which a case is tried."""

    def __init__(self, programs, case, directory):
        self.programs = programs
        self.case = case
        self.place = pathlib.Path(directory)
        self.report = self.place / "report"
        self.dir = self.place / "work"
        self.put = {}  # content and identity of each source
        self.repeated = set()  # states after which the run has been repeated
        self.runs = 0  # in which a fault happened

    def prepare(self, trial):
        """Creates the files of a trial."""
        case = self.case
        self.originals = self.programs.contents(case, trial.is_small)
        images = self.programs.compressed(case, trial.cell, trial.is_small)
        self.sources, self.rights = ((self.originals, images) if case.compresses
                                     else (images, self.originals))
        for name in ("out", "gone"):
            shutil.rmtree(self.dir / name, ignore_errors=True)
        (self.dir / "out").mkdir(parents=True)
        (self.dir / "out/other").write_bytes(BYSTANDER)
        self.put_sources()
        if trial.has_old:
            for name in NAMES:
                (self.dir / case.target(name)).write_bytes(OLD)
        if trial.missing:
            (self.dir / case.source("big")).unlink()

    def is_intact(self, name):
        """Whether a source is as it was put there: the same file, not written to since."""
        content, found = self.put.get(name, (None, None))
        path = self.dir / self.case.source(name)
        return content is self.sources[name] and path.exists() and identity(path) == found

    def put_sources(self):
        """Creates the sources that aren't there or have been changed."""
        for name in NAMES:
            if not self.is_intact(name):
                path = self.dir / self.case.source(name)
                path.write_bytes(self.sources[name])
                self.put[name] = (self.sources[name], identity(path))

    def start(self, trial, fault):
        """Runs the program.  Returns its exit status, standard error and standard output."""
        self.report.write_bytes(bytes(16))
        environment = {"LC_ALL": "C.UTF-8", "FAULT_REPORT": str(self.report), "FAULT": fault,
                       "FAULT_PROCESSORS": str(MAX_WORKERS), "LD_PRELOAD": self.programs.shim,
                       "PATH": os.environ.get("PATH", "")}
        process = subprocess.Popen(self.programs.command(self.case, trial), cwd=self.dir,
                                   env=environment, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        try:
            if trial.delay:
                try:
                    process.wait(trial.delay)
                except subprocess.TimeoutExpired:
                    process.send_signal(signal.SIGKILL)
            out, err = process.communicate(timeout=TIME_LIMIT)
        except subprocess.TimeoutExpired:
            process.kill()
            process.communicate()
            return None, "", ""
        return process.returncode, err.decode(), out.decode()

    def counts(self):
        """Returns how often the fault was injected, and how many calls it could have hit."""
        return struct.unpack("<QQ", self.report.read_bytes())

    def find(self, relative):
        """Returns the content of a file, which may have been moved away with its directory."""
        for place in (relative, relative.replace("out/", "gone/")):
            if (self.dir / place).exists():
                return (self.dir / place).read_bytes()
        return None

    def is_right(self, name, content, trial):
        """Whether an output is complete."""
        right = self.rights[name]
        if content == right:
            return True
        if not self.case.compresses or len(content) < HEADER:
            return False
        if self.case.program == "quarnex" and has_same_blocks(content, right):
            return True
        if trial.cell[1] in "89":  # another match finder's matches, if memory is short
            done = subprocess.run([self.programs.qrx, "-dc"], input=content, capture_output=True,
                                  check=False)
            return done.returncode == 0 and done.stdout == self.originals[name]
        return False

    def state_of(self, name, trial):
        content = self.find(self.case.target(name))
        if content == (OLD if trial.has_old else None):
            return "kept"
        if content is None:
            return "absent"
        if self.is_right(name, content, trial):
            return "right"
        right = self.rights[name]
        if right.startswith(content):
            return "prefix"
        has_whole = has_whole_records if self.case.compresses else has_whole_blocks
        if has_whole(content, right):
            return "blocks"
        is_short = self.case.compresses and is_shortened(content, right, self.originals[name])
        return "short" if is_short else "wrong"

    def losses(self, trial, states):
        """Describes files that the run should not have touched."""
        for name, state in zip(NAMES, states):
            source = self.dir / self.case.source(name)
            was_removed = "--rm" in trial.options and state == "right" and not source.exists()
            if not (self.is_intact(name) or was_removed or trial.loses == name or trial.missing):
                yield f"the source {source.name} was changed"
        if self.find("out/other") != BYSTANDER:
            yield "another file was changed"
        known = {self.case.source(name) for name in NAMES} | {"out/other"}
        known |= {self.case.target(name) for name in NAMES}
        for path in sorted(self.dir.rglob("*")):
            relative = str(path.relative_to(self.dir)).replace("gone/", "out/")
            if not path.is_file() or relative in known:
                continue
            if not trial.leaves or not re.fullmatch(trial.leaves, relative):
                yield f"{relative} was left"
            elif not self.is_part(path.read_bytes()):
                yield f"{relative} was left, with wrong content"

    def is_part(self, content):
        """Whether a temporary file that was left is a complete output or, of libqrx, the start of one, where
        the header may still be missing."""
        if content in self.rights.values():
            return True
        headers = (bytes(HEADER)[:len(content)], self.rights["big"][:len(content)][:HEADER])
        return (self.case.program == "libqrx" and content[:HEADER] in headers and
                self.rights["big"].startswith(content[HEADER:], HEADER))

    def wrong_repetition(self, trial, states):
        """Repeats the run without the fault, and describes what is wrong then."""
        self.put_sources()
        (self.dir / "out").mkdir(exist_ok=True)
        key = (trial.options, trial.mode, trial.cell, trial.is_small, self.snapshot())
        if key in self.repeated:
            return
        self.repeated.add(key)
        calm = dataclasses.replace(trial, delay=0, has_old=False)
        status, err, out = self.start(calm, "any * 1 1 none")
        now = [self.state_of(name, calm) for name in NAMES]
        wanted = ["right"] * 3 if self.case.program != "libqrx" else [states[0], "right", states[2]]
        expected_out = "0 0 0 0\n" if self.case.program == "libqrx" else ""
        if (status, err, out) != (0, "", expected_out) or now[1] != "right" or (
                self.case.program != "libqrx" and now != wanted):
            yield f"then without a fault: status {status}, {now}, {err!r}, {out!r}"

    def snapshot(self):
        """Returns a value that is the same for the same outputs."""
        digest = hashlib.blake2b()
        for path in sorted(self.dir.glob("*/*")):
            digest.update(str(path.relative_to(self.dir)).encode() + b"\0")
            if path.is_file():
                digest.update(hashlib.blake2b(path.read_bytes()).digest())
        return digest.digest()

    def attempt(self, trial):
        """Tries a fault.  Returns whether it happened, and a list of what is wrong."""
        self.prepare(trial)
        status, err, out = self.start(trial, trial.fault)
        happened = (status == -signal.SIGKILL if trial.delay
                    else trial.missing or self.counts()[0] != 0)
        self.runs += happened
        if status is None:
            return happened, ["doesn't end"]
        states = [self.state_of(name, trial) for name in NAMES]
        found = list(self.losses(trial, states))
        outcomes = trial.outcomes
        if not happened and trial.ends_sweep:
            outcomes = (success(self.case),)
        size = len(self.find(self.case.target("big")) or b"")
        if not any(self.agrees(outcome, status, err, out, states, size) for outcome in outcomes):
            found.append(f"status {status}, {states}, {size} bytes, {err!r}, {out!r}")
        found += self.wrong_repetition(trial, states)
        return happened, found

    @staticmethod
    def agrees(outcome, status, err, out, states, size):
        return (status == outcome.status and outcome.size in (None, size) and
                re.fullmatch(outcome.err, err) is not None and
                re.fullmatch(outcome.out, out) is not None and
                all(state in allowed for state, allowed in zip(states, outcome.states)))


RIGHT = frozenset({"right"})
KEPT = frozenset({"kept"})
PREFIX = frozenset({"kept", "prefix"})


def success(case, err="", out=""):
    """Everything succeeds."""
    if case.program == "libqrx":
        return Outcome(0, "", "0 0 0 0\n", (KEPT, RIGHT, KEPT))
    return Outcome(0, err, out, (RIGHT, RIGHT, RIGHT))

"""qrx.dask, with real clusters of worker processes."""

import errno
import functools
import gc
import os
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from unittest import mock

import qrx
from common import (
    MIB, InFolder, image, need_packages, noise, records, text, with_short_block,
)

need_packages("dask", "distributed", "fsspec", "pandas")

import dask  # noqa: E402
import distributed  # noqa: E402
import fsspec  # noqa: E402
import pandas  # noqa: E402

import qrx.dask  # noqa: E402
import gated  # noqa: E402, F401
from qrx import _processors, _records, _tasks  # noqa: E402


def new_cluster(workers: int = 2) -> distributed.LocalCluster:
    return distributed.LocalCluster(n_workers=workers, threads_per_worker=1,
                                    dashboard_address=None, silence_logs="CRITICAL")


class WithCluster(InFolder):
    """A test with a cluster of two processes, which the tests of a class share."""

    cluster: distributed.LocalCluster
    client: distributed.Client

    @classmethod
    def setUpClass(cls) -> None:
        cls.cluster = new_cluster()
        cls.client = distributed.Client(cls.cluster)

    @classmethod
    def tearDownClass(cls) -> None:
        cls.client.close()
        cls.cluster.close()

    def assert_content(self, path: str, expected: bytes) -> None:
        with open(path, "rb") as file:
            self.assertTrue(file.read() == expected, f"{path} has other bytes")

    def assert_files(self, *names: str) -> None:
        """Checks that the folder contains these files only: nothing temporary."""
        self.assertEqual(sorted(os.listdir(self.folder)), sorted(names))


def program_like(size: int) -> bytes:
    """Content that isn't detected as text, with call instructions for the x86 filter."""
    return b"\0\1\2" + b"\xe8\0\1\0\0abc\0" * (size // 9)


class Compress(WithCluster):
    def check(self, name: str, data: bytes, cell: str, block_mb: int = 1) -> None:
        source, target = self.path(name, data), self.path("target")
        qrx.dask.compress(source, target, cell=cell, block_mb=block_mb)
        self.assert_content(target, qrx.compress(
            data, method=int(cell[0]), level=int(cell[1]), block_mib=block_mb, for_name=name))
        self.assert_files(name, "target")

    def test_equals_one_machine(self) -> None:
        self.check("a.txt", text(3 * MIB + 1000), "33")

    def test_context_bits_come_from_the_start_of_the_file(self) -> None:
        # The second block alone would select other context bits.
        self.check("a.txt", text(MIB) + noise(MIB), "41")

    def test_filter_comes_from_the_name(self) -> None:
        self.check("a.exe", program_like(2 * MIB), "21")
        self.assertEqual(qrx.info(self.path("target")).filter, "x86")

    def test_whole_blocks(self) -> None:
        self.check("a", noise(2 * MIB), "52")

    def test_empty_file(self) -> None:
        self.check("empty", b"", "33")

    def test_a_file_that_reports_size_0(self) -> None:
        with self.assertRaisesRegex(OSError, "/proc/version: not a file of known size"):
            qrx.dask.compress("/proc/version", self.path("target"))
        self.assert_files()

    def test_one_byte(self) -> None:
        self.check("one", b"x", "11")

    def test_equals_qrx(self) -> None:
        program = os.environ.get("QRX_PROGRAM")
        if not program:
            self.skipTest("QRX_PROGRAM doesn't name qrx")
        source = self.path("a.txt", text(2 * MIB + 5))
        subprocess.run([program, "-b1", "-14", "-o", self.path("expected"), source], check=True)
        qrx.dask.compress(source, self.path("target"), cell=14, block_mb=1, task_mb=2)
        with open(self.path("expected"), "rb") as file:
            self.assert_content(self.path("target"), file.read())

    def test_target_that_workers_do_not_see(self) -> None:
        data = text(3 * MIB)
        target = "memory://folder/target.qrx"
        self.addCleanup(fsspec.filesystem("memory").rm, "/folder", recursive=True)
        qrx.dask.compress(self.path("source", data), target, block_mb=1)
        with fsspec.open(target) as file:
            self.assertEqual(qrx.decompress(file.read()), data)
        self.assertEqual(fsspec.filesystem("memory").ls("/folder", detail=False),
                         ["/folder/target.qrx"])
        with self.assertRaises(FileNotFoundError):
            qrx.dask.compress(self.path("missing"), "memory://folder/other.qrx")
        self.assertEqual(len(fsspec.filesystem("memory").ls("/folder")), 1)

    def test_an_archive_without_the_name_of_its_file(self) -> None:
        path = self.path("source.qrx", image())
        with self.assertRaises(OSError) as failure:
            qrx.dask.compress(f"qrx://::{path}", self.path("target"))
        self.assertEqual(str(failure.exception), f"qrx://::{path}: not a file of known size")
        qrx.dask.compress(f"qrx://source::{path}", self.path("target"), cell="11", block_mb=1)
        self.assert_content(self.path("target"), qrx.compress(
            text(3 * MIB + 1000), method=1, level=1, block_mib=1, for_name="source"))
        self.assert_files("source.qrx", "target")

    def test_a_remote_folder_that_looks_like_a_pattern(self) -> None:
        with self.assertRaisesRegex(ValueError, "not supported"):
            qrx.dask.compress(self.path("source", b""), "memory://a[1]/target")

    def test_a_file_system_that_does_not_rename(self) -> None:
        fs = fsspec.filesystem("memory")
        fs.pipe_file("/target", b"old")
        self.addCleanup(fs.rm_file, "/target")
        with mock.patch.object(type(fs), "mv", lambda *_, **__: None), \
                self.assertRaisesRegex(OSError, "can't replace"):
            qrx.dask.compress(self.path("source", text(10)), "memory://target")
        self.assertEqual(fs.cat_file("/target"), b"old")
        self.assertEqual(fs.ls("/", detail=False), ["/target"])

    def test_replaces_a_target(self) -> None:
        source, target = self.path("source", text(10)), self.path("target", b"old")
        qrx.dask.compress(source, target)
        with qrx.open(target) as file:
            self.assertEqual(file.read(), text(10))

    def test_failures_leave_the_target_alone(self) -> None:
        source, target = self.path("source", text(10)), self.path("target", b"old")
        with self.assertRaises(FileNotFoundError):
            qrx.dask.compress(self.path("missing"), target)
        with self.assertRaises(IsADirectoryError):
            qrx.dask.compress(source, self.folder)
        with self.assertRaises(FileNotFoundError):
            qrx.dask.compress(source, self.path("no folder/target"))
        with self.assertRaises(OSError):
            qrx.dask.compress(self.folder, target)
        with self.assertRaisesRegex(ValueError, "same file"):
            qrx.dask.compress(source, source)
        self.assert_content(target, b"old")
        self.assert_content(source, text(10))
        self.assert_files("source", "target")

    def test_the_same_file_by_other_names(self) -> None:
        source = self.path("source", text(10))
        os.symlink(source, self.path("link"))
        os.symlink(self.folder, self.path("folder"))
        for other in ("link", "folder/source", "folder/link"):
            with self.subTest(other), self.assertRaisesRegex(ValueError, "same file"):
                qrx.dask.compress(self.path(other), source)
        self.assert_content(source, text(10))

    def test_targets_that_end_in_a_slash(self) -> None:
        source = self.path("source", text(10))
        for target in (self.path("folder/"), "memory://folder/"):
            with self.subTest(target), self.assertRaises(IsADirectoryError) as failure:
                qrx.dask.compress(source, target)
            self.assertEqual(failure.exception.filename, target)
        self.assertFalse(fsspec.filesystem("memory").exists("/folder"))
        self.assert_files("source")

    def test_special_files_are_not_replaced(self) -> None:
        os.mkfifo(self.path("pipe"))
        with self.assertRaisesRegex(OSError, "not a regular file"):
            qrx.dask.compress(self.path("source", b""), self.path("pipe"))
        self.assert_files("pipe", "source")

    def test_the_mode_is_that_of_the_source(self) -> None:
        for mode in (0o600, 0o444, 0o755):
            source = self.path("source", text(10))
            os.chmod(source, mode)
            qrx.dask.compress(source, self.path("target"))
            self.assertEqual(os.stat(self.path("target")).st_mode & 0o777, mode)
            os.unlink(source)

    def test_missing_folders_are_named_by_the_target(self) -> None:
        source, target = self.path("source", b""), self.path("no folder/target")
        with self.assertRaises(FileNotFoundError) as failure:
            qrx.dask.compress(source, target)
        self.assertEqual(failure.exception.filename, target)
        qrx.dask.compress(source, target, target_options={"auto_mkdir": True})
        self.assertEqual(os.listdir(self.path("no folder")), ["target"])

    def test_a_failure_leaves_no_tasks(self) -> None:
        run = Gated(self, qrx.dask.compress, self.path("source", noise(6 * MIB)),
                    self.path("target"), block_mb=1)
        os.truncate(self.path("source"), 3 * MIB)
        with self.assertRaises(OSError):
            run.finish()
        del run
        gc.collect()
        end = time.monotonic() + 30
        while self.client.futures or self.client.run_on_scheduler(task_count):
            self.assertLess(time.monotonic(), end, "tasks are left")
            time.sleep(0.05)

    def test_a_source_that_workers_do_not_see(self) -> None:
        fs = fsspec.filesystem("memory")
        fs.pipe_file("/source", text(10))
        self.addCleanup(fs.rm_file, "/source")
        with self.assertRaisesRegex(FileNotFoundError, "a worker can't find.*source"):
            qrx.dask.compress("memory://source", self.path("target"))
        self.assert_files()

    def test_a_local_target_that_workers_do_not_see(self) -> None:
        data = text(3 * MIB)
        with mock.patch.object(self.client, "run", lambda *_: {"one": True, "other": False}), \
                mock.patch.object(self.client, "gather", wraps=self.client.gather) as gather:
            qrx.dask.compress(self.path("source", data), self.path("target"), block_mb=1)
        self.assertEqual(gather.call_count, 3)
        with qrx.open(self.path("target")) as file:
            self.assertEqual(file.read(), data)

    def test_called_by_a_task(self) -> None:
        task = self.client.submit(qrx.dask.compress, self.path("source", b""), "target")
        with self.assertRaisesRegex(ValueError, "called by a task"):
            task.result()

    def test_bad_arguments(self) -> None:
        source = self.path("source", b"")
        with self.assertRaises(TypeError):
            qrx.dask.compress(os.fsencode(source), self.path("target"))
        for arguments in ({"cell": "3"}, {"cell": "60"}, {"cell": "333"}, {"cell": "-3"},
                          {"block_mb": -1}, {"block_mb": 2048}, {"task_mb": 0}):
            with self.subTest(arguments), self.assertRaises(ValueError):
                qrx.dask.compress(source, self.path("target"), **arguments)
        self.assert_files("source")

    def test_source_that_changes(self) -> None:
        for size in (2 * MIB, 4 * MIB):
            source = self.path("source", noise(3 * MIB))
            with self.subTest(size):
                run = Gated(self, qrx.dask.compress, source, self.path("target"), block_mb=1)
                os.truncate(source, size)
                with self.assertRaisesRegex(OSError, "changed|shorter"):
                    run.finish()
                self.assert_files("source")

    def test_source_that_is_replaced(self) -> None:
        for function, content in ((functools.partial(qrx.dask.compress, block_mb=1),
                                   noise(3 * MIB)),
                                  (qrx.dask.decompress,
                                   qrx.compress(noise(3 * MIB), block_mib=1, seal=False))):
            source = self.path("source", content)
            traits = os.stat(source)
            run = Gated(self, function, source, self.path("target"))
            os.rename(self.path("other", content), source)
            os.utime(source, ns=(traits.st_atime_ns, traits.st_mtime_ns))
            with self.subTest(function), self.assertRaisesRegex(OSError, "changed"):
                run.finish()
            self.assert_files("source")

    def test_without_client(self) -> None:
        script = "import qrx.dask; qrx.dask.compress('a', 'b')"
        result = subprocess.run([sys.executable, "-c", script], capture_output=True)
        self.assertIn(b"there is no Dask client", result.stderr)


def task_count(dask_scheduler: distributed.Scheduler) -> int:
    return len(dask_scheduler.tasks)


class Gated:
    """A call in a thread of its own that is stopped while workers read the source."""

    def __init__(self, test: InFolder, function, source: str, target: str, **options) -> None:
        folder = tempfile.TemporaryDirectory()
        test.addCleanup(folder.cleanup)
        self.gate = os.path.join(folder.name, "gate")
        self.failure = None
        os.mkdir(self.gate)

        def run() -> None:
            try:
                function("gated://" + source, target, source_options={"gate": self.gate},
                         **options)
            except BaseException as error:
                self.failure = error

        self.thread = threading.Thread(target=run)
        self.thread.start()
        while not self.readers() and self.thread.is_alive():
            time.sleep(0.01)

    def readers(self):
        """Returns the process numbers of the workers that wait."""
        return [int(name) for name in os.listdir(self.gate)]

    def finish(self) -> None:
        """Opens the gate and waits for the end of the call."""
        shutil.rmtree(self.gate)
        self.thread.join(60)
        if self.thread.is_alive():
            raise AssertionError("the call doesn't end")
        if self.failure is not None:
            raise self.failure


class Decompress(WithCluster):
    def packed(self, data: bytes, **options: object) -> str:
        return self.path("source.qrx", qrx.compress(data, block_mib=1, **options))

    def assert_fails(self, kind: type, words: str, content: bytes) -> None:
        source, target = self.path("source.qrx", content), self.path("target", b"old")
        with self.assertRaisesRegex(kind, words):
            qrx.dask.decompress(source, target)
        self.assert_content(target, b"old")
        self.assert_files("source.qrx", "target")

    def test_restores(self) -> None:
        for data in (text(3 * MIB + 1000), noise(2 * MIB), b"", b"x"):
            for seal in (True, False):
                with self.subTest(size=len(data), seal=seal):
                    source = self.packed(data, seal=seal, method=5, level=2)
                    qrx.dask.decompress(source, self.path("target"))
                    self.assert_content(self.path("target"), data)

    def test_restores_filtered_blocks(self) -> None:
        data = program_like(2 * MIB)
        qrx.dask.decompress(self.packed(data, filter="x86"), self.path("target"), task_mb=2)
        self.assert_content(self.path("target"), data)

    def test_target_that_workers_do_not_see(self) -> None:
        self.addCleanup(fsspec.filesystem("memory").rm, "/folder", recursive=True)
        qrx.dask.decompress(self.packed(text(3 * MIB)), "memory://folder/target")
        with fsspec.open("memory://folder/target") as file:
            self.assertEqual(file.read(), text(3 * MIB))

    def test_records_in_another_order(self) -> None:
        data, whole = text(3 * MIB + 1000), image(seal=False)
        first, second, *_ = records(whole)
        mixed = bytearray(whole[:first.offset] + whole[second.offset:second.end]
                          + whole[first.offset:first.end] + whole[second.end:])
        mixed[first.offset + 4] = 2  # displaced by 1
        mixed[first.offset + second.end - second.offset + 4] = 3  # by -1
        qrx.dask.decompress(self.path("source.qrx", bytes(mixed)), self.path("target"))
        self.assert_content(self.path("target"), data)

    def test_headers_of_other_writers(self) -> None:
        for offset, value in ((13, 7), (16, 99), (17, 0x0F), (18, 33), (19, 9)):
            header = bytearray(image(seal=False))
            header[offset] = value
            with self.subTest(offset):
                source = self.path("source.qrx", bytes(header))
                try:
                    with qrx.open(source) as file:
                        expected = file.read()
                except qrx.QrxError as error:
                    with self.assertRaises(type(error)):
                        qrx.dask.decompress(source, self.path("target"))
                    continue
                qrx.dask.decompress(source, self.path("target"))
                self.assert_content(self.path("target"), expected)

    def test_a_payload_that_ends_early(self) -> None:
        source = self.path("source.qrx", image())
        block = qrx.BlockInfo(5, 0, 1000, len(image()) - 10, 500, False)
        with self.assertRaisesRegex(qrx.TruncatedError, "block 5"):
            _tasks.decode(_tasks.Location(fsspec.filesystem("file"), source, source),
                          {"method": 1, "level": 1}, [block])

    def test_damaged_block_is_named(self) -> None:
        self.assert_fails(qrx.CorruptError, r"source\.qrx: .*\(block 1, at byte \d+ of the file\)",
                          with_short_block(image(), 1))

    def test_truncated_file(self) -> None:
        self.assert_fails(qrx.TruncatedError, "source.qrx", image()[:-1000])

    def test_wrong_seal(self) -> None:
        self.assert_fails(qrx.ChecksumError, "source.qrx", image()[:-1] + bytes([image()[-1] ^ 1]))

    def test_other_format(self) -> None:
        self.assert_fails(qrx.NotQrxError, "", b"something else, and long enough for a header")


def limit_file_size(size: int) -> None:
    """Makes writes beyond a size fail in this process.  Python ignores the signal."""
    resource.setrlimit(resource.RLIMIT_FSIZE, (size, resource.RLIM_INFINITY))


class LostWorker(InFolder):
    def test_work_is_repeated_elsewhere(self) -> None:
        data = text(12 * MIB)
        source, target = self.path("source", data), self.path("target")
        with new_cluster() as cluster, distributed.Client(cluster):
            run = Gated(self, qrx.dask.compress, source, target, block_mb=1)
            lost = run.readers()[0]
            os.kill(lost, signal.SIGKILL)
            run.finish()
        with open(target, "rb") as file:
            self.assertTrue(file.read() == qrx.compress(data, block_mib=1, for_name="source"))
        self.assertEqual(sorted(os.listdir(self.folder)), ["source", "target"])

    def test_full_disk_of_one_worker(self) -> None:
        source, target = self.path("source", noise(12 * MIB)), self.path("target", b"old")
        with new_cluster() as cluster, distributed.Client(cluster) as client:
            first = sorted(client.nthreads())[0]
            client.run(limit_file_size, 4 * MIB, workers=[first])
            with self.assertRaises(OSError) as failure:
                qrx.dask.compress(source, target, block_mb=1, task_mb=1)
            self.assertEqual((failure.exception.errno, failure.exception.filename),
                             (errno.EFBIG, target))
            packed = self.path("packed", qrx.compress(noise(12 * MIB), block_mib=1))
            with self.assertRaises(OSError) as failure:
                qrx.dask.decompress(packed, target, task_mb=1)
            self.assertEqual(failure.exception.filename, target)
            self.assertEqual(sorted(os.listdir(self.folder)), ["packed", "source", "target"])
            with open(target, "rb") as file:
                self.assertEqual(file.read(), b"old")
            client.run(limit_file_size, resource.RLIM_INFINITY, workers=[first])
            qrx.dask.compress(source, target, block_mb=1)  # the cluster is still usable
            self.assertEqual(qrx.test(target), [])


    def test_full_disk_of_the_client(self) -> None:
        """A local target that the workers don't see."""
        target = self.path("target")
        self.addCleanup(limit_file_size, resource.RLIM_INFINITY)
        with new_cluster() as cluster, distributed.Client(cluster) as client, \
                mock.patch.object(client, "run", lambda *_: {"one": False}):
            for size in (3 * MIB, 5000):  # the second result fits in the buffer of the target
                source = self.path("source", noise(size))
                limit_file_size(size // 2)
                with self.subTest(size), self.assertRaises(OSError) as failure:
                    qrx.dask.compress(source, target, block_mb=1)
                limit_file_size(resource.RLIM_INFINITY)
                self.assertEqual((failure.exception.errno, failure.exception.filename),
                                 (errno.EFBIG, target))
                self.assertEqual(os.listdir(self.folder), ["source"])


class LostScheduler(InFolder):
    """A cluster of programs, as dask-scheduler and dask-worker start one."""

    def start(self, module: str, *arguments: str) -> "subprocess.Popen[bytes]":
        log = open(os.path.join(self.logs, module), "ab")
        self.addCleanup(log.close)
        process = subprocess.Popen([sys.executable, "-m", f"distributed.cli.{module}", *arguments],
                                   stdout=log, stderr=log)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def start_cluster(self):
        file = os.path.join(self.logs, "scheduler.json")
        scheduler = self.start("dask_scheduler", "--port", "0", "--no-dashboard",
                               "--scheduler-file", file)
        worker = self.start("dask_worker", "--scheduler-file", file, "--no-nanny", "--no-dashboard",
                            "--nthreads", "2", "--death-timeout", "20",
                            "--local-directory", self.logs)
        return scheduler, worker, file

    def setUp(self) -> None:
        super().setUp()
        logs = tempfile.TemporaryDirectory()
        self.addCleanup(logs.cleanup)
        self.logs = logs.name

    def test_during_a_run_and_between_two(self) -> None:
        data = text(4 * MIB)
        source, target = self.path("source", data), self.path("target")
        scheduler, worker, file = self.start_cluster()
        with distributed.Client(scheduler_file=file, timeout=6) as client:
            client.wait_for_workers(1)
            run = Gated(self, qrx.dask.compress, source, target, block_mb=1, client=client)
            scheduler.kill()
            with self.assertRaisesRegex(ConnectionError, "scheduler is lost"):
                run.finish()
        self.assertEqual(os.listdir(self.folder), ["source"])
        worker.kill()
        os.unlink(file)
        scheduler, worker, file = self.start_cluster()
        with distributed.Client(scheduler_file=file, timeout=6) as client:
            client.wait_for_workers(1)
            qrx.dask.compress(source, target, block_mb=1)
        with open(target, "rb") as result:
            self.assertTrue(result.read() == qrx.compress(data, block_mib=1, for_name="source"))


class Processors(unittest.TestCase):
    """_processors.processor_slot(), which limits the running codecs to one per processor."""

    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        for patch in (mock.patch.object(tempfile, "tempdir", folder.name),
                      mock.patch.object(os, "sched_getaffinity", lambda _: {0, 1})):
            patch.start()
            self.addCleanup(patch.stop)

    def peak_of_threads(self) -> int:
        """Runs six threads and returns how many of them were coding at a time."""
        running: "list[int]" = []
        most = []

        def run() -> None:
            with _processors.processor_slot():
                running.append(1)
                most.append(len(running))
                time.sleep(0.1)
                running.pop()

        threads = [threading.Thread(target=run) for _ in range(6)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join(60)
        self.assertEqual(len(most), 6)
        return max(most)

    def test_others_wait(self) -> None:
        self.assertEqual(self.peak_of_threads(), 2)

    def test_killed_workers_release_their_locks(self) -> None:
        script = ("import os, signal, tempfile; from qrx import _processors\n"
                  f"tempfile.tempdir = {self.folder!r}\n"
                  "with _processors.processor_slot(): os.kill(os.getpid(), signal.SIGKILL)")
        for _ in range(2):
            subprocess.run([sys.executable, "-c", script], check=False)
        self.assertEqual(self.peak_of_threads(), 2)

    def test_a_folder_that_others_can_change_is_not_used(self) -> None:
        os.chmod(_processors._slot_folder(), 0o777)
        self.assertGreater(self.peak_of_threads(), 2)


class ReadBytes(InFolder):
    """With the local schedulers of Dask."""

    def parts(self, data: bytes, delimiter=None):
        path = self.path("file.qrx", qrx.compress(data, block_mib=1, method=1, level=1))
        return dask.compute(*qrx.dask.read_bytes(path, delimiter), scheduler="threads")

    def check(self, data: bytes, delimiter: bytes, with_records: int) -> None:
        """Checks that the records of all parts are those of the whole."""
        parts = self.parts(data, delimiter)
        self.assertEqual(b"".join(parts), data)
        self.assertEqual(sum(map(bool, parts)), with_records)
        whole = data.split(delimiter)
        pieces = []
        for part in filter(None, parts):
            records = part.split(delimiter)
            if pieces:
                self.assertEqual(pieces.pop(), b"", "a part ends within a record")
            pieces += records
        self.assertEqual(pieces, whole)

    def test_blocks(self) -> None:
        self.assertEqual([len(part) for part in self.parts(text(2 * MIB + 5))], [MIB, MIB, 5])

    def test_empty_file(self) -> None:
        self.assertEqual(self.parts(b""), ())
        self.assertEqual(self.parts(b"", b"\n"), ())

    def test_lines(self) -> None:
        self.check(text(3 * MIB + 1000), b"\n", 4)

    def test_delimiters_around_a_block_boundary(self) -> None:
        for before in range(-3, 3):
            data = bytearray(b"x" * (2 * MIB))
            for end in (MIB + before, MIB + before + 9, 2 * MIB):
                data[end - 2:end] = b"\r\n"
            with self.subTest(before):
                self.check(bytes(data), b"\r\n", 2)

    def test_records_over_several_blocks(self) -> None:
        self.check(b"a|" + b"b" * (2 * MIB) + b"|c" + b"d" * (3 * MIB) + b"|", b"|", 2)
        self.check(b"a" * (3 * MIB), b"|", 1)

    def test_delimiters_that_overlap(self) -> None:
        self.cuts = 0
        for count in range(1, 9):
            for start in range(MIB - 8, MIB + 2):
                data = b"x" * start + b"\n" * count + b"y" * 20 + b"\n\nz"
                with self.subTest(count=count, start=start):
                    self.check_cuts(data, b"\n\n")
        self.assertEqual(self.cuts, 80)  # all: the second delimiter stands alone
        self.check(b"\n" * (2 * MIB + 1), b"\n\n", 1)

    def check_cuts(self, data: bytes, delimiter: bytes) -> None:
        """Like check(), but with two uncompressed blocks."""
        first, second = data[:MIB], data[MIB:]
        cut = _records.first_cut(second, delimiter)
        if cut is not None:
            whole = data.split(delimiter)
            self.cuts += 1
            left = (first + second[:cut]).split(delimiter)
            self.assertEqual(left.pop(), b"")
            self.assertEqual(left + second[cut:].split(delimiter), whole)

    def test_bad_delimiter(self) -> None:
        with self.assertRaises(ValueError):
            qrx.dask.read_bytes(self.path(content=image()), b"")

    def test_one_part_decodes_two_blocks(self) -> None:
        data = image()
        broken = with_short_block(data, 2)
        parts = qrx.dask.read_bytes(self.path(content=broken), b"\n")
        expected = text(3 * MIB + 1000)
        self.assertTrue(expected.startswith(parts[0].compute(scheduler="sync")))
        with self.assertRaises(qrx.CorruptError):
            parts[1].compute(scheduler="sync")

    def test_read_text(self) -> None:
        data = text(2 * MIB) + "\n\u2028\u00e4\x0b\r".encode()
        path = self.path(content=qrx.compress(data, block_mib=1))
        lines = qrx.dask.read_text(path).compute(scheduler="sync")
        self.assertEqual("".join(lines), data.decode())
        self.assertEqual(len(lines), data.count(b"\n") + 1)
        with self.assertRaises(ValueError):
            qrx.dask.read_text(path, encoding="utf-16")


class ReadCsv(InFolder):
    rows = pandas.DataFrame({"number": range(150_000),
                             "word": [f"word {n % 7}" for n in range(150_000)],
                             "half": [n / 2 for n in range(150_000)]})

    def packed(self, content: bytes) -> str:
        return self.path("rows.csv.qrx", qrx.compress(content, block_mib=1))

    def compute(self, frame):
        return frame.compute(scheduler="sync").reset_index(drop=True)

    def test_equals_pandas(self) -> None:
        path = self.packed(self.rows.to_csv(index=False).encode())
        frame = qrx.dask.read_csv(path)
        self.assertGreater(frame.npartitions, 2)
        pandas.testing.assert_frame_equal(self.compute(frame), self.rows)
        columns = qrx.dask.read_csv(path, usecols=["half"], dtype={"half": "float32"})
        pandas.testing.assert_frame_equal(self.compute(columns),
                                          self.rows[["half"]].astype("float32"))

    def test_without_header(self) -> None:
        path = self.packed(self.rows.to_csv(index=False, header=False).encode())
        frame = qrx.dask.read_csv(path, names=["number", "word", "half"])
        pandas.testing.assert_frame_equal(self.compute(frame), self.rows)

    def test_type_that_the_first_rows_do_not_show(self) -> None:
        path = self.packed(b"a,b\n" + b"1,x\n" * 400_000 + b"1.5,x\n")
        with self.assertRaisesRegex(ValueError, "column 'a' needs type float64.*dtype="):
            qrx.dask.read_csv(path).compute(scheduler="sync")
        frame = qrx.dask.read_csv(path, dtype={"a": float}).compute(scheduler="sync")
        self.assertEqual(frame["a"].sum(), 400_001.5)

    def test_parts_without_values(self) -> None:
        path = self.packed(b"a,b\n" + b"x,1\n" * 300_000 + b",1\n" * 500_000)
        frame = qrx.dask.read_csv(path, low_memory=False).compute(scheduler="sync")
        self.assertEqual(len(frame), 800_000)
        self.assertEqual(frame["a"].count(), 300_000)

    def test_categories(self) -> None:
        rows = b"a,b\n" + b"x,1\n" * 300_000 + b"y,1\n" * 300_000
        frame = qrx.dask.read_csv(self.packed(rows), dtype={"a": "category"})
        self.assertEqual(dict(self.compute(frame)["a"].value_counts()),
                         {"x": 300_000, "y": 300_000})

    def test_windows_line_ends_and_a_byte_order_mark(self) -> None:
        content = b"\xef\xbb\xbf" + self.rows.to_csv(index=False, lineterminator="\r\n").encode()
        frame = qrx.dask.read_csv(self.packed(content), encoding="utf-8-sig")
        pandas.testing.assert_frame_equal(self.compute(frame), self.rows)

    def test_files_that_need_a_parser_for_the_whole(self) -> None:
        for content, options in ((b"#\na\n1\n", {"comment": "#"}), (b"\na\n1\n", {}),
                                 (b"a\r1\r2\n", {}), (b"a\n1\n", {"header": 1}),
                                 (b"a;1;", {"lineterminator": ";"}),
                                 (b"a\n1\n", {"encoding": "utf-16"})):
            with self.subTest(content, **options), self.assertRaises(ValueError):
                qrx.dask.read_csv(self.packed(content), **options)

    def test_a_part_without_values_in_an_integer_column(self) -> None:
        rows = b"a,b\n" + b"1,x\n" * 300_000 + b",x\n" * 1_000_000
        with self.assertRaisesRegex(ValueError, "column 'a' needs type float64"):
            qrx.dask.read_csv(self.packed(rows)).compute(scheduler="sync")

    def with_row(self, content: bytes, row: bytes) -> str:
        """Compresses a CSV file in two blocks, after replacing the row after their boundary."""
        start = content.index(b"\n", MIB) + 1
        end = content.index(b"\n", start) + 1
        return self.packed(content[:start] + row + content[end:])

    def test_a_row_with_surplus_fields(self) -> None:
        """At the start of a part, pandas alone would take the first column as an index."""
        content = b"name,city\n" + b"Ann,Rome\n" * 200_000
        for header, options in ((True, {}), (True, {"usecols": ["city"]}),
                                (True, {"index_col": False}),
                                (False, {"names": ["name", "city"]})):
            path = self.with_row(content if header else content[10:], b"A,B,Rome\n")
            with self.subTest(header=header, **options), \
                    self.assertRaisesRegex(ValueError, "a row has 1 more fields than the header"):
                self.compute(qrx.dask.read_csv(path, **options))

    def test_surplus_fields_that_pandas_ignores(self) -> None:
        path = self.with_row(b"name,city\n" + b"Ann,Rome\n" * 200_000, b"A,B,Rome\n")
        frame = self.compute(qrx.dask.read_csv(path, usecols=["name"], index_col=False))
        self.assertEqual(dict(frame["name"].value_counts()), {"Ann": 199_999, "A": 1})

    def test_an_index_without_a_name(self) -> None:
        content = b"city\n" + b"Ann,Rome\n" * 200_000
        frame = qrx.dask.read_csv(self.packed(content)).compute(scheduler="sync")
        self.assertEqual((set(frame.index), set(frame["city"])), ({"Ann"}, {"Rome"}))
        with self.assertRaisesRegex(ValueError, "a row has 0 more fields than the header"):
            self.compute(qrx.dask.read_csv(self.packed(content + b"Rome\n" * 200_000)))

    def test_a_part_without_rows_of_a_file_with_an_index(self) -> None:
        content = b"city\n" + b"Ann,Rome\n" * ((MIB - 30) // 9)
        content += b"Eve," + b"x" * 60 + b"\n"  # ends in the second block, where no row starts
        self.assertLess(MIB, len(content))
        for end in (b"", b"\n\n"):
            frame = qrx.dask.read_csv(self.packed(content + end)).compute(scheduler="sync")
            self.assertEqual(list(frame.index[-2:]), ["Ann", "Eve"])

    def test_delimiters_at_the_ends_of_rows(self) -> None:
        rows = self.rows.to_csv(index=False).encode()
        header, _, rest = rows.partition(b"\n")
        path = self.packed(header + b"\n" + rest.replace(b"\n", b",\n"))
        frame = qrx.dask.read_csv(path, index_col=False)
        pandas.testing.assert_frame_equal(self.compute(frame), self.rows)

    def test_parts_that_start_with_blank_lines(self) -> None:
        path = self.with_row(b"a,b\n" + b"1,x\n" * 500_000, b"\n  \n1,x\n")
        frame = self.compute(qrx.dask.read_csv(path))
        self.assertEqual((len(frame), frame["a"].sum()), (500_000, 500_000))

    def test_a_sample_without_rows(self) -> None:
        path = self.packed(b"a,b\n" + b"1,2\n" * 400_000)
        frame = qrx.dask.read_csv(path, sample_size=1, dtype={"a": int, "b": int})
        self.assertEqual(self.compute(frame)["b"].sum(), 800_000)

    def test_options_for_whole_files(self) -> None:
        with self.assertRaisesRegex(ValueError, "nrows, skiprows"):
            qrx.dask.read_csv(self.packed(b"a\n1\n"), skiprows=1, nrows=5)
        for column in (0, "a"):
            with self.subTest(column), self.assertRaisesRegex(ValueError, "index_col"):
                qrx.dask.read_csv(self.packed(b"a\n1\n"), index_col=column)


if __name__ == "__main__":
    unittest.main()

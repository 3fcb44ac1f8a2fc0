"""Threads, the GIL, Ctrl-C, forked processes, the end of the program, and leaks."""

import gc
import io
import os
import signal
import subprocess
import sys
import textwrap
import threading
import time
import unittest
import weakref

import qrx
from common import MIB, InFolder, image, open_descriptors, text

SIZE = 3 * MIB + 1000


def in_threads(function: object, count: int) -> None:
    """Calls function(index) in threads at once, and raises what one of them raised."""
    errors = []

    def run(index: int) -> None:
        try:
            function(index)
        except BaseException as error:
            errors.append(error)

    threads = [threading.Thread(target=run, args=(index,)) for index in range(count)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    if errors:
        raise errors[0]


class Threads(InFolder):
    def test_different_files(self) -> None:
        def write_and_read(index: int) -> None:
            data = text(2 * MIB, index)
            path = self.path(f"{index}.qrx")
            for _ in range(3):
                with qrx.open(path, "wb", block_mib=1, level=1, threads=index % 3) as file:
                    file.write(data)
                with qrx.open(path, threads=index % 3) as file:
                    self.assertEqual(file.read(), data)

        in_threads(write_and_read, 6)

    def test_same_file(self) -> None:
        """Calls on one object take turns."""
        original = text(SIZE)
        with qrx.open(io.BytesIO(image())) as file:
            def read(index: int) -> None:
                buffer = bytearray(1000)
                for step in range(50):
                    with lock:
                        file.raw.seek((index * 50 + step) * 15_000)
                        start = file.raw.tell()
                        file.raw.readinto(buffer)
                    self.assertEqual(buffer, original[start:start + 1000])
                    self.assertIn(len(list(file.blocks())), (4,))

            lock = threading.Lock()
            in_threads(read, 4)

    def test_same_codec(self) -> None:
        with qrx.Codec(level=1, block_mib=1) as codec:
            expected = codec.compress(text(MIB))

            def work(index: int) -> None:
                for _ in range(5):
                    self.assertEqual(codec.compress(text(MIB)), expected)

            in_threads(work, 4)

    def test_gil_is_released(self) -> None:
        """Counts in another thread while a call runs that makes no callbacks for seconds."""
        ticks, done = [], threading.Event()

        def count() -> None:
            while not done.wait(0.005):
                ticks.append(time.monotonic())

        counter = threading.Thread(target=count)
        counter.start()
        started = time.monotonic()
        qrx.compress(text(4 * MIB), method=5, level=9)
        ended = time.monotonic()
        done.set()
        counter.join()
        self.assertGreater(ended - started, 0.1)
        during = [tick for tick in ticks if started < tick < ended]
        self.assertGreater(len(during), (ended - started) / 0.005 / 20)

    def test_close_waits_for_a_call(self) -> None:
        started, closed = threading.Event(), threading.Event()

        def progress(done: int, total: int) -> None:
            started.set()
            self.assertFalse(closed.wait(0.2))

        with qrx.open(io.BytesIO(image()), progress=progress) as file:
            def close(_: int) -> None:
                started.wait()
                file.raw.close()
                closed.set()

            closer = threading.Thread(target=close, args=(0,))
            closer.start()
            file.raw.readinto(bytearray(10))
            closer.join()
            self.assertTrue(closed.is_set())


class Interrupts(unittest.TestCase):
    def interrupt_soon(self) -> None:
        timer = threading.Timer(0.1, os.kill, (os.getpid(), signal.SIGINT))
        timer.start()
        self.addCleanup(timer.join)

    def test_between_blocks(self) -> None:
        data = text(MIB) * 200
        before = signal.getsignal(signal.SIGINT)
        seconds = []
        for progress in (None, lambda done, total: None):
            self.interrupt_soon()
            started = time.monotonic()
            with self.assertRaises(KeyboardInterrupt):
                qrx.compress(data, level=3, block_mib=1, progress=progress)
            seconds.append(time.monotonic() - started)
        self.assertIs(signal.getsignal(signal.SIGINT), before)
        started = time.monotonic()
        qrx.compress(data, level=3, block_mib=1)
        self.assertLess(max(seconds), (time.monotonic() - started) / 2)

    def test_in_a_callback_that_waits(self) -> None:
        self.interrupt_soon()
        started = time.monotonic()
        with self.assertRaises(KeyboardInterrupt):
            qrx.compress(text(1000), progress=lambda done, total: time.sleep(20))
        self.assertLess(time.monotonic() - started, 10)

    def test_in_a_file_in_a_file(self) -> None:
        class Slow(io.BytesIO):
            def readinto(self, buffer: object) -> int:
                time.sleep(0.05)
                return super().readinto(buffer)

        outer = qrx.compress(qrx.compress(os.urandom(10 * MIB), block_mib=1), block_mib=1)
        with qrx.open(Slow(outer)) as file, qrx.open(file) as inner:
            self.interrupt_soon()
            with self.assertRaises(KeyboardInterrupt):
                inner.read()
        self.assertIs(signal.getsignal(signal.SIGINT), signal.default_int_handler)


class Processes(InFolder):
    def run_python(self, code: str) -> "subprocess.CompletedProcess[str]":
        return subprocess.run([sys.executable, "-W", "error", "-c", textwrap.dedent(code)],
                              cwd=self.folder, capture_output=True, text=True, timeout=60)

    def check_python(self, code: str) -> None:
        result = self.run_python(code)
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_exit_with_open_handles(self) -> None:
        self.path(content=image())
        self.check_python("""
            import qrx
            reader = qrx.open("file.qrx", threads=2)
            reader.read(10)
            codec = qrx.Codec()
            iterator = qrx.blocks("file.qrx")
            next(iterator)
            keep = [reader, codec, iterator]
            keep.append(keep)
        """)

    def test_exit_with_an_unfinished_file(self) -> None:
        result = self.run_python("""
            import warnings
            warnings.simplefilter("ignore")
            import qrx
            writer = qrx.open("unfinished.qrx", "wb", threads=2, block_mib=1)
            writer.write(bytes(5 << 20))
        """)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertEqual(os.listdir(self.folder), [])

    def test_exit_during_a_call(self) -> None:
        """A daemon thread is in the library when the program ends."""
        self.check_python("""
            import threading, time
            import qrx
            codec = qrx.Codec(method=5, level=9)
            data = bytes(range(256)) * 80000
            started = threading.Event()
            def work():
                started.set()
                codec.compress(data)
            threading.Thread(target=work, daemon=True).start()
            started.wait()
            time.sleep(0.05)
        """)

    def test_forked_process_leaves_files_alone(self) -> None:
        self.check_python("""
            import os, warnings
            import qrx
            warnings.simplefilter("ignore")
            writer = qrx.open("file.qrx", "wb", threads=2, block_mib=1)
            writer.write(b"x" * (3 << 20))
            child = os.fork()
            if child == 0:
                writer.discard()
                os._exit(0)
            assert os.waitpid(child, 0)[1] == 0
            writer.close()
            assert qrx.test("file.qrx") == []
        """)


class Leaks(InFolder):
    def test_descriptors(self) -> None:
        path = self.path(content=qrx.compress(text(1000)))
        bad = self.path("bad.qrx", text(1000))
        gc.collect()
        before = open_descriptors()
        for index in range(1000):
            file = qrx.open(path)
            file.read(10)
            if index % 2:
                file.close()
            with self.assertRaises(qrx.NotQrxError):
                qrx.open(bad)
        del file
        self.assertEqual(open_descriptors(), before)

    def test_objects(self) -> None:
        class Source(io.BytesIO):
            pass

        sources = []
        for _ in range(10):
            source = Source(image())
            sources.append(weakref.ref(source))
            qrx.open(source).read(10)
            del source
        gc.collect()
        self.assertEqual([source() for source in sources], [None] * 10)

    def test_memory(self) -> None:
        def resident() -> int:
            with open("/proc/self/statm", encoding="ascii") as file:
                return int(file.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")

        def work() -> None:
            for _ in range(10):
                qrx.decompress(image())
                qrx.compress(text(MIB), level=1, block_mib=1)
                with self.assertRaises(qrx.TruncatedError):
                    qrx.decompress(image()[:5000])

        work()
        before = resident()
        for _ in range(3):
            work()
        self.assertLess(resident() - before, 30 * MIB)


if __name__ == "__main__":
    unittest.main()

"""qrx.fsspec: .qrx files opened by fsspec, pandas and Dask."""

import concurrent.futures
import gc
import importlib
import io
import os
import pickle
import shutil
import subprocess
import sys
import tarfile
import time
import unittest
import warnings
from typing import Any, Dict, List, Tuple
from unittest import mock

import qrx
from common import (
    HEADER_SIZE, MIB, InFolder, image, need_packages, noise, open_descriptors, records, text,
    with_short_block,
)

need_packages("fsspec")

import fsspec  # noqa: E402
import fsspec.caching  # noqa: E402
from fsspec.spec import AbstractBufferedFile, AbstractFileSystem  # noqa: E402

import qrx.fsspec  # noqa: E402

SIZE = 3 * MIB + 1000
ORIGINAL = text(SIZE)
LINES = ORIGINAL.decode("ascii").splitlines(keepends=True)


class StoreFile(AbstractBufferedFile):  # type: ignore[misc]
    """A file that can't seek when written, and appears as a whole when it is closed."""

    def _fetch_range(self, start: int, end: int) -> bytes:
        self.fs.requests.append((start, end - start))
        return self.fs.files[self.path][start:end]

    def _initiate_upload(self) -> None:
        self.parts: List[bytes] = []

    def _upload_chunk(self, final: bool = False) -> bool:
        self.parts.append(self.buffer.getvalue())
        if sum(map(len, self.parts)) > self.fs.capacity:
            raise OSError("the store is full")
        if final:
            self.fs.files[self.path] = b"".join(self.parts)
        return True


class Store(AbstractFileSystem):  # type: ignore[misc]
    """An object store in memory, which records the requests for data."""

    protocol = "store"
    files: Dict[str, bytes] = {}
    requests: List[Tuple[int, int]] = []
    capacity = 1 << 30

    def ls(self, path: str, detail: bool = True, **_: Any) -> List[Any]:
        return [self.info(name) if detail else name for name in sorted(self.files)]

    def info(self, path: str, **_: Any) -> Dict[str, Any]:
        path = self._strip_protocol(path)
        if path not in self.files:
            raise FileNotFoundError(path)
        return {"name": path, "size": len(self.files[path]), "type": "file"}

    def _open(self, path: str, mode: str = "rb", block_size: Any = None, autocommit: bool = True,
              cache_options: Any = None, **options: Any) -> StoreFile:
        return StoreFile(self, path, mode, block_size or "default", autocommit,
                         cache_options=cache_options, **options)


fsspec.register_implementation("store", Store, clobber=True)


class Test(InFolder):
    """A test that must leave no descriptor open, and raise no ResourceWarning."""

    def setUp(self) -> None:
        super().setUp()
        Store.files.clear()
        Store.requests.clear()
        self.addCleanup(fsspec.filesystem("memory").store.clear)
        fsspec.filesystem("file")
        caught = warnings.catch_warnings(record=True)
        self.warnings = caught.__enter__()
        self.addCleanup(self.check_resources, open_descriptors(), caught)
        warnings.simplefilter("always", ResourceWarning)

    def check_resources(self, descriptors: int, caught: Any) -> None:
        gc.collect()
        caught.__exit__(None, None, None)
        self.assertEqual(open_descriptors(), descriptors)
        self.assertEqual([str(warning.message) for warning in self.warnings
                          if warning.category is ResourceWarning], [])


class Reading(Test):
    def test_infer_from_the_suffix(self) -> None:
        path = self.path("x.txt.qrx", image())
        for url in (path, "file://" + path):
            for mode in ("rb", "r", "rt"):
                with fsspec.open(url, mode, compression="infer") as file:
                    content = file.read()
                self.assertEqual(content, ORIGINAL if mode == "rb" else ORIGINAL.decode())
                self.assertTrue(file.closed)

    def test_named_compression(self) -> None:
        path = self.path("x", image())
        with fsspec.open(path, compression="qrx") as file:
            self.assertEqual(file.size, SIZE)
            self.assertEqual(file.read(), ORIGINAL)
        with fsspec.open(path, compression="infer") as file:
            self.assertEqual(file.read(), image())

    def test_lines(self) -> None:
        path = self.path("x.txt.qrx", image())
        with fsspec.open(path, "rt", compression="infer", encoding="ascii") as file:
            self.assertEqual(list(file), LINES)

    def test_closing_the_result_closes_the_inner_file(self) -> None:
        path = self.path("x.txt.qrx", image())
        before = open_descriptors()
        for mode in ("rb", "rt"):
            file = fsspec.open(path, mode, compression="infer").open()
            self.assertEqual(open_descriptors(), before + 1)
            self.assertTrue(file.read(10))
            file.close()
            self.assertEqual(open_descriptors(), before)
        with fsspec.filesystem("file").open(path, compression="infer") as file:
            self.assertEqual(open_descriptors(), before + 1)
        self.assertEqual(open_descriptors(), before)

    def test_an_error_closes_the_inner_file(self) -> None:
        before = open_descriptors()
        opener = fsspec.open(self.path("x.qrx", b"not compressed" * 9), compression="infer")
        try:
            opener.open()
        except qrx.NotQrxError as error:
            self.assertIn("x.qrx", str(error))
            self.assertEqual(open_descriptors(), before)  # while the traceback has the frames
        else:
            self.fail("no exception")

    def test_empty_original(self) -> None:
        path = self.path("x.txt.qrx", qrx.compress(b""))
        for mode in ("rb", "rt"):
            with fsspec.open(path, mode, compression="infer") as file:
                self.assertFalse(file.read())
        with self.assertRaises(qrx.QrxError):
            with fsspec.open(self.path("empty.qrx", b""), compression="infer"):
                pass

    def test_damage(self) -> None:
        damaged = bytearray(image(seal=True))
        damaged[-1] ^= 1
        cases = [(with_short_block(image(), 1), qrx.CorruptError),
                 (bytes(damaged), qrx.ChecksumError),
                 (image()[:2 * len(image()) // 3], qrx.TruncatedError)]
        for content, kind in cases:
            path = self.path("x.txt.qrx", content)
            Store.files["x.txt.qrx"] = content
            for url, compression in ((path, "infer"), (f"qrx://x.txt::file://{path}", None),
                                     ("store://x.txt.qrx", "qrx"),
                                     ("qrx://::store://x.txt.qrx", None)):
                for mode in ("rb", "rt"):
                    with fsspec.open(url, mode, compression=compression) as file:
                        with self.assertRaisesRegex(kind, "x.txt.qrx: "):
                            file.read()

    def test_open_files_with_a_path(self) -> None:
        """Open local files of newer versions of fsspec are path-like."""

        class WithPath(io.BytesIO):
            def __fspath__(self) -> str:
                return "/no/such/file"

        for function in (qrx.open, qrx.fsspec.Compression()):
            source = WithPath(b"+" * 9 + image())
            source.seek(9)
            with function(source, "rb") as file:
                self.assertEqual(file.read(), ORIGINAL)

    def test_other_chains(self) -> None:
        path = self.path("x.txt.qrx", image())
        with fsspec.open(f"qrx://x.txt::simplecache::file://{path}") as file:
            self.assertEqual(file.read(), ORIGINAL)
        with qrx.open(self.path("a.tar.qrx"), "wb") as file:
            with tarfile.open(fileobj=file, mode="w") as tar:
                tar.add(path, "member")
        for url in ("tar://member::", "tar://member::qrx://a.tar::"):
            opener = fsspec.open(url + "file://" + self.path("a.tar.qrx"))
            with opener as file:
                self.assertEqual(file.read(), image())
            opener.fs.fo.close()  # else it stays open as long as its file system


class Requests(Test):
    """How much of a remote file is fetched."""

    def setUp(self) -> None:
        super().setUp()
        parts = [noise(MIB, seed) for seed in range(20)]
        self.original = b"".join(parts)
        self.image = qrx.compress(self.original, block_mib=1, method=1, level=0)
        self.records = records(self.image, 20)
        Store.files["x.qrx"] = self.image

    def fetched(self) -> int:
        total = sum(size for _, size in Store.requests)
        Store.requests.clear()
        return total

    def test_opening_reads_record_heads(self) -> None:
        for url, compression in (("store://x.qrx", "qrx"), ("qrx://x::store://x.qrx", None)):
            with fsspec.open(url, compression=compression) as file:
                self.assertLess(len(Store.requests), 25)
                self.assertLess(self.fetched(), 200_000)
                file.seek(7 * MIB + 100)
                self.assertEqual(file.read(500), self.original[7 * MIB + 100:7 * MIB + 600])
                record = self.records[7]
                self.assertEqual(Store.requests, [(record.payload, record.size)])
                Store.requests.clear()
                self.assertEqual(file.read(500), self.original[7 * MIB + 600:7 * MIB + 1100])
                self.assertEqual(Store.requests, [])

    def test_everything_is_fetched_once(self) -> None:
        with fsspec.open("store://x.qrx", compression="qrx") as file:
            self.fetched()
            self.assertEqual(file.read(), self.original)
            self.assertLess(self.fetched(), len(self.image) + 1000)

    def test_small_records_share_requests(self) -> None:
        block = noise(1000) + bytes(MIB - 1000)
        Store.files["x.qrx"] = qrx.compress(block * 50, block_mib=1, method=1, level=0)
        self.assertGreater(len(Store.files["x.qrx"]), 50_000)
        with fsspec.open("store://x.qrx", compression="qrx") as file:
            self.assertEqual(file.read(), block * 50)
        self.assertLess(len(Store.requests), 10)
        self.assertLess(self.fetched(), 2 * len(Store.files["x.qrx"]))

    def test_info_reads_the_header(self) -> None:
        self.assertEqual(fsspec.filesystem("qrx", fo="store://x.qrx").info("x")["size"], 20 * MIB)
        self.assertLess(self.fetched(), 100_000)
        fsspec.open("qrx://x::store://x.qrx")
        self.assertEqual(Store.requests, [])

    def test_a_chosen_cache_is_left_alone(self) -> None:
        for cache in ("none", "block"):
            inner = fsspec.filesystem("store").open("x.qrx", cache_type=cache)
            with qrx.fsspec.Compression()(inner) as file:
                self.assertIs(type(inner.cache), fsspec.caching.caches[cache])
                self.assertEqual(file.read(100), self.original[:100])

    def test_cache_ranges(self) -> None:
        data = noise(3_000_000)
        sizes = (1, 5, 5, 4000, 70_000, 1_500_000)
        for seed in range(20):
            cache = qrx.fsspec.RecordCache(0, lambda start, end: data[start:end], len(data))
            values = noise(4 * 60, seed)
            position = 0
            for index in range(60):
                value = int.from_bytes(values[4 * index:4 * index + 4], "little")
                size = sizes[value % len(sizes)]
                if value & 0x700000 == 0:
                    position = value % len(data)
                self.assertEqual(cache._fetch(position, position + size),
                                 data[position:position + size])
                position += size + (value >> 8) % 100
            self.assertEqual(cache._fetch(None, None), data)
            self.assertEqual(cache._fetch(len(data), None), b"")


class Writing(Test):
    URLS = ("memory://folder/x.txt.qrx", "store://x.txt.qrx")

    def urls(self) -> List[str]:
        return [self.path("x.txt.qrx"), *self.URLS]

    def content(self, url: str) -> bytes:
        with fsspec.open(url, "rb") as file:
            data: bytes = file.read()
            return data

    def test_round_trip(self) -> None:
        for url in self.urls():
            for original in (ORIGINAL, b""):
                with fsspec.open(url, "wb", compression="infer") as file:
                    file.write(original)
                self.assertEqual(qrx.decompress(self.content(url)), original)
            with fsspec.open(url, "wt", compression="infer", encoding="ascii") as file:
                file.writelines(LINES)
            self.assertEqual(qrx.decompress(self.content(url)), ORIGINAL)
            self.assertTrue(qrx.info(io.BytesIO(self.content(url))).sealed)

    def test_closing_the_result_completes_the_file(self) -> None:
        for url in self.urls():
            for mode in ("wb", "wt"):
                file = fsspec.open(url, mode, compression="infer").open()
                file.write("text" if mode == "wt" else b"text")
                file.close()
                self.assertEqual(qrx.decompress(self.content(url)), b"text")

    def test_an_exception_leaves_no_valid_file(self) -> None:
        for url in self.urls():
            for mode in ("wb", "wt"):
                opener = fsspec.open(url, mode, compression="infer")
                for context in (opener, opener.open() if mode == "wb" else opener):
                    with self.assertRaises(KeyError):
                        with context as file:
                            file.write("text" * MIB if mode == "wt" else b"text" * MIB)
                            raise KeyError
                    if url.startswith("store"):
                        self.assertEqual(Store.files, {})
                    else:
                        with self.assertRaises(qrx.QrxError):
                            qrx.decompress(self.content(url))
                    opener.close()

    def test_several_files_and_an_exception(self) -> None:
        files = fsspec.open_files("store://*.qrx", "wb", compression="infer", num=2)
        with self.assertRaises(KeyError):
            with files as opened:
                for file in opened:
                    file.write(b"text")
                raise KeyError
        self.assertEqual(Store.files, {})

    def test_a_file_closed_in_an_exception_handler_is_complete(self) -> None:
        for url in self.urls():
            try:
                raise KeyError
            except KeyError:
                with fsspec.open(url, "wb", compression="infer") as file:
                    file.write(b"text")
            self.assertEqual(qrx.decompress(self.content(url)), b"text")
            opener = fsspec.open(url, "wb", compression="infer")
            file = opener.open()
            try:
                file.write(b"more")
                raise KeyError
            except KeyError:
                opener.close()
            self.assertEqual(qrx.decompress(self.content(url)), b"more")

    def test_another_file_closed_meanwhile_is_complete(self) -> None:
        """Only the file whose with block failed is discarded."""
        other = fsspec.open("store://other.qrx", "wb", compression="qrx").open()
        other.write(b"text")

        class Closing(io.BytesIO):
            def close(self) -> None:
                other.close()
                super().close()

        opener = fsspec.open("store://x.qrx", "wb")
        with self.assertRaises(KeyError):
            with opener:
                opener.fobjects.append(Closing())
                raise KeyError
        self.assertEqual(qrx.decompress(Store.files["other.qrx"]), b"text")

    def test_transactions(self) -> None:
        fs = fsspec.filesystem("file")
        path = self.path("x.txt.qrx")
        with self.assertRaises(KeyError):
            with fs.transaction, fs.open(path, "wb", compression="infer") as file:
                file.write(b"text")
                raise KeyError
        with self.assertRaises(KeyError):
            with fs.transaction:
                with fs.open(path, "wb", compression="infer") as file:
                    file.write(b"text")
                raise KeyError
        with self.assertRaises(KeyError):
            with fs.transaction, fsspec.open(path, "wb", compression="infer") as file:
                raise KeyError
        self.assertEqual(os.listdir(self.folder), [])
        with fs.transaction:
            with fs.open(path, "wb", compression="infer") as file:
                file.write(b"text")
            self.assertEqual(os.listdir(self.folder), [])
        self.assertEqual(qrx.decompress(self.content(path)), b"text")

    def test_a_failed_upload(self) -> None:
        with mock.patch.object(Store, "capacity", 1000):
            with self.assertRaisesRegex(OSError, "full"):
                with fsspec.open("store://x.qrx", "wb", compression="qrx") as file:
                    file.write(noise(6 * MIB))
        self.assertEqual(Store.files, {})

    def test_options(self) -> None:
        self.addCleanup(qrx.fsspec.register)
        qrx.fsspec.register(method=5, level=2, block_mib=1, seal=False, threads=2)
        with fsspec.open("store://x.qrx", "wb", compression="qrx") as file:
            file.write(ORIGINAL)
        info = qrx.info(io.BytesIO(Store.files["x.qrx"]))
        self.assertEqual((info.method, info.level, info.blocks, info.sealed), (5, 2, 4, False))
        for options in ({"method": 6}, {"threads": 257}, {"memory_limit": -1}, {"filter": "x"}):
            with self.assertRaises(ValueError):
                qrx.fsspec.register(**options)
        with fsspec.open("store://x.qrx", compression="qrx") as file:
            self.assertEqual(file.read(), ORIGINAL)

    def test_other_modes(self) -> None:
        for url in (self.path("x.txt.qrx"), "store://x.txt.qrx"):
            with self.assertRaisesRegex(ValueError, "mode 'a'"):
                with fsspec.open(url, "ab", compression="qrx"):
                    pass
        self.assertEqual(Store.files, {})


class Registration(Test):
    def test_again(self) -> None:
        self.addCleanup(qrx.fsspec.register)
        fsspec.compression.register_compression("qrx", open, "qrx", force=True)
        module = sys.modules["qrx.fsspec"]
        with mock.patch.dict(sys.modules):
            del sys.modules["qrx.fsspec"]
            with mock.patch.object(qrx, "fsspec", module):
                importlib.import_module("qrx.fsspec")
                with fsspec.open(self.path("x.qrx", image()), compression="infer") as file:
                    self.assertEqual(file.read(), ORIGINAL)

    def run_python(self, program: str, data: bytes) -> bytes:
        return subprocess.run([sys.executable, "-B", "-c", program], input=data, check=True,
                              capture_output=True, timeout=60).stdout

    def test_unpickling_registers(self) -> None:
        path = self.path("x.qrx", image())
        for opener in (fsspec.open(path, compression="infer"),
                       fsspec.open(f"qrx://x::file://{path}")):
            output = self.run_python(
                "import pickle, sys\n"
                "with pickle.load(sys.stdin.buffer) as file: print(file.read()[:9])",
                pickle.dumps(opener))
            self.assertEqual(output.decode().strip(), str(ORIGINAL[:9]))

    def test_the_entry_point_exists(self) -> None:
        project = os.path.join(os.path.dirname(qrx.__file__), "..", "pyproject.toml")
        with open(project, encoding="utf-8") as file:
            _, entry = file.read().split('[project.entry-points."fsspec.specs"]\n')
        self.assertEqual(entry.splitlines()[0], 'qrx = "qrx.fsspec:QrxFileSystem"')


class FileSystem(Test):
    def setUp(self) -> None:
        super().setUp()
        self.url = "file://" + self.path("x.txt.qrx", image())
        self.fs = fsspec.filesystem("qrx", fo=self.url)

    def test_listing(self) -> None:
        entry = {"name": "x.txt", "size": SIZE, "type": "file"}
        self.assertEqual(self.fs.ls("", detail=True), [entry])
        self.assertEqual(self.fs.ls("", detail=False), ["x.txt"])
        self.assertEqual(self.fs.info("x.txt"), entry)
        self.assertEqual(self.fs.info("qrx://x.txt"), entry)
        self.assertEqual(self.fs.size("x.txt"), SIZE)
        self.assertEqual(self.fs.find(""), ["x.txt"])
        self.assertEqual(self.fs.glob("*.txt"), ["x.txt"])
        self.assertEqual(self.fs.info("")["type"], "directory")
        self.assertTrue(self.fs.exists("x.txt") and self.fs.isfile("x.txt"))
        self.assertFalse(self.fs.exists("y.txt"))
        for function in (self.fs.info, self.fs.open):
            with self.assertRaises(FileNotFoundError):
                function("y.txt")

    def test_names(self) -> None:
        for name, member in (("x.QRX", "x"), (".qrx", "original"), ("a b.qrx", "a b"),
                             ("plain", "plain"), ("a.qrx.qrx", "a.qrx"), ("q?x.qrx", "q?x")):
            Store.files["folder/" + name] = image()
            fs = fsspec.filesystem("qrx", fo="store://folder/" + name)
            self.assertEqual(fs.ls("", detail=False), [member])
        fs = fsspec.filesystem("qrx", fo=io.BytesIO(image()))
        self.assertEqual(fs.ls("", detail=False), ["original"])
        self.assertEqual(qrx.fsspec._member_name("http://host/a/x.csv.qrx?key=1/2#3"), "x.csv")

    def test_positions(self) -> None:
        with open(self.path("plain", b"+" * 9 + image()), "rb") as plain:
            plain.seek(9)
            for fs in (self.fs, fsspec.filesystem("qrx", fo=plain)):
                with fs.open("") as first, fs.open(fs.ls("", detail=False)[0]) as second:
                    first.seek(2 * MIB)
                    self.assertEqual(second.read(100), ORIGINAL[:100])
                    self.assertEqual(first.read(100), ORIGINAL[2 * MIB:2 * MIB + 100])
                    self.assertEqual(second.read(), ORIGINAL[100:])
                    self.assertEqual(first.name, fs.ls("", detail=False)[0])
                self.assertFalse(plain.closed)

    def test_threads(self) -> None:
        class Slow(io.BytesIO):
            def seek(self, *arguments: int) -> int:
                result = super().seek(*arguments)
                time.sleep(0.001)  # lets another thread run
                return result

        fs = fsspec.filesystem("qrx", fo=Slow(image()))

        def read(index: int) -> bytes:
            with fs.open("") as file:
                file.seek(index * 500_000)
                data: bytes = file.read(200_000)
                return data

        with concurrent.futures.ThreadPoolExecutor(4) as pool:
            for index, data in enumerate(pool.map(read, range(7))):
                self.assertEqual(data, ORIGINAL[index * 500_000:][:200_000])

    def test_cat(self) -> None:
        self.assertEqual(self.fs.cat_file("x.txt"), ORIGINAL)
        self.assertEqual(self.fs.cat_file("x.txt", 100, 200), ORIGINAL[100:200])
        self.assertEqual(self.fs.cat_file("x.txt", -100, -50), ORIGINAL[-100:-50])
        self.assertEqual(self.fs.head("x.txt", 10), ORIGINAL[:10])
        self.assertEqual(self.fs.tail("x.txt", 10), ORIGINAL[-10:])

    def test_cat_ranges(self) -> None:
        Store.files["x.txt.qrx"] = image()
        fs = fsspec.filesystem("qrx", fo="store://x.txt.qrx")
        starts = [2 * MIB, 10, None, -10, 2 * MIB + 99, 50]
        ends = [2 * MIB + 99, 20, 5, None, 2 * MIB + 100, 40]
        expected = [ORIGINAL[start:end] for start, end in zip(starts, ends)]
        self.assertEqual(fs.cat_ranges(["x.txt"] * 6, starts, ends), expected)
        payloads = [request for request in Store.requests if request[1] > 100_000]
        self.assertLessEqual(len(payloads), 4)  # each block at most once
        self.assertEqual(fs.cat_ranges(["x.txt"] * 2, 5, 7), [ORIGINAL[5:7]] * 2)
        results = fs.cat_ranges(["x.txt", "y.txt"], 0, 5)
        self.assertEqual(results[0], ORIGINAL[:5])
        self.assertIsInstance(results[1], FileNotFoundError)
        with self.assertRaises(FileNotFoundError):
            fs.cat_ranges(["x.txt", "y.txt"], 0, 5, on_error="raise")
        with self.assertRaises(ValueError):
            fs.cat_ranges(["x.txt"], [1, 2], [3])

    def test_only_reading(self) -> None:
        for mode in ("wb", "ab", "xb", "r+b"):
            with self.assertRaisesRegex(io.UnsupportedOperation, "read-only"):
                self.fs.open("x.txt", mode)
        with self.assertRaisesRegex(io.UnsupportedOperation, "read-only"):
            fsspec.open("qrx://x.txt::" + self.url, "wb").open()
        with self.assertRaisesRegex(io.UnsupportedOperation, "read-only"):
            fsspec.filesystem("qrx", fo=self.url, mode="w")

    def test_without_a_target(self) -> None:
        with self.assertRaisesRegex(ValueError, "qrx://NAME::"):
            fsspec.open("qrx:///folder/x.txt.qrx")

    def test_pickling(self) -> None:
        copy = pickle.loads(pickle.dumps(self.fs))
        self.assertEqual(copy, self.fs)
        self.assertEqual(copy.cat_file("x.txt", 5, 10), ORIGINAL[5:10])
        opener = pickle.loads(pickle.dumps(fsspec.open("qrx://::" + self.url, "rt")))
        with opener as file:
            self.assertEqual(file.readline(), LINES[0])

    def test_options_of_a_chain(self) -> None:
        opener = fsspec.open("qrx://x.txt::" + self.url, qrx={"threads": 2, "memory_limit": 1})
        with self.assertRaises(qrx.OverLimitError):
            with opener as file:
                file.read()
        with self.assertRaises(ValueError):
            fsspec.open("qrx://x.txt::" + self.url, qrx={"threads": -1})

    def test_key(self) -> None:
        key = self.fs.ukey("x.txt")
        self.assertEqual(fsspec.filesystem("qrx", fo=self.url).ukey("x.txt"), key)
        self.path("x.txt.qrx", qrx.compress(b"another"))
        self.assertNotEqual(self.fs.ukey("x.txt"), key)
        self.fs.invalidate_cache()
        self.assertEqual(self.fs.size("x.txt"), len(b"another"))

    def test_damaged_header(self) -> None:
        for content, kind in ((b"x" * HEADER_SIZE, qrx.NotQrxError), (b"", qrx.QrxError)):
            self.path("x.txt.qrx", content)
            with self.assertRaisesRegex(kind, "x.txt.qrx: "):
                self.fs.info("x.txt")


class Pandas(Test):
    def setUp(self) -> None:
        need_packages("pandas")
        import pandas

        self.pandas = pandas
        super().setUp()
        self.table = pandas.DataFrame({"a": range(5000),
                                       "b": [f"word {n % 7}" for n in range(5000)]})
        packed = qrx.compress(self.table.to_csv(index=False).encode())
        self.csv = self.path("x.csv.qrx", packed)
        with fsspec.open("memory://x.csv.qrx", "wb") as file:
            file.write(packed)

    def check(self, source: Any, **options: Any) -> None:
        self.assertTrue(self.pandas.read_csv(source, **options).equals(self.table))

    def test_urls(self) -> None:
        for target in (self.csv, "file://" + self.csv, "memory://x.csv.qrx"):
            self.check("qrx://x.csv::" + target)
            self.check("qrx://::" + target)
        self.check("memory://x.csv.qrx", storage_options={"compression": "infer"})
        chunks = self.pandas.read_csv("qrx://::" + self.csv, chunksize=1000)
        with chunks:
            self.assertTrue(self.pandas.concat(chunks).equals(self.table))

    def test_relative_path(self) -> None:
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(self.folder)
        self.check("qrx://::x.csv.qrx")

    def test_file_objects(self) -> None:
        for mode in ("rb", "rt"):
            with fsspec.open(self.csv, mode, compression="infer") as file:
                self.check(file)
        with qrx.open(self.csv) as file:
            self.check(file)

    def test_pandas_opens_local_paths_itself(self) -> None:
        """python/README.md says so; if one of these works in a later version, shorten it."""
        infer = {"storage_options": {"compression": "infer"}}
        for source in (self.csv, "file://" + self.csv):
            for options in ({}, {"compression": "qrx"}, infer):
                with self.assertRaises(ValueError):
                    self.pandas.read_csv(source, **options)

    def test_writing(self) -> None:
        self.table.to_csv("store://y.csv.qrx", index=False,
                          storage_options={"compression": "infer"})
        self.check("qrx://y.csv::store://y.csv.qrx")
        with fsspec.open(self.path("y.csv.qrx"), "wt", compression="infer", newline="") as file:
            self.table.to_csv(file, index=False)
        self.check("qrx://::" + self.path("y.csv.qrx"))

    def test_damage(self) -> None:
        damaged = bytearray(image())
        damaged[-1] ^= 1
        self.path("x.csv.qrx", bytes(damaged))
        with self.assertRaises(qrx.ChecksumError):
            self.pandas.read_csv("qrx://::" + self.csv, sep="\t", header=None)


class Dask(InFolder):
    """Dask without a cluster."""

    def setUp(self) -> None:
        need_packages("dask.dataframe", "dask.bag", "pandas")
        super().setUp()
        write_parts(self)

    def test_read_csv(self) -> None:
        import dask.dataframe

        for compression in ("qrx", "infer"):
            frame = dask.dataframe.read_csv(self.path("x*.csv.qrx"), compression=compression,
                                            blocksize=None)
            self.assertEqual(frame.npartitions, 3)
            self.assertEqual(frame["a"].sum().compute(scheduler="threads"), PART_SUM)

    def test_partitions_of_one_file(self) -> None:
        import dask.dataframe

        url = "qrx://x0.csv::file://" + self.path("x0.csv.qrx")
        frame = dask.dataframe.read_csv(url, blocksize=20_000)
        self.assertGreater(frame.npartitions, 2)
        self.assertEqual(list(frame["a"].compute(scheduler="threads")), list(range(PART_ROWS)))

    def test_a_url_without_a_name_is_not_an_empty_file(self) -> None:
        import dask.dataframe

        url = "qrx://::file://" + self.path("x0.csv.qrx")
        with self.assertRaisesRegex(ValueError, "blocksize=None"):
            dask.dataframe.read_csv(url, blocksize=20_000)
        frame = dask.dataframe.read_csv(url, blocksize=None)
        self.assertEqual(len(frame.compute(scheduler="threads")), PART_ROWS)

    def test_read_text(self) -> None:
        import dask.bag

        bag = dask.bag.read_text(self.path("x*.csv.qrx"), compression="infer")
        self.assertEqual(bag.count().compute(scheduler="threads"), 3 * (PART_ROWS + 1))

    def test_read_text_in_processes(self) -> None:
        """The default of bags.  The name of the compression registers it in each process."""
        import dask.bag

        bag = dask.bag.read_text(self.path("x*.csv.qrx"), compression="infer")
        self.assertEqual(bag.count().compute(scheduler="processes", num_workers=1),
                         3 * (PART_ROWS + 1))

    def test_damage(self) -> None:
        import dask.dataframe

        self.path("x1.csv.qrx", with_short_block(image(), 0))
        frame = dask.dataframe.read_csv(self.path("x*.csv.qrx"), blocksize=None)
        with self.assertRaisesRegex(qrx.CorruptError, "x1.csv.qrx: "):
            frame.compute(scheduler="threads")


PART_ROWS = 10_000
PART_SUM = 3 * sum(range(PART_ROWS))


def write_parts(test: InFolder) -> None:
    lines = "a,b\n" + "".join(f"{n},word\n" for n in range(PART_ROWS))
    for index in range(3):
        test.path(f"x{index}.csv.qrx", qrx.compress(lines.encode()))


class Cluster(InFolder):
    """Dask on a cluster of worker processes."""

    def setUp(self) -> None:
        need_packages("dask.dataframe", "dask.bag", "distributed", "pandas")
        import distributed

        super().setUp()
        write_parts(self)
        self.cluster = distributed.LocalCluster(
            n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None,
            local_directory=self.folder, silence_logs=50)
        self.addCleanup(self.cluster.close)
        self.client = distributed.Client(self.cluster)
        self.addCleanup(self.client.close)

    def registered(self) -> List[bool]:
        found = self.client.run(fsspec.available_compressions)
        return ["qrx" in names for names in found.values()]

    def test_workers(self) -> None:
        import dask.bag
        import dask.dataframe

        self.assertEqual(self.registered(), [False, False])
        frame = dask.dataframe.read_csv(self.path("x*.csv.qrx"), compression="qrx",
                                        blocksize=None)
        qrx.fsspec.register_workers(self.client, threads=1)
        self.assertEqual(self.registered(), [True, True])
        self.assertEqual(frame["a"].sum().compute(), PART_SUM)
        qrx.fsspec.register_workers(self.client)  # again is harmless

        self.cluster.scale(3)
        self.client.wait_for_workers(3)
        deadline = time.monotonic() + 30
        while len(self.registered()) < 3 and time.monotonic() < deadline:
            time.sleep(0.05)
        self.assertEqual(self.registered(), [True] * 3)

        bag = dask.bag.read_text(self.path("x*.csv.qrx"), compression="infer")
        self.assertEqual(bag.count().compute(), 3 * (PART_ROWS + 1))
        url = "qrx://x0.csv::file://" + self.path("x0.csv.qrx")
        frame = dask.dataframe.read_csv(url, blocksize=20_000)
        self.assertEqual(len(frame), PART_ROWS)

        shutil.copy(self.path("x0.csv.qrx"), self.path("y0.csv.qrx"))
        self.path("y1.csv.qrx", with_short_block(image(), 0))
        frame = dask.dataframe.read_csv(self.path("y*.csv.qrx"), blocksize=None)
        with self.assertRaisesRegex(qrx.CorruptError, "y1.csv.qrx: "):
            frame.compute()


if __name__ == "__main__":
    unittest.main()

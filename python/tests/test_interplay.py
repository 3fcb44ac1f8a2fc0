"""Use by other modules."""

import io
import shutil
import tarfile
import unittest
import zipfile

import qrx
from common import MIB, InFolder, image, need_packages, noise, text

MEMBERS = {f"folder/{index}": noise(50_000, index) + text(100_000, index) for index in range(10)}


class Interplay(InFolder):
    def test_tarfile(self) -> None:
        with qrx.open(self.path(), "wb", block_mib=1, level=1) as file:
            with tarfile.open(fileobj=file, mode="w") as tar:
                for name, data in MEMBERS.items():
                    entry = tarfile.TarInfo(name)
                    entry.size = len(data)
                    tar.addfile(entry, io.BytesIO(data))
        with qrx.open(self.path()) as file, tarfile.open(fileobj=file) as tar:
            self.assertEqual(tar.getnames(), list(MEMBERS))
            for name in reversed(tar.getnames()):
                self.assertEqual(tar.extractfile(name).read(), MEMBERS[name])
        with qrx.open(self.path()) as file, tarfile.open(fileobj=file, mode="r|") as tar:
            self.assertEqual({entry.name: tar.extractfile(entry).read() for entry in tar}, MEMBERS)

    def test_zipfile(self) -> None:
        with qrx.open(self.path(), "wb", block_mib=1, level=1) as file:
            with zipfile.ZipFile(file, "w") as archive:
                for name, data in MEMBERS.items():
                    archive.writestr(name, data)
        with qrx.open(self.path()) as file, zipfile.ZipFile(file) as archive:
            self.assertEqual(archive.namelist(), list(MEMBERS))
            self.assertEqual(archive.read("folder/7"), MEMBERS["folder/7"])
            self.assertIsNone(archive.testzip())

    def test_text_wrapper(self) -> None:
        file = qrx.open(io.BytesIO(image()))
        with io.TextIOWrapper(file, "ascii") as wrapper:
            self.assertEqual(wrapper.readline(), text(1000).decode().split("\n")[0] + "\n")
            position = wrapper.tell()
            line = wrapper.readline()
            wrapper.seek(position)
            self.assertEqual(wrapper.readline(), line)
        self.assertTrue(file.closed)

    def test_buffered_reader(self) -> None:
        with io.BufferedReader(qrx.open(io.BytesIO(image()))) as file:
            self.assertEqual(file.read(), text(3 * MIB + 1000))

    def test_copyfileobj(self) -> None:
        with qrx.open(self.path(), "wb", block_mib=1) as file:
            shutil.copyfileobj(io.BytesIO(text(2 * MIB)), file)
        copy = io.BytesIO()
        with qrx.open(self.path()) as file:
            shutil.copyfileobj(file, copy)
        self.assertEqual(copy.getvalue(), text(2 * MIB))

    def test_pandas(self) -> None:
        need_packages("pandas")
        import pandas

        table = pandas.DataFrame({"a": range(5000), "b": [f"word {n % 7}" for n in range(5000)]})
        with qrx.open(self.path(), "wt", encoding="utf-8", newline="") as file:
            table.to_csv(file, index=False)
        with qrx.open(self.path()) as file:
            self.assertTrue(pandas.read_csv(file).equals(table))
        with qrx.open(self.path(), "rt", encoding="utf-8") as file:
            self.assertTrue(pandas.read_csv(file).equals(table))
        with qrx.open(self.path("binary.qrx"), "wb") as file:
            table.to_csv(file, index=False)
        with qrx.open(self.path("binary.qrx")) as file:
            self.assertTrue(pandas.read_csv(file).equals(table))


if __name__ == "__main__":
    unittest.main()

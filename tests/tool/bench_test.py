"""Tests of qrx bench: figures, front, table, JSON, plot and failures."""

import os
import re
import signal
import subprocess
import time
import unittest
import xml.etree.ElementTree as ET

from qrx_schema import json_objects
from qrx_tool import QRX, ToolTest, random_bytes, run, text

SVG = "{http://www.w3.org/2000/svg}"
ROW = re.compile(r"^([* ]) +(\d\d) +((?:-\d,?)*) *(\d\.\d{4}) +([\d.]+) +([\d.]+) ")


def dominates(other, one):
    """True if `other` is at least as fast and as small as `one`, and better in one of these."""
    return (other["compress_mb_s"] >= one["compress_mb_s"]
            and other["compressed_size"] <= one["compressed_size"]
            and (other["compress_mb_s"] > one["compress_mb_s"]
                 or other["compressed_size"] < one["compressed_size"]))


class BenchTest(ToolTest):
    def bench(self, *args, **options):
        return self.qrx("bench", "--seconds", "0", *args, **options)

    def objects(self, *args, **options):
        done = self.bench("--json", *args, **options)
        return json_objects(done.stdout)

    def rows(self, output):
        """Returns (mark, cell, presets, ratio) of each row of a table."""
        found = (ROW.match(line) for line in output.decode().splitlines())
        return [(row[1], int(row[2]), row[3], float(row[4])) for row in found if row]


class Figures(BenchTest):
    def test_sizes_are_those_of_files(self):
        """Sizes include heads and seals; types are detected and blocks stored as by compression."""
        contents = {"a.txt": text(1300000), "b.bmp": b"BM" + random_bytes(5000) + text(9000),
                    "tiny": b"x"}
        for name, content in contents.items():
            self.put(name, content)
        cells = [10, 21, 33, 44, 52]
        for found in self.objects("-b1", "--cells", ",".join(map(str, cells)), *contents):
            name = found["name"]
            self.assertEqual(found["original_size"], len(contents[name]))
            self.assertEqual([cell["cell"] for cell in found["cells"]], cells)
            for cell in found["cells"]:
                made, = json_objects(
                    self.qrx(f"-{cell['cell']}", "-b1", "-f", "--json", name).stdout)
                self.assertEqual(cell["compressed_size"], made["compressed_size"], (name, cell))
                self.assertEqual(cell["ratio"], made["ratio"])
                self.assertEqual(made["compressed_size"], len(self.get(name + ".qrx")))

    def test_json_has_all_figures(self):
        self.put("a", text(20000))
        found, = self.objects("a", "--cells", "57,10", "-T2", "-b2")
        self.assertEqual(found["command"], "bench")
        self.assertEqual(found["threads"], 2)
        fast, slow = found["cells"]
        self.assertEqual((fast["method"], fast["level"], fast["block_mib"]), (1, 0, 2))
        self.assertEqual((slow["cell"], slow["method"], slow["level"]), (57, 5, 7))
        for cell in found["cells"]:
            for key in ("compress_mb_s", "decompress_mb_s"):
                self.assertGreater(cell[key], 0)
            self.assertGreater(cell["compress_memory"], cell["decompress_memory"])
            self.assertGreater(cell["decompress_memory"], 2 << 20)

    def test_all_cells_by_default(self):
        self.put("a", text(3000))
        found, = self.objects("a", "-b1")
        self.assertEqual([cell["cell"] for cell in found["cells"]], list(range(10, 60)))

    def test_threads_give_the_same_sizes(self):
        self.put("a", text(1 << 20) * 3 + b"end")
        args = ("a", "-b1", "--cells", "21,51")
        sizes = [[cell["compressed_size"] for cell in self.objects(*args, option)[0]["cells"]]
                 for option in ("-T1", "-T3", "-T0")]
        self.assertEqual(sizes[0], sizes[1])
        self.assertEqual(sizes[0], sizes[2])

    def test_standard_input(self):
        content = text(50000)
        found, = self.objects("-", "--cells", "33", stdin=content)
        self.assertEqual(found["name"], "-")
        self.assertEqual(found["original_size"], len(content))

    def test_repetitions_take_the_time(self):
        self.put("a", text(1000))
        started = time.monotonic()
        self.qrx("bench", "--seconds", "0.2", "--cells", "10", "a")
        self.assertGreater(time.monotonic() - started, 0.4)


class Front(BenchTest):
    def test_front_of_json(self):
        self.put("a", text(300000))
        found, = self.objects("a", "-b1", "--cells", "10,12,14,20,25,31,33,36,50,55,57")
        cells = found["cells"]
        for one in cells:
            is_beaten = any(dominates(other, one) for other in cells)
            self.assertEqual(one["on_front"], not is_beaten, cells)
        self.assertTrue(any(not cell["on_front"] for cell in cells))

    def test_front_of_table(self):
        """The rows of all cells come first, then the front, fastest and largest first."""
        self.put("a", text(300000))
        cells = [10, 14, 21, 33, 50, 55]
        rows = self.rows(self.bench("a", "-b1", "--cells", ",".join(map(str, cells))).stdout)
        measured = [row for row in rows if row[0] == " "]
        front = [row for row in rows if row[0] == "*"]
        self.assertEqual([row[1] for row in measured], cells)
        self.assertEqual(rows, measured + front)
        ratios = [row[3] for row in front]
        self.assertEqual(ratios, sorted(ratios, reverse=True))
        self.assertEqual(ratios[-1], min(row[3] for row in measured))
        by_cell = {row[1]: row[1:] for row in measured}
        for row in front:
            self.assertEqual(row[1:], by_cell[row[1]])


class Table(BenchTest):
    def test_presets_are_those_of_the_help(self):
        named = dict(re.findall(r"-(\d) = -(\d\d)", self.qrx("-h").stdout.decode()))
        self.assertEqual(sorted(named), list("123456789"))
        self.put("a", text(1000))
        cells = ",".join(named.values())
        rows = self.rows(self.bench("a", "-b1", "--cells", cells).stdout)
        shown = {preset: str(row[1]) for row in rows for preset in re.findall(r"\d", row[2])}
        self.assertEqual(shown, named)

    def test_ratio_of_several_files_is_that_of_their_sums(self):
        sizes = {}
        for name, content in (("a", text(30000)), ("b", random_bytes(10000))):
            self.put(name, content)
            self.qrx("-21", name)
            sizes[name] = len(self.get(name + ".qrx"))
        (_, cell, _, ratio), = self.rows(self.bench("a", "b", "--cells", "21").stdout)
        self.assertEqual(cell, 21)
        self.assertAlmostEqual(ratio, sum(sizes.values()) / 40000, places=4)

    def test_cells_end_at_the_next_word(self):
        self.put("a", text(1000))
        rows = self.rows(self.bench("--cells", "33,21", "--cells=10,33", "a").stdout)
        self.assertEqual([row[1] for row in rows if row[0] == " "], [10, 21, 33])

    def test_rows_appear_as_they_are_measured(self):
        self.put("a", text(900))
        args = [QRX, "bench", "a", "--cells", "10,33", "--seconds", "30"]
        with subprocess.Popen(args, cwd=self.dir, stdout=subprocess.PIPE) as process:
            self.assertTrue(process.stdout.readline().startswith(b"a, 900 B, 1 thread"))
            process.send_signal(signal.SIGINT)
            self.assertEqual(process.wait(20), -signal.SIGINT)

    def test_verbose_names_files(self):
        self.put("one", text(1000))
        self.put("two", text(2000))
        done = self.bench("-v", "one", "two", "--cells", "10")
        self.assertRegex(done.stderr, rb"qrx: one: .* 10 .*\nqrx: two: .* 10 ")


class Plot(BenchTest):
    def draw(self, *args):
        self.bench(*args, "--plot", "p.svg", "-b1")
        return ET.fromstring(self.get("p.svg"))

    def test_points_labels_and_front(self):
        self.put("a", text(100000))
        cells = ["10", "23", "31", "45", "57"]
        root = self.draw("a", "--cells", ",".join(cells))
        self.assertEqual(root.tag, SVG + "svg")
        self.assertEqual((root.get("width"), root.get("height")), ("1000", "600"))
        words = [element.text for element in root.iter(SVG + "text")]
        labels = [element.text for element in root.iter(SVG + "text")
                  if element.get("font-size") == "10"]
        self.assertEqual(sorted(labels), sorted(2 * cells)) # once in each panel
        for method in range(1, 6):
            self.assertIn(f"method {method}", words)
        points = [element for element in root.iter(SVG + "circle") if len(element)]
        self.assertEqual(len(points), 2 * len(cells))
        self.assertEqual(len({point.get("fill") for point in points}), 5)
        for point in points:
            self.assertTrue(60 < float(point.get("cx")) < 990)
            self.assertTrue(80 < float(point.get("cy")) < 545)
        lines = list(root.iter(SVG + "polyline"))
        self.assertEqual(len(lines), 2)
        for line in lines:
            places = [tuple(map(float, pair.split(","))) for pair in line.get("points").split()]
            self.assertEqual(places, sorted(places, reverse=True)) # fastest first
            self.assertEqual([y for _, y in places], sorted(y for _, y in places))

    def test_a_single_cell(self):
        self.put("a", random_bytes(1000))
        root = self.draw("a", "--cells", "33")
        for point in root.iter(SVG + "circle"):
            self.assertRegex(point.get("cx") + point.get("cy"), r"^[\d.]+$")

    def test_names_are_escaped(self):
        names = ["a<&>\"'b", "\x1b[31m", "\u00e4\uffff\ufffe]]>", os.fsdecode(b"\xff"), "x" * 200]
        for name in names:
            self.put(name, b"abc")
            root = self.draw("--cells", "10", "-f", name)
            (self.dir / name).unlink()
            shown = root.find(SVG + "title").text
            if name == names[0]:
                self.assertEqual(shown, name)
            self.assertNotIn("\x1b", shown)

    def test_existing_files_need_force(self):
        self.put("a", b"abc")
        self.put("p.svg", b"kept")
        args = ("a", "--cells", "10", "--plot", "p.svg")
        done = self.bench(*args, status=1)
        self.assertIn(b"p.svg: exists (-f overwrites)", done.stderr)
        self.assertEqual(done.stdout, b"")
        self.assertEqual(self.get("p.svg"), b"kept")
        self.bench(*args, "-f")
        ET.fromstring(self.get("p.svg"))

    def test_inputs_are_never_overwritten(self):
        self.put("a", b"abc")
        (self.dir / "link").symlink_to("a")
        for name in ("a", "./a", "link"):
            done = self.bench("a", "-f", "--cells", "10", "--plot", name, status=1)
            self.assertIn(b"is the input file", done.stderr)
        self.assertEqual(self.get("a"), b"abc")

    def test_bad_names_are_noticed_before_measuring(self):
        self.put("a", b"abc")
        for name in ("missing/p.svg", ".", "-"):
            done = self.bench("a", "--cells", "10", "--plot", name, status=1)
            self.assertEqual(done.stdout, b"")
            self.assertRegex(done.stderr, rb"^qrx: .+\n$")

    def test_interruption_leaves_no_plot(self):
        self.put("a", b"abc")
        args = [QRX, "bench", "a", "--cells", "10", "--seconds", "30", "--plot", "p.svg"]
        with subprocess.Popen(args, cwd=self.dir, stdout=subprocess.PIPE) as process:
            process.stdout.readline()
            process.send_signal(signal.SIGTERM)
            self.assertEqual(process.wait(20), -signal.SIGTERM)
        self.assertEqual(os.listdir(self.dir), ["a"])


class Failures(BenchTest):
    def fails(self, *args):
        done = self.bench(*args, status=1)
        self.assertEqual(done.stdout, b"")
        return done.stderr.decode()

    def test_missing_file_and_directory(self):
        self.put("a", b"abc")
        (self.dir / "d").mkdir()
        self.assertEqual(self.fails("a", "no"), "qrx: no: No such file or directory\n")
        self.assertEqual(self.fails("a", "d"), "qrx: d: Is a directory\n")

    def test_empty_files(self):
        self.put("a", b"abc")
        self.put("e", b"")
        done = self.bench("e", "a", "--cells", "10", "--json")
        self.assertEqual(done.stderr, b"qrx: e: is empty, skipped\n")
        self.assertEqual([each["name"] for each in json_objects(done.stdout)], ["a"])
        self.assertIn("nothing to measure", self.fails("-q", "e"))

    def test_no_files(self):
        self.fails("--cells", "10")

    def test_bad_options(self):
        self.put("a", b"abc")
        for args in (("--cells", "9"), ("--cells", "60"), ("--cells", "10,5"), ("--cells", "1x"),
                     ("--seconds", "-1"), ("-b0",), ("-T257",), ("--unknown",)):
            self.fails("a", *args)

    def test_memory_limit(self):
        self.put("a", text(2 << 20))
        self.assertRegex(self.fails("a", "--memory-limit", "1M"),
                         r"a: the files need at least 2\.0 MiB, and the memory limit is 1\.0 MiB\n")
        self.assertRegex(self.fails("a", "--cells", "10,59", "--memory-limit", "30M", "-b1"),
                         r"qrx: cell 59 needs .* MiB with the files, and the memory limit is 30")
        self.bench("a", "--cells", "10", "--memory-limit", "30M", "-b1")
        done = run("bench", "-", "--memory-limit", "1M", stdin=bytes(3 << 20), cwd=self.dir)
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"and the memory limit is 1.0 MiB", done.stderr)


if __name__ == "__main__":
    unittest.main()

"""scripts/report renders its tables, finds fronts, and notices pages and plots that are out of date."""

import pathlib
import random
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree

ROOT = pathlib.Path(__file__).resolve().parents[2]
SAMPLE = pathlib.Path(__file__).resolve().parent / "sample"
sys.path[:0] = [str(ROOT / "scripts"), str(ROOT / "tests" / "tool")]

from results import machine, page, plots, readme, speed, tables, threads, trust  # noqa: E402
from results.front import front  # noqa: E402

SYSTEM_PYTHON = "/usr/bin/python3"  # the one that has Debian's matplotlib


def has_matplotlib():
    return subprocess.run([SYSTEM_PYTHON, "-c", "import matplotlib"], capture_output=True,
                          check=False).returncode == 0


class FrontTest(unittest.TestCase):
    def front(self, *points):
        return front(points, lambda point: point[0], lambda point: point[1])

    def test_points_that_no_other_beats_are_on_the_front_fastest_first(self):
        self.assertEqual(self.front((1, 0.1), (3, 0.3), (2, 0.4), (2, 0.2)), [(3, 0.3), (2, 0.2), (1, 0.1)])

    def test_of_equal_speeds_only_the_better_ratio_is_on_the_front(self):
        self.assertEqual(self.front((2, 0.3), (2, 0.2), (1, 0.2)), [(2, 0.2)])

    def test_the_front_agrees_with_comparing_all_pairs(self):
        source = random.Random(1)
        for _ in range(200):
            points = list({(source.randrange(8), source.randrange(8)) for _ in range(source.randrange(1, 12))})
            unbeaten = [p for p in points if not any(
                q != p and q[0] >= p[0] and q[1] <= p[1] for q in points)]
            self.assertEqual(sorted(self.front(*points)), sorted(unbeaten), points)


class SpeedTest(unittest.TestCase):
    def results(self, encode, decode=0.5, ratio=0.25):
        return {("encode", "qrx-33", "a"): (encode, ratio), ("decode", "qrx-33", "a"): (decode, ratio)}

    def test_the_fastest_pass_counts(self):
        rows = speed.rows_of([self.results(3.0), self.results(2.0, 0.25), self.results(2.5)], {"a": 1000})
        self.assertEqual(len(rows), 1)
        self.assertEqual(rows[0], {"tool": "qrx", "setting": "33", "file": "a", "original_bytes": 1000,
                                   "compressed_bytes": 250, "compress_s": "2.000000", "decompress_s": "0.250000",
                                   "runs": 3})

    def test_what_is_missing_in_later_passes_ran_once(self):
        rows = speed.rows_of([self.results(9.0), {}], {"a": 1000})
        self.assertEqual((rows[0]["compress_s"], rows[0]["runs"]), ("9.000000", 1))

    def test_slow_compressors_are_not_repeated(self):
        results = self.results(3.0) | {("encode", "lz4-1", "a"): (1.0, 1), ("encode", "lz4-1", "b"): (0.5, 1)}
        self.assertEqual(speed.contenders_within(results, 2), ["lz4-1"])
        self.assertEqual(speed.contenders_within(results, 1.2), [])

    def test_speeds_are_sums_over_files(self):
        rows = [{"tool": "zstd", "setting": "-fast1", "file": name, "original_bytes": size,
                 "compressed_bytes": "500000",
                 "compress_s": seconds, "decompress_s": "0.5", "runs": "1"}
                for name, size, seconds in (("a", "1000000", "0.5"), ("b", "3000000", "1.5"))]
        point, = speed.points_of(rows)
        self.assertEqual((point.name, point.ratio, point.compress, point.decompress), ("zstd --fast1", 0.25, 2.0, 4.0))


class ThreadsTest(unittest.TestCase):
    def test_thread_counts_are_powers_of_two_and_the_number_of_processors(self):
        self.assertEqual(threads.thread_counts(1), [1])
        self.assertEqual(threads.thread_counts(2), [1, 2])
        self.assertEqual(threads.thread_counts(6), [1, 2, 4, 6])

    def test_the_input_has_the_wanted_size(self):
        with tempfile.TemporaryDirectory() as folder:
            first, target = pathlib.Path(folder, "a"), pathlib.Path(folder, "target")
            first.write_bytes(b"abc")
            threads.write_input([first], 8, target)
            self.assertEqual(target.read_bytes(), b"abcabcab")


class MachineTest(unittest.TestCase):
    def test_versions_are_those_of_upstream(self):
        for package, upstream in (("1:1.2.13.dfsg-1", "1.2.13"), ("1.0.9-2+b6", "1.0.9"), ("8.0~repack-4", "8.0"),
                                  ("22.01+really26.02+dfsg-0+deb12u1", "26.02"), ("5.4.1-1", "5.4.1")):
            self.assertEqual(machine.upstream_version(package), upstream)

    def compilers_of(self, *presets):
        with tempfile.TemporaryDirectory() as build:
            for preset, (compiler, system, pointer_bytes) in presets:
                folder = pathlib.Path(build, preset, "CMakeFiles", "3.25.1")
                folder.mkdir(parents=True)
                (folder / "CMakeCXXCompiler.cmake").write_text(
                    f'set(CMAKE_CXX_COMPILER_ID "{compiler}")\nset(CMAKE_CXX_COMPILER_VERSION "12.1")\n'
                    f'set(CMAKE_CXX_PLATFORM_ID "{system}")\nset(CMAKE_CXX_SIZEOF_DATA_PTR "{pointer_bytes}")\n')
            return machine.compilers(trust.PRESETS["payloads"], pathlib.Path(build))

    def test_all_compilers_of_a_part_are_named(self):
        self.assertEqual(self.compilers_of(("release", ("GNU", "Linux", 8)), ("debug", ("GNU", "Linux", 8)),
                                           ("payloads-clang", ("Clang", "Linux", 8)), ("linux32", ("GNU", "Linux", 4)),
                                           ("windows64", ("GNU", "MinGW", 8)), ("windows32", ("GNU", "MinGW", 4))),
                         "GNU 12.1; Clang 12.1; GNU 12.1 (32 bits); GNU 12.1 (MinGW); GNU 12.1 (MinGW, 32 bits)")
        self.assertEqual(self.compilers_of(), "unknown")

    def test_each_part_says_which_builds_it_measures(self):
        self.assertEqual(trust.PRESETS.keys(), trust.COMMANDS.keys())


class PageTest(unittest.TestCase):
    def setUp(self):
        self.page = page.rendered(tables.Tables(SAMPLE))

    def section(self, title):
        return self.page.split(f"## {title}\n")[1].split("\n## ")[0]

    def test_every_section_has_a_table(self):
        self.assertNotIn("Not measured", self.page)
        for _, title, _, _ in page.SECTIONS:
            self.assertIn("|---|", self.section(title), title)

    def test_prose_is_wrapped_and_tables_are_not(self):
        for line in self.page.splitlines():
            self.assertTrue(len(line) <= 120 or line.startswith("|") or " " not in line.strip("- "), line)

    def test_all_cells_are_listed_and_the_front_is_marked(self):
        cells = re.findall(r"^\| -(\d\d) \| 0\.\d{3} \|.* \|(.*)\|$", self.section("Ratio and speed"), re.MULTILINE)
        self.assertEqual(len(cells), 50)
        self.assertEqual(dict(cells)["59"], " c d ")
        self.assertEqual(dict(cells)["10"], " ")

    def test_damage_is_summed_over_edits(self):
        section = self.section("Damaged files")
        self.assertIn("| qrx, method 1 | yes | 2,000 | 1,998 | 2 | 0 | 0 | 0 | 0 % |", section)
        self.assertIn("| qrx, method 1 | no | 1,000 | 600 | 20 | 380 | 0 | 0 | 38.00 % |", section)
        self.assertIn("| zst | yes | 1,000 | 999 | 0 | 1 | 0 | 0 | 0.10 % |", section)

    def test_wrong_results_stand_out(self):
        section = self.section("Faults of the system")
        self.assertIn("| disk full | 81 | 40 | **wrong: 3** of 3 | - |", section)
        self.assertIn("- qrx restore, disk full, 2 workers: `status 0`", section)
        self.assertIn("- killed: partial file is documented", section)

    def test_coverage_is_summed_by_directory_and_target(self):
        section = self.section("Fuzzing: coverage")
        self.assertIn("| coding | 100 | 90 | 90.00 % |", section)
        self.assertIn("| decoder | 300 | 200 | 66.67 % |", section)

    def test_files_that_no_fuzz_target_links_are_named(self):
        section = " ".join(self.section("Fuzzing: coverage").split())
        self.assertIn("Not counted, since no target links them: `tool/main.cpp`.", section)
        self.assertIn("[fuzz_coverage.csv](fuzz_coverage.csv) and [fuzz_unlinked.csv](fuzz_unlinked.csv)", section)

    def test_coverage_does_not_need_the_table_of_unlinked_files(self):
        self.assertNotIn("Not counted", page.fuzz_coverage_section(tables.Tables(SAMPLE).read("fuzz_coverage"), []))

    def test_each_fault_found_by_fuzzing_is_explained(self):
        self.assertIn("| decoder | 1 | The count of an empty block overflowed. |", self.section("Fuzzing: hours"))
        hours = [{"target": "decoder", "processor_hours": "1", "executions": "1", "faults": "2"}]
        explained = {"target": "decoder", "runs": "1", "note": ""}
        for counted, faults in ((hours, []), (hours, [explained]), (hours, [explained] * 3), ([], [explained])):
            with self.assertRaisesRegex(SystemExit, rf"explains {len(faults)} .*\bdecoder\b"):
                page.fuzz_hours_section(counted, faults)
        page.fuzz_hours_section(hours, [explained] * 2)

    def test_unequal_artifacts_are_shown(self):
        self.assertIn("| `aaaaaaaaaaaaaaaa` | `bbbbbbbbbbbbbbbb` | no |", self.section("Reproducible builds"))

    def test_parts_name_their_date_commit_and_command(self):
        self.assertIn("Measured on 2026-01-02 at commit 0123456789.", self.section("Ratio and speed"))
        self.assertIn("`scripts/report small_files`", self.section("Small files"))
        machines = self.section("Machines and versions")
        self.assertIn("Some processor", machines)
        self.assertIn("| speed | 2026-01-02 | 0123456789 | GNU 12.2.0 | 12.0 | lz4 1.9.4; zstd 1.5.4 |", machines)

    def test_what_was_not_measured_is_said_with_the_command(self):
        with tempfile.TemporaryDirectory() as empty:
            text = page.rendered(tables.Tables(empty))
        self.assertEqual(text.count("Not measured."), len(page.SECTIONS))
        self.assertIn("`scripts/check_damage --csv docs/results/damage.csv`", text)


class ReadmeTest(unittest.TestCase):
    def test_the_tables_are_replaced_between_the_markers(self):
        before, after = readme.README.read_text(encoding="utf-8"), readme.rendered(tables.Tables(SAMPLE))
        self.assertIn("| `-5` (default) | `-33` | 0.243 | 155 | 1050 |", after)
        self.assertIn("| zstd -19 | | 0.185 | 2.7 | 1800 |", after)
        self.assertIn("![Ratio against compression speed](docs/results/compress.svg)", after)
        self.assertIn("Measured in memory, with one thread, on 2 files (82.0 MB: a, b). MB are", after)
        self.assertNotIn("Silesia", after)
        self.assertIn("| compress at levels 0 to 2 | 134 | 198 | 64 |", after)
        self.assertIn("| compress at levels 8, 9 | 517 | 965 | 448 |", after)
        marked = re.compile(r"(<!-- scripts/report writes this table: (\w+) -->\n).*(<!-- end of \2 -->)", re.DOTALL)
        self.assertEqual(marked.sub(r"\1\3", before), marked.sub(r"\1\3", after))

    def test_files_of_a_known_corpus_are_recognized_by_name_and_size(self):
        def text(sizes):
            return readme.files_text([{"file": name, "original_bytes": str(size)} for name, size in sizes.items()])

        self.assertEqual(text(readme.SILESIA), "the Silesia corpus (211.9 MB)")
        self.assertEqual(text({"sao": 7251944, "xml": 5345280}), "2 of the 12 files of the Silesia corpus (12.6 MB)")
        self.assertEqual(text({"sao": 7251944, "xml": 5345281}), "2 files (12.6 MB: sao, xml)")

    def test_without_measurements_nothing_changes(self):
        with tempfile.TemporaryDirectory() as empty:
            self.assertEqual(readme.rendered(tables.Tables(empty)), readme.README.read_text(encoding="utf-8"))


class CommandTest(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = pathlib.Path(temporary.name) / "results"
        shutil.copytree(SAMPLE, self.folder)

    def report(self, *arguments):
        return subprocess.run([SYSTEM_PYTHON, "-B", ROOT / "scripts/report", *arguments, "--output", self.folder],
                              capture_output=True, text=True, check=False)

    def render(self):
        if not has_matplotlib():
            self.skipTest("python3-matplotlib isn't installed")
        done = self.report("pages")
        self.assertEqual(done.returncode, 0, done.stderr)

    def test_check_finds_pages_and_plots_that_do_not_match_their_tables(self):
        self.render()
        self.assertEqual(self.report("pages", "--check").returncode, 0)
        table = self.folder / "threads.csv"
        changed = re.sub(r"^(qrx,-1,compress,1,\d+,\d+),[\d.]+", r"\1,77.000", table.read_text(encoding="utf-8"),
                         flags=re.MULTILINE)
        table.write_text(changed, encoding="utf-8")
        results = tables.Tables(self.folder)
        results.record_run(next(row for row in results.read("runs") if row["part"] == "threads"))
        done = self.report("pages", "--check")
        self.assertEqual(done.returncode, 1)
        self.assertEqual([pathlib.Path(line.split(" ")[0]).name for line in done.stderr.splitlines()],
                         ["README.md", "threads.svg"])

    def test_check_finds_tables_without_a_row_that_says_when_they_were_measured(self):
        runs = self.folder / "runs.csv"
        runs.write_text(re.sub(r"^stress,.*\n", "", runs.read_text(encoding="utf-8"), flags=re.MULTILINE),
                        encoding="utf-8")
        self.render()
        self.check_finds_unrecorded("stress")

    def test_check_finds_tables_that_were_replaced_after_their_run_was_recorded(self):
        for table, part in (("fuzz_unlinked", "fuzz_coverage"), ("schedules", "schedules")):
            results = tables.Tables(self.folder)
            results.write(table, results.read(table) * 2)
            self.render()
            self.check_finds_unrecorded(part)
            results.record_run(next(row for row in results.read("runs") if row["part"] == part))
            self.render()
            self.assertEqual(self.report("pages", "--check").returncode, 0)

    def check_finds_unrecorded(self, part):
        done = self.report("pages", "--check")
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stderr, f"{self.folder / 'runs.csv'} has no row of the current {part}.csv: "
                                      f"run scripts/report {part}\n")

    def test_the_same_tables_give_the_same_plots(self):
        self.render()
        first = {name: (self.folder / f"{name}.svg").read_bytes() for name in plots.PLOTS}
        self.render()
        for name, content in first.items():
            self.assertEqual((self.folder / f"{name}.svg").read_bytes(), content, name)
            xml.etree.ElementTree.fromstring(content)

    def test_a_table_without_a_needed_column_is_refused(self):
        (self.folder / "faults.csv").write_text("program,operation\n", encoding="utf-8")
        done = self.report("pages", "--check")
        self.assertEqual(done.returncode, 1)
        self.assertIn("no column fault, note, result, runs, workers", done.stderr)

    def test_misuse_is_refused(self):
        for arguments, message in ((["speed"], "a folder of files"), (["/tmp"], "expected parts"),
                                   (["performance"], "a folder of files"), (["all"], "a folder of files"),
                                   (["all", "/tmp"], "fuzz_coverage always writes to docs/results/"),
                                   (["memory", "--check"], "--check works only with pages"),
                                   (["damage", "--quick"], "--quick works only with speed"),
                                   (["fuzz_hours"], "fuzz_hours always writes to docs/results/"),
                                   (["speed", "/no/such/folder"], "is not a folder")):
            done = self.report(*arguments)
            self.assertNotEqual(done.returncode, 0)
            self.assertIn(message, done.stderr)

    def test_partial_runs_do_not_replace_tables(self):
        table = ROOT / "docs/results/no-such-table.csv"
        for words in (["check_damage", "--formats", "gz", "/bin/true"], ["check_damage", "--edits", "5", "/bin/true"],
                      ["stress", "files", "--seconds", "1"], ["stress", "schedules", "--runs", "1"],
                      ["check_payloads", "release"], ["check_reproducible"],
                      [sys.executable, "-B", ROOT / "tests/faults/fault_matrix.py", "--quick"],
                      [sys.executable, "-B", ROOT / "tests/faults/fault_matrix.py", "--only", "disk full"]):
            done = subprocess.run([ROOT / "scripts" / words[0], *words[1:], "--csv", table], capture_output=True,
                                  text=True, check=False)
            self.assertEqual(done.returncode, 1, words)
            self.assertIn("no-such-table.csv is for full runs", done.stderr, words)
            self.assertFalse(table.exists(), words)

    def test_schedules_need_the_thread_sanitizer(self):
        (self.folder / "CMakeCache.txt").write_text("CMAKE_CXX_FLAGS:STRING=-fsanitize=address\n", encoding="utf-8")
        done = subprocess.run([ROOT / "scripts/stress", "schedules", "--runs", "1", "--build", self.folder],
                              capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stderr, f"stress: {self.folder} is not a build with the thread sanitizer\n")


if __name__ == "__main__":
    unittest.main()

"""scripts/parallel_compress: one file compressed on several machines.

The machines are directories.  A program takes the place of ssh: it runs a command in the directory of its host and
with nothing else of the caller's environment.  Files in that directory make the host fail.
"""

import os
import pathlib
import shutil
import subprocess
import unittest

from qrx_tool import ENVIRONMENT, MIB, ToolTest, long_text, random_bytes, run, wait_until

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts/parallel_compress"

FAKE_SSH = r"""#!/bin/bash
[[ $1 != -l ]] || shift 2
cd "$HOSTS/$1" || exit 255
shift
echo "$PARALLEL_SEQ" >>commands
[[ ! -e down ]] || exit 255
[[ ! -e limit ]] || (($(wc -l <commands) <= $(<limit))) || exit 255
[[ ! -e slow ]] || sleep 1
[[ ! -e answer ]] || { cat >/dev/null && exec cat answer; }
clean=(env -i "PATH=$PATH" "HOME=$PWD" "TMPDIR=$PWD" sh -c "$*")
if [[ -e killed ]]; then # while it writes its output
    "${clean[@]}" | head -c 5000
    exit 255
elif [[ -e cut ]]; then # the end of the output, the seal, is lost on the way
    "${clean[@]}" | head -c -4
    exit 0
elif [[ -e short ]]; then # the end of the input is lost on the way
    head -c 1000000 | "${clean[@]}"
    exit 0
elif [[ -e altered ]]; then # the input changes on the way
    tr e f | "${clean[@]}"
    exit 0
fi
exec "${clean[@]}"
"""


@unittest.skipUnless(shutil.which("parallel"), "GNU Parallel isn't installed")
class ParallelTest(ToolTest):
    def setUp(self):
        super().setUp()
        ssh = self.put("fake_ssh", FAKE_SSH.encode())
        os.chmod(ssh, 0o755)
        self.environment = dict(ENVIRONMENT, PARALLEL_SSH=str(ssh), HOSTS=str(self.dir / "hosts"),
                                TMPDIR=str(self.dir))
        self.target = self.dir / "out.qrx"
        self.work = self.dir / "out.qrx.parallel"

    def hosts(self, **failures):
        """Creates hosts, each with the file that makes it fail and its content, or with None."""
        for host, failure in failures.items():
            (self.dir / "hosts" / host).mkdir(parents=True)
            if failure:
                name, *content = failure.split()
                self.put(f"hosts/{host}/{name}", "".join(content).encode())

    def commands(self, host):
        """Returns the numbers of the pieces that were sent to a host."""
        name = self.dir / "hosts" / host / "commands"
        return sorted(map(int, name.read_text().split())) if name.exists() else []

    def parallel(self, *args, status=0, target=None):
        """Runs the script and returns what it prints on standard error."""
        done = run(*args, str(target or self.target), program=str(SCRIPT), cwd=self.dir,
                   env=self.environment)
        self.assertEqual(done.returncode, status, self.describe(args, done))
        return done.stderr.decode()

    def job_log(self):
        """The lines of the job log: number of the piece, host, start and exit status."""
        lines = (self.work / "joblog").read_text().splitlines()[1:]
        return [(int(line[0]), line[1], line[2], int(line[6]))
                for line in (text.split("\t") for text in lines)]

    def pieces(self):
        return sorted(name.name for name in (self.work / "pieces").iterdir())

    def assert_equal_to_one_machine(self, name, *options):
        self.qrx("-qf", *options, "-o", "one.qrx", name)
        self.assertEqual(self.target.read_bytes(), self.get("one.qrx"))
        self.assertFalse(self.work.exists())


class ResultTest(ParallelTest):
    def test_text_on_three_hosts(self):
        self.put("a.txt", long_text(4 * MIB + 12345))
        os.chmod(self.dir / "a.txt", 0o640)
        os.utime(self.dir / "a.txt", (1000000000, 1000000000))
        self.hosts(h1=None, h2=None, h3=None)
        self.assertEqual(self.parallel("-S", "h1,1/user@h2,h3", "-j1", "-n1", "-33", "-b1", "a.txt"), "")
        self.assert_equal_to_one_machine("a.txt", "-33", "-b1")
        status = os.stat(self.target)
        self.assertEqual((status.st_mode & 0o777, status.st_mtime), (0o640, 1000000000))
        done = [self.commands(host) for host in ("h1", "h2", "h3")]
        self.assertEqual(sorted(sum(done, [])), [1, 2, 3, 4, 5])
        self.assertNotIn([], done)
        left = {name for name in self.files() if name.startswith("hosts/")}
        self.assertEqual(left, {f"hosts/h{n}/commands" for n in (1, 2, 3)})

    def test_program_with_filter_on_two_hosts(self):
        code = b"".join(random_bytes(40, n) + b"\xe8" + n.to_bytes(4, "little") for n in range(5000))
        self.put("a b'.exe", (code * 16)[:3 * MIB])
        self.hosts(h1=None, h2=None)
        self.parallel("-S", "h1,h2", "-j", "1", "-n", "1", "-2", "-b1", "-T1", "--verify", "a b'.exe")
        self.assert_equal_to_one_machine("a b'.exe", "-2", "-b1")
        self.assertEqual(self.parameter("filter"), '"x86"')

    def test_context_bits_are_those_of_the_start(self):
        self.put("a", random_bytes(MIB) + long_text(2 * MIB))
        self.parallel("-n1", "-41", "-b1", "a")
        self.assert_equal_to_one_machine("a", "-41", "-b1")
        self.assertNotEqual(self.parameter("context_bits"), "8")  # as for text

    def parameter(self, name):
        shown = self.qrx("list", "--json", "out.qrx").stdout.decode()
        return shown.split(f'"{name}":')[1].split(",")[0]

    def test_whole_pieces(self):
        self.put("a", long_text(4 * MIB))
        self.hosts(h1=None)
        self.parallel("-S", "h1", "-n2", "-1", "-b1", "a")
        self.assert_equal_to_one_machine("a", "-1", "-b1")
        self.assertEqual(self.commands("h1"), [1, 2])

    def test_empty_file(self):
        self.put("a", b"")
        self.hosts(h1=None)
        self.parallel("-S", "h1", "a")
        self.assert_equal_to_one_machine("a")
        self.assertEqual(self.commands("h1"), [])


    def test_shells_never_run_names(self):
        name = "a b'\"$(touch x)`touch y`;touch z"
        self.put(name, long_text(2 * MIB))
        self.hosts(h1=None)
        self.target = self.dir / f"{name}.qrx"
        self.work = self.dir / f"{name}.qrx.parallel"
        self.assertEqual(self.parallel("-S", "h1", "-n1", "-1", "-b1", name), "")
        self.assert_equal_to_one_machine(name, "-1", "-b1")
        self.assertEqual(self.commands("h1"), [1, 2])
        self.assertEqual([found for found in self.files() if found.split("/")[-1] in "xyz"], [])

    def test_names_that_end_in_a_line_feed(self):
        self.put("a", b"another file")
        self.put("a\n", long_text(2 * MIB))
        self.hosts(h1=None)
        self.target = self.dir / "out.qrx\n"
        self.parallel("-S", "h1", "-n1", "-1", "-b1", "a\n")
        self.assert_equal_to_one_machine("a\n", "-1", "-b1")
        self.assertFalse((self.dir / "out.qrx").exists())


    def test_names_after_the_end_of_the_options(self):
        self.put("-d", long_text(2 * MIB))
        self.parallel("-n1", "-1", "-b1", "--", "-d")
        self.qrx("-q", "-1", "-b1", "-o", "one.qrx", "--", "-d")
        self.assertEqual(self.target.read_bytes(), self.get("one.qrx"))


class FailureTest(ParallelTest):
    def setUp(self):
        super().setUp()
        self.put("a.txt", long_text(3 * MIB + 1))
        self.args = ("-j1", "-n1", "-1", "-b1", "a.txt")

    def fails(self, *args):
        said = self.parallel(*args, status=1)
        self.assertIn(f"parallel_compress: {self.work} is kept", said)
        self.assertFalse(self.target.exists())
        return said

    def test_restart_does_only_what_is_missing(self):
        self.hosts(h1="limit 2", h2="limit 1", h3=None)
        self.fails("-S", "h1", *self.args)
        first = self.job_log()
        good = [line for line in first if line[3] == 0]
        self.assertEqual([line[0] for line in good], [1, 2])
        self.assertEqual({line[3] for line in first[2:]}, {255})
        self.assertEqual(self.pieces(), ["1.qrx", "2.qrx"])

        self.fails("-S", "h2", *self.args)
        second = self.job_log()
        self.assertEqual(second[:len(first)], first)
        self.assertEqual([line[0] for line in second[len(first):] if line[3] == 0], [3])
        self.assertEqual(self.pieces(), ["1.qrx", "2.qrx", "3.qrx"])

        self.parallel("-S", "h3", *self.args)
        self.assertEqual(self.commands("h3"), [4])
        self.assert_equal_to_one_machine("a.txt", "-1", "-b1")

    def test_other_hosts_take_over_from_one_that_is_down(self):
        self.hosts(h1="down", h2=None)
        self.parallel("-S", "h1", "-S", "h2", *self.args)
        self.assertNotEqual(self.commands("h1"), [])
        self.assertEqual(self.commands("h2"), [1, 2, 3, 4])
        self.assert_equal_to_one_machine("a.txt", "-1", "-b1")

    def test_incomplete_pieces_never_count(self):
        self.hosts(h1="killed", h2="cut", h3="short", h4=None)
        said = self.fails("-S", "h1,h2,h3", *self.args)
        for host in ("h1", "h2", "h3"):
            self.assertNotEqual(self.commands(host), [])
        self.assertIn("is incomplete (from h", said)
        # The last block has one byte, which a shorter input leaves as it is.
        self.assertEqual([line[0] for line in self.job_log() if line[3] == 0],
                         [int(name.split(".")[0]) for name in self.pieces()])
        self.assertLessEqual(set(self.pieces()), {"4.qrx"})
        self.parallel("-S", "h4", *self.args)
        self.assert_equal_to_one_machine("a.txt", "-1", "-b1")

    def test_script_killed_while_jobs_run(self):
        self.hosts(h1="slow", h2=None)
        script = subprocess.Popen([str(SCRIPT), "-S", "h1", "-n2", *self.args[2:], str(self.target)],
                                  cwd=self.dir, env=self.environment, stderr=subprocess.DEVNULL)
        wait_until(lambda: self.commands("h1"))
        script.kill()
        script.wait()
        said = self.parallel("-S", "h2", "-n2", *self.args[2:], status=1)
        self.assertIn(f"another run, or a job left by one, uses {self.work}", said)
        wait_until(lambda: run("-n", str(self.work / "lock"), "true", program="flock").returncode == 0)
        self.parallel("-S", "h2", "-n2", *self.args[2:])
        self.assertEqual((self.commands("h1"), self.commands("h2")), ([1, 2], []))
        self.assert_equal_to_one_machine("a.txt", "-1", "-b1")

    def test_full_disk(self):
        disk = self.small_disk(2500)
        self.put("a.bin", random_bytes(3 * MIB))
        args = ("-n1", "-1", "-b1", "a.bin")
        self.parallel(*args, status=1, target=disk / "out.qrx")
        self.assertEqual([name.name for name in disk.iterdir()], ["out.qrx.parallel"])
        subprocess.run(["mount", "-o", "remount,size=20M", str(disk)], check=True)
        self.parallel(*args, target=disk / "out.qrx")
        self.assertEqual([name.name for name in disk.iterdir()], ["out.qrx"])
        self.qrx("verify", "--against", "a.bin", "disk/out.qrx")

    def test_another_source_or_other_options_are_refused(self):
        self.hosts(h1="limit 1", h2=None)
        self.fails("-S", "h1", *self.args)
        before = self.job_log()
        for change in (("-2",), ("-n2",), ("-b2",)):
            said = self.parallel("-S", "h2", *self.args, *change, status=1)
            self.assertIn("has pieces of another source or other options", said)
        status = os.stat(self.dir / "a.txt")
        os.utime(self.dir / "a.txt", ns=(status.st_atime_ns, status.st_mtime_ns + 1000))
        said = self.parallel("-S", "h2", *self.args, status=1)
        self.assertIn("has pieces of another source or other options", said)
        self.assertEqual((self.job_log(), self.commands("h2")), (before, []))
        self.assertFalse(self.target.exists())
        os.utime(self.dir / "a.txt", ns=(status.st_atime_ns, status.st_mtime_ns))
        self.parallel("-S", "h2", *self.args)
        self.assert_equal_to_one_machine("a.txt", "-1", "-b1")

    def test_restart_replaces_missing_pieces(self):
        self.hosts(h1="limit 3", h2=None)
        self.fails("-S", "h1", *self.args)
        (self.work / "pieces/1.qrx").unlink()
        (self.work / "pieces/2.qrx").write_bytes(b"")
        self.parallel("-S", "h2", *self.args)
        self.assertEqual(self.commands("h2"), [1, 2, 4])
        self.assert_equal_to_one_machine("a.txt", "-1", "-b1")

    def test_damaged_piece_is_not_joined(self):
        self.hosts(h1="limit 3", h2=None)
        self.fails("-S", "h1", *self.args)
        os.truncate(self.work / "pieces/2.qrx", 1000)
        said = self.parallel("-S", "h2", *self.args, status=1)
        self.assertIn(f"the pieces can't be joined; remove {self.work} to start again", said)
        self.assertNotIn("the same command", said)
        self.assertFalse(self.target.exists())

    def test_restart_with_incomplete_job_log(self):
        self.hosts(h1="limit 3", h2=None)
        self.fails("-S", "h1", *self.args)
        log = (self.work / "joblog").read_bytes()
        done = [line for line in log.splitlines(True)[1:] if line.split(b"\t")[6] == b"0"]
        start = log.index(done[1])
        work = self.dir / "kept"
        shutil.copytree(self.work, work)
        # In the column titles, after a number, and just before a line feed
        for length, missing in ((5, [1, 2, 3, 4]), (start + 2, [2, 3, 4]),
                                (start + len(done[1]) - 1, [2, 3, 4])):
            with self.subTest(length=length):
                shutil.rmtree(self.work, ignore_errors=True)
                self.target.unlink(missing_ok=True)
                (self.dir / "hosts/h2/commands").unlink(missing_ok=True)
                shutil.copytree(work, self.work)
                os.truncate(self.work / "joblog", length)
                self.parallel("-S", "h2", *self.args)
                self.assertEqual(self.commands("h2"), missing)
                self.assert_equal_to_one_machine("a.txt", "-1", "-b1")

    def test_verify_finds_data_altered_on_the_way(self):
        self.hosts(h1="altered")
        said = self.parallel("-S", "h1", "--verify", *self.args, status=1)
        self.assertIn(f"the result differs from the source; remove {self.work} to start again", said)
        self.assertFalse(self.target.exists())

    def test_piece_with_other_parameters(self):
        self.put("b.txt", long_text(MIB))
        self.hosts(h1=None)
        for options in (("-1", "-b2"), ("-2", "-b1")):
            self.put("hosts/h1/answer", self.qrx("-qc", *options, "b.txt").stdout)
            said = self.fails("-S", "h1", *self.args[:-1], "b.txt")
            self.assertIn("piece 1 has other parameters (from h1)", said)

    def test_message_names_the_host(self):
        self.hosts(h1="down")
        said = self.fails("-S", "user@h1", "-n4", *self.args[2:])
        self.assertIn("piece 1 failed on h1 (status 255)", said)

    def test_directory_of_someone_else(self):
        for name in ("notes", "settings", ".hidden"):
            with self.subTest(name=name):
                kept = self.put(f"out.qrx.parallel/{name}", b"mine")
                before = self.files()
                said = self.parallel(*self.args, status=1)
                self.assertIn(f"{self.work} has files that aren't from this script", said)
                self.assertEqual(self.files(), before)
                kept.unlink()
        self.work.rmdir()
        (self.dir / "elsewhere").mkdir()
        self.work.symlink_to("elsewhere")
        self.assertIn(f"{self.work} is a symbolic link", self.parallel(*self.args, status=1))
        self.assertEqual(list((self.dir / "elsewhere").iterdir()), [])

    def test_files_added_to_the_directory_are_kept(self):
        self.hosts(h1="slow")
        script = subprocess.Popen([str(SCRIPT), "-S", "h1", "-n4", *self.args[2:], str(self.target)],
                                  cwd=self.dir, env=self.environment)
        wait_until(lambda: self.commands("h1"))
        self.put("out.qrx.parallel/notes", b"mine")
        self.assertEqual(script.wait(), 0)
        self.assertTrue(self.target.exists())
        self.assertEqual(os.listdir(self.work), ["notes"])

    def test_help(self):
        done = run("-h", program=str(SCRIPT), cwd=self.dir)
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        self.assertIn(b"\nusage: parallel_compress [OPTION...] SOURCE TARGET\n", done.stdout)
        self.assertNotIn(b"set -e", done.stdout)

    def test_usage_errors(self):
        self.put("there.qrx", b"mine")
        cases = [((*self.args, "there.qrx"), "needs SOURCE and TARGET"),
                 (("--rm", "a.txt"), "unknown option --rm"),
                 (("-n0", "a.txt"), "-n 0: not a number of blocks"),
                 (("-j50%", "a.txt"), "-j 50%: not a number of jobs"),
                 (("-j0", "a.txt"), "-j 0: not a number of jobs"),
                 (("-b4000", "a.txt"), "unusable options for qrx"),
                 (("-T1;ls", "a.txt"), "unknown option in"),
                 (("missing",), "parallel_compress: missing: not a regular file"),
                 (("nowhere/a.txt",), "parallel_compress: nowhere/a.txt: No such file or directory"),
                 (("--", "-1", "a.txt"), "needs SOURCE and TARGET"),
                 (("/proc/version",), "parallel_compress: /proc/version: not a file of known size")]
        before = self.files()
        for args, message in cases:
            with self.subTest(args=args):
                self.assertIn(message, self.parallel(*args, status=1))
        for target, message in (("there.qrx", "there.qrx: exists"),
                                ("new/", "new/: names a directory"),
                                ("nowhere/x.qrx", "nowhere/x.qrx: No such file or directory")):
            with self.subTest(target=target):
                self.assertIn(f"parallel_compress: {message}", self.parallel("a.txt", target=target, status=1))
        self.assertEqual(self.files(), before)


if __name__ == "__main__":
    unittest.main()

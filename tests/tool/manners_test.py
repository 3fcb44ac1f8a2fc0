"""Outputs, sources, messages and exit statuses."""

import json
import os
import resource
import stat
import struct
import time

from qrx_tool import (ENVIRONMENT, MIB, QRX, ToolTest, has_open, is_sanitized, long_text, random_bytes, run, text,
                      wait_until, wait_until_drained)


def limits(kind, value):
    """Returns a function for preexec_fn that sets a resource limit."""
    return lambda: resource.setrlimit(kind, (value, value))


class Traits(ToolTest):
    moment = 1234567890_123456789

    def check(self, name, mode, uid=None):
        found = os.stat(self.dir / name)
        self.assertEqual(stat.S_IMODE(found.st_mode), mode)
        self.assertEqual(found.st_mtime_ns, self.moment)
        if uid is not None:
            self.assertEqual((found.st_uid, found.st_gid), (uid, uid + 1))

    def test_mode_and_times_are_carried_over(self):
        for mode in (0o600, 0o640, 0o444, 0o755, 0o666):
            name = self.put("f", text(100))
            os.chmod(name, mode)
            os.utime(name, ns=(self.moment, self.moment))
            self.qrx("--rm", "f")
            self.check("f.qrx", mode)
            self.qrx("-d", "--rm", "f.qrx")
            self.check("f", mode)

    def test_root_carries_the_owner_over_without_special_bits(self):
        if os.geteuid() != 0:
            self.skipTest("needs root")
        name = self.put("f", text(100))
        os.chown(name, 1234, 1235)
        os.chmod(name, 0o6755)
        os.utime(name, ns=(self.moment, self.moment))
        self.qrx("--rm", "f")
        self.check("f.qrx", 0o755, 1234)
        self.qrx("-d", "--rm", "f.qrx")
        self.check("f", 0o755, 1234)

    def test_group_that_is_lost_takes_its_permissions_along(self):
        if os.geteuid() != 0:
            self.skipTest("needs root")
        rights = self.unprivileged()
        for mode, expected in ((0o640, 0o600), (0o664, 0o644), (0o604, 0o600), (0o777, 0o777)):
            name = self.put("f", text(100))
            os.chown(name, 65534, 1235)
            os.chmod(name, mode)
            self.qrx("-f", "f", **rights)
            self.assertEqual(stat.S_IMODE(os.stat(self.dir / "f.qrx").st_mode), expected)

    def test_access_list_that_is_lost_gives_its_group_no_rights(self):
        name = self.put("f", text(100))
        owner, group, other_group, mask, others = (1, 6), (4, 0), (8, 6), (16, 6), (32, 0)
        entries = [struct.pack("<HHI", *entry, 1235 if entry is other_group else 0xFFFFFFFF)
                   for entry in (owner, group, other_group, mask, others)]
        try:
            os.setxattr(name, "system.posix_acl_access", struct.pack("<I", 2) + b"".join(entries))
        except OSError as error:
            self.skipTest(f"no access control lists here: {error}")
        self.assertEqual(stat.S_IMODE(os.stat(name).st_mode), 0o660)  # the mask is shown for the group
        self.qrx("f")
        self.assertEqual(stat.S_IMODE(os.stat(self.dir / "f.qrx").st_mode), 0o600)

    def test_output_of_standard_input_follows_the_umask(self):
        for mask in (0o022, 0o077, 0o007):
            self.qrx("-f", "-o", "out", stdin=b"x", umask=mask)
            self.assertEqual(stat.S_IMODE(os.stat(self.dir / "out").st_mode), 0o666 & ~mask)

    def test_times_of_a_device_are_its_own(self):
        self.shell("mkfifo in; chmod 600 in; (umask 022; qrx -f in & cat > in; wait $!)", stdin=b"x")
        self.assertEqual(stat.S_IMODE(os.stat(self.dir / "in.qrx").st_mode), 0o644)


class Overwriting(ToolTest):
    def setUp(self):
        super().setUp()
        self.put("f", text(5000))

    def test_existing_output_is_refused(self):
        self.put("f.qrx", b"precious")
        self.assertIn(b"f.qrx: exists", self.qrx("f", status=1).stderr)
        self.assertEqual(self.get("f.qrx"), b"precious")
        self.qrx("-f", "f")
        self.assertEqual(self.original(self.get("f.qrx")), self.get("f"))
        self.put("f", b"precious")
        self.qrx("-d", "f.qrx", status=1)
        self.assertEqual(self.get("f"), b"precious")
        self.qrx("-df", "f.qrx")
        self.assertEqual(self.get("f"), text(5000))
        self.assertEqual(self.files(), ["f", "f.qrx"])

    def test_no_answer_can_come_from_a_pipe(self):
        self.put("f.qrx", b"precious")
        self.qrx("f", stdin=b"y\n", status=1)
        self.assertEqual(self.get("f.qrx"), b"precious")

    def test_directories_and_devices_stay(self):
        (self.dir / "f.qrx").mkdir()
        self.assertIn(b"is a directory", self.qrx("-f", "f", status=1).stderr)
        os.mkfifo(self.dir / "pipe")
        self.assertIn(b"isn't a regular file", self.qrx("-f", "-o", "pipe", "f", status=1).stderr)
        self.assertTrue(stat.S_ISFIFO(os.stat(self.dir / "pipe").st_mode))

    def output_that_appears_meanwhile(self, *command):
        program = {"program": command[0]} if command else {}
        process = self.start(*command[1:], *(["-o", "out", "-"]), **program)
        process.stdin.write(b"x")
        process.stdin.flush()
        wait_until_drained(process.stdin)
        self.put("out", b"precious")
        _, errors = process.communicate()
        self.assertEqual(process.returncode, 1)
        self.assertIn(b"out: File exists", errors)
        self.assertEqual(self.get("out"), b"precious")
        self.assertEqual(self.files(), ["f", "out"])

    def test_output_that_appears_meanwhile(self):
        self.output_that_appears_meanwhile()

    def test_output_that_appears_meanwhile_with_temporary_names(self):
        self.output_that_appears_meanwhile(*self.nameless_files_refused(), QRX)

    def test_failure_leaves_the_old_output(self):
        self.put("f.qrx", b"precious")
        self.put("g.qrx", self.compressed(text(5000))[:-100])
        self.put("g", b"precious too")
        self.qrx("-f", "f", status=1, preexec_fn=limits(resource.RLIMIT_FSIZE, 100))
        self.qrx("-df", "g.qrx", status=2)
        self.assertEqual((self.get("f.qrx"), self.get("g")), (b"precious", b"precious too"))
        self.assertEqual(self.files(), ["f", "f.qrx", "g", "g.qrx"])


class Space(ToolTest):
    content = random_bytes(MIB)

    def test_file_size_limit(self):
        self.put("f", self.content)
        self.put("g.qrx", self.compressed(self.content))
        limit = limits(resource.RLIMIT_FSIZE, 300000)
        for command in (["f"], ["--rm", "f"], ["-d", "g.qrx"], ["-o", "out"]):
            done = self.qrx(*command, stdin=self.content, status=1, preexec_fn=limit)
            self.assertIn(b"File too large", done.stderr)
            self.assertEqual(self.files(), ["f", "g.qrx"])

    def test_full_disk(self):
        disk = self.small_disk(1000)
        self.put("f", self.content)
        self.put("g.qrx", self.compressed(self.content))
        for command in (["-C", "disk", "f"], ["--rm", "-o", "disk/f.qrx", "f"],
                        ["-d", "-C", "disk", "g.qrx"], ["-o", "disk/out"]):
            done = self.qrx(*command, stdin=self.content, status=1)
            self.assertIn(b"No space left on device", done.stderr)
            self.assertEqual(self.files(), ["f", "g.qrx"])
            self.assertEqual(os.statvfs(disk).f_bfree, os.statvfs(disk).f_blocks)

    def test_full_directory_for_temporary_files(self):
        disk = self.small_disk(1000)
        content = random_bytes(3 * MIB)
        done = self.qrx("-b1", stdin=content, status=1, env=dict(ENVIRONMENT, TMPDIR=str(disk)))
        self.assertIn(b"temporary file: No space left on device", done.stderr)
        self.assertEqual(done.stdout, b"")
        self.assertEqual(self.files(), [])

    def test_temporary_file_of_compressed_input(self):
        environment = dict(ENVIRONMENT, TMPDIR="/nonexistent")
        image = self.compressed(random_bytes(17 * MIB), "-1")
        for args in (["-d"], ["-t"], ["recover", "-o", "f", "-"]):
            done = self.qrx(*args, stdin=image, status=1, env=environment)
            self.assertIn(b"temporary file: No such file", done.stderr)

    def test_read_only_directory(self):
        rights = self.unprivileged()
        self.put("d/f", b"x")
        os.chmod(self.dir / "d", 0o555)
        self.assertIn(b"Permission denied", self.qrx("d/f", status=1, **rights).stderr)
        self.qrx("-o", "f.qrx", "d/f", **rights)
        self.qrx("--rm", "-o", "g.qrx", "d/f", status=1, **rights)
        self.assertEqual(self.files(), ["d/f", "f.qrx", "g.qrx"])

    def test_unreadable_source(self):
        rights = self.unprivileged()
        os.chmod(self.put("f", b"x"), 0)
        self.assertIn(b"f: Permission denied", self.qrx("f", status=1, **rights).stderr)
        self.assertEqual(self.files(), ["f"])

    def test_few_open_files(self):
        self.put("f", text(1000))
        for count in (3, 4, 5, 6):
            done = run("f", cwd=self.dir, preexec_fn=limits(resource.RLIMIT_NOFILE, count))
            self.assertIn(done.returncode, (0, 1, 127), done.stderr)
            if done.returncode == 1:
                self.assertIn(b"Too many open files", done.stderr)
                self.assertEqual(self.files(), ["f"])
            elif done.returncode == 0:
                os.remove(self.dir / "f.qrx")
        self.assertEqual(done.returncode, 0, done.stderr)

    def test_little_address_space(self):
        if is_sanitized():
            self.skipTest("sanitizers reserve terabytes of address space")
        self.put("f", long_text(3 * MIB))
        statuses = []
        for mib in [*range(16, 160, 12), 2048]:
            done = run("-f", "-T2", "-b1", "-37", "f", cwd=self.dir,
                       preexec_fn=limits(resource.RLIMIT_AS, mib << 20))
            statuses.append(done.returncode)
            self.assertIn(done.returncode, (0, 1, 127), (mib, done.stderr)) # 127: no libraries
            if done.returncode == 1:
                self.assertRegex(done.stderr, rb"^qrx: .*(memory|thread)[^\n]*\n$")
                self.assertEqual(self.files(), ["f"])
            elif done.returncode == 0:
                os.remove(self.dir / "f.qrx")
        self.assertEqual(statuses[-1], 0)
        self.assertIn(1, statuses)


class Sources(ToolTest):
    content = random_bytes(6 * MIB)

    def stalled(self):
        """Starts a run that waits for its output pipe to be read."""
        self.put("f", self.content)
        process = self.start("-c", "-1", "-b1", "-T1", "f", bufsize=0)
        header = process.stdout.read(100)
        return process, header

    def test_source_that_vanishes(self):
        process, header = self.stalled()
        os.remove(self.dir / "f")
        rest, errors = process.communicate()
        self.assertEqual((process.returncode, errors), (0, b""))
        self.assertEqual(self.original(header + rest), self.content)

    def test_source_that_shrinks(self):
        process, _ = self.stalled()
        os.truncate(self.dir / "f", 5 * MIB + 1)
        _, errors = process.communicate()
        self.assertEqual(process.returncode, 1)
        self.assertIn(b"f: shrank while being read", errors)

    def test_source_that_grows(self):
        process, header = self.stalled()
        with open(self.dir / "f", "ab") as source:
            source.write(b"more")
        rest, errors = process.communicate()
        self.assertEqual((process.returncode, errors), (0, b""))
        self.assertEqual(self.original(header + rest), self.content)

    def changing(self, change, *options):
        """Runs qrx --rm on a file that change() alters while it is read."""
        self.put("f", text(2 * MIB))
        process = self.start("-58", "-b1", "-T1", *options, "f")
        wait_until(lambda: has_open(process, self.dir / "f") or process.poll() is not None)
        self.assertIsNone(process.poll())
        time.sleep(0.05)
        change(self.dir / "f")
        _, errors = process.communicate()
        return process.returncode, errors

    def test_changed_source_is_not_removed(self):
        def grow(name):
            with open(name, "ab") as source:
                source.write(b"more")

        status, errors = self.changing(grow, "--rm")
        self.assertEqual(status, 1)
        self.assertIn(b"not removed: changed", errors)
        self.assertEqual(self.get("f"), text(2 * MIB) + b"more")

    def test_replaced_source_is_not_removed(self):
        def replace(name):
            self.put("other", b"other")
            os.rename(self.dir / "other", name)

        status, errors = self.changing(replace, "--rm")
        self.assertEqual(status, 1)
        self.assertIn(b"not removed: changed", errors)
        self.assertEqual(self.get("f"), b"other")
        self.assertEqual(self.original(self.get("f.qrx")), text(2 * MIB))

    def test_verification_notices_a_changed_source(self):
        def overwrite(name):
            with open(name, "r+b") as source:
                source.write(b"XXXX")

        status, errors = self.changing(overwrite, "--rm")
        self.assertNotEqual(status, 0)
        self.assertEqual(self.get("f")[:4], b"XXXX")

    def test_missing_source(self):
        done = self.qrx("missing", status=1)
        self.assertEqual(done.stderr, b"qrx: missing: No such file or directory\n")

    def test_removal_needs_an_output_file(self):
        self.put("f", b"x")
        for options in (["-o", "-"], ["-c"]):
            self.qrx("--rm", *options, "f", status=1)
        self.qrx("--rm", stdin=b"x", status=1)
        self.assertEqual(self.files(), ["f"])

    def test_removal_of_a_compressed_file_needs_an_output_file(self):
        self.put("f.qrx", self.compressed(b"content"))
        for options in (["-o", "-"], ["-c"]):
            self.assertEqual(self.qrx("-d", "--rm", *options, "f.qrx", status=1).stdout, b"")
        self.assertEqual(self.files(), ["f.qrx"])

    def test_verification_needs_an_output_file(self):
        self.put("f.qrx", self.compressed(b"content"))
        self.assertEqual(self.qrx("-d", "--verify", "-o", "-", "f.qrx", status=1).stdout, b"")
        self.qrx("-d", "--verify", stdin=self.get("f.qrx"), status=1)

    def test_removal_of_an_empty_file(self):
        self.put("f", b"")
        self.qrx("--rm", "f")
        self.assertEqual(self.files(), ["f.qrx"])


class Messages(ToolTest):
    def test_one_bad_file_of_several(self):
        self.make_tree({"a": b"a", "b": b"b", "z": b"z"})
        self.qrx("a", "missing", "b", "z", status=1)
        self.assertEqual(self.files(), ["a", "a.qrx", "b", "b.qrx", "z", "z.qrx"])
        damaged = self.get("b.qrx")[:-6]
        self.put("b.qrx", damaged)
        self.qrx("-df", "a.qrx", "missing.qrx", "b.qrx", "z.qrx", status=2)
        self.qrx("-t", "a.qrx", "missing.qrx", "z.qrx", status=1)
        self.qrx("-t", "a.qrx", "b.qrx", "missing.qrx", status=2)

    def test_exit_statuses(self):
        self.put("f", b"x")
        self.qrx("f")
        self.qrx("-h")
        self.qrx("-V")
        for words in (["--unknown"], ["-b", "0", "f"], ["-b", "0x1", "f"],
                      ["-b", "2048", "f"], ["-60", "f"], ["-T999", "f"], ["-o"],
                      ["-c", "-o", "x", "f"], ["missing"], ["--memory-limit", "x", "f"]):
            done = self.qrx(*words, status=1)
            self.assertEqual(done.stderr.count(b"\n"), 1, done.stderr)
            self.assertTrue(done.stderr.startswith(b"qrx: "))
        self.qrx("-dc", "f", status=2)
        self.qrx("-t", stdin=b"", status=2)

    def test_numbers_are_decimal(self):
        self.put("f", b"x")
        self.qrx("-b", "010", "-T", "08", "f")
        self.assertIn(b"10485760 bytes", self.qrx("info", "f.qrx").stdout)

    def test_quiet_and_verbose(self):
        self.put("f", text(1000))
        for options, lines in ((["-q"], 0), ([], 0), (["-v"], 1)):
            done = self.qrx("-f", *options, "f")
            self.assertEqual((done.stdout, done.stderr.count(b"\n")), (b"", lines))
            done = self.qrx("-df", *options, "f.qrx")
            self.assertEqual((done.stdout, done.stderr.count(b"\n")), (b"", lines))
        self.assertEqual(self.qrx("-tq", "f.qrx").stdout, b"")
        self.assertNotEqual(self.qrx("-q", "missing", status=1).stderr, b"")

    def test_memory_limit_lowers_the_threads(self):
        content = long_text(5 * MIB)
        self.put("f", content)
        done = self.qrx("-T8", "-b1", "-30", "--memory-limit", "16M", "f")
        self.assertRegex(done.stderr, rb"^qrx: f: uses ([1-7] of 8|no worker) threads[^\n]*\n$")
        self.assertEqual(self.original(self.get("f.qrx")), content)
        quiet = self.qrx("-qf", "-T8", "-b1", "-30", "--memory-limit", "16M", "f")
        self.assertEqual(quiet.stderr, b"")

    def test_memory_limit_and_a_single_block(self):
        content = text(100000)
        self.put("f", content)
        for options in (["-30"], ["-d", "-f"]):
            name = "f.qrx" if "-d" in options else "f"
            done = self.qrx("-T8", "--memory-limit", "20M", *options, name)
            self.assertEqual(done.stderr, b"", "one block needs no thread")
        self.assertEqual(self.get("f"), content)

    def test_memory_limit_that_is_too_low(self):
        self.put("f", text(1000))
        done = self.qrx("-q", "--memory-limit", "1000", "f", status=1)
        self.assertIn(b"the memory limit is 1.0 KiB", done.stderr)
        self.assertEqual(self.files(), ["f"])

    def test_json_lines(self):
        names = ["a", "b\n\xe4", "c\udcff"]
        for index, name in enumerate(names):
            self.put(name, text(1000 * index, 1))
        for command in (["-f"], ["-df"], ["-t"]):
            operands = names if command == ["-f"] else [name + ".qrx" for name in names]
            done = self.qrx("--json", *command, *map(os.fsencode, operands))
            objects = [json.loads(line) for line in done.stdout.splitlines()]
            self.assertEqual(len(objects), 3)
            self.assertEqual([item["original_size"] for item in objects], [0, 1000, 2000])
            self.assertTrue(done.stdout.isascii())

    def test_json_and_data_are_kept_apart(self):
        done = self.qrx("--json", stdin=b"x", status=1)
        self.assertEqual(done.stdout, b"")
        done = self.qrx("-d", "--json", stdin=self.compressed(b"x"), status=1)
        self.assertEqual(done.stdout, b"")
        self.qrx("--json", "-o", "out", stdin=b"x")
        self.assertEqual(self.original(self.get("out")), b"x")

    def test_messages_of_several_processes_are_whole_lines(self):
        names = [f"missing-{index}" for index in range(40)]
        done = self.shell("printf '%s\\0' " + " ".join(names) + " | xargs -0 -P4 -n5 qrx", status=123)
        self.assertEqual(sorted(done.stderr.splitlines()),
                         sorted(b"qrx: %s: No such file or directory" % name.encode()
                                for name in names))

    def test_working_directory_that_is_gone(self):
        self.put("d/f", b"x")
        done = self.shell("cd d && rm f && rmdir ../d && qrx -o f.qrx < /dev/null", status=1)
        self.assertRegex(done.stderr, rb"^qrx: f.qrx: [^\n]*\n$")

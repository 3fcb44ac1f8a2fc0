"""Standard streams: pipes, redirections, offsets, closed streams."""

import os
import signal
import threading

from qrx_tool import MIB, QRXCAT, ToolTest, long_text, random_bytes, text


class Pipes(ToolTest):
    def test_both_ways_through_pipes(self):
        for size in (0, 1, 100000):
            content = long_text(size)
            self.assertEqual(self.original(self.compressed(content)), content)

    def test_more_than_a_block_of_unknown_size(self):
        for size in (MIB - 1, MIB, MIB + 1, 2 * MIB, 3 * MIB + 17):
            content = long_text(size)
            self.assertEqual(self.original(self.compressed(content, "-b1", "-1")), content, size)

    def test_pipe_and_file_give_the_same_bytes(self):
        content = long_text(2 * MIB + 100)
        self.put("plain", content)
        self.qrx("-b1", "plain")
        self.assertEqual(self.compressed(content, "-b1"), self.get("plain.qrx"))

    def test_endless_input_of_another_format_is_refused(self):
        done = self.shell("qrx -d < /dev/zero", status=2)
        self.assertIn(b"not a .qrx file", done.stderr)

    def test_compressed_input_larger_than_the_memory_for_pipes(self):
        content = random_bytes(17 * MIB)
        self.put("plain", content)
        self.shell("qrx -c -10 < plain | cat | qrx -d | cmp - plain")

    def test_other_formats_are_passed_through_without_a_copy(self):
        disk = self.small_disk(1000)
        self.shell(f"head -c 40000000 /dev/zero | TMPDIR='{disk}' qrxcat | cmp - <(head -c 40000000 /dev/zero)")
        for size in (0, 1, 31, 32, 33, MIB, 17 * MIB):
            content = random_bytes(size)
            self.assertEqual(self.qrx(program=QRXCAT, stdin=content).stdout, content, size)

    def test_reader_that_stops_early(self):
        self.put("big", long_text(9 * MIB))
        self.shell("qrx -1 big")
        done = self.shell("qrx -dc big.qrx | head -c 10 | cat; echo ${PIPESTATUS[0]}")
        self.assertEqual(done.stdout, self.get("big")[:10] + b"141\n")
        self.assertEqual(done.stderr, b"")
        self.put("noise", random_bytes(4 * MIB))
        done = self.shell("qrx -c noise | head -c 10 | wc -c; echo ${PIPESTATUS[0]}")
        self.assertEqual((done.stdout, done.stderr), (b"10\n141\n", b""))

    def test_broken_pipe_is_an_error_if_its_signal_is_ignored(self):
        self.put("noise", random_bytes(4 * MIB))
        process = self.start("-c", "noise", restore_signals=False)
        process.stdout.read(10)
        process.stdout.close()
        self.assertEqual(process.wait(), 1)
        self.assertIn(b"Broken pipe", process.stderr.read())

    def test_named_pipes(self):
        os.mkfifo(self.dir / "in")
        content = text(50000)
        writer = threading.Thread(target=(self.dir / "in").write_bytes, args=(content,))
        writer.start()
        compressed = self.qrx("-c", "in").stdout
        writer.join()
        self.assertEqual(self.original(compressed), content)
        for options in ("-o out.qrx", "-o out.qrx -f"):
            self.shell(f"qrx {options} in & cat > in; wait $!", stdin=content)
            self.assertEqual(self.original(self.get("out.qrx")), content)

    def test_named_pipe_without_force_is_refused_at_once(self):
        os.mkfifo(self.dir / "in")
        done = self.qrx("in", status=1, timeout=20)
        self.assertIn(b"not a regular file", done.stderr)


class Redirections(ToolTest):
    content = long_text(2 * MIB + 3)

    def setUp(self):
        super().setUp()
        self.put("plain", self.content)

    def check(self, compressed):
        self.assertEqual(self.original(compressed), self.content)

    def test_to_and_from_a_file(self):
        self.shell("qrx -b1 < plain > out; qrx -d < out > back; cmp plain back")

    def test_appending(self):
        for source in ("< plain", "-c plain", "< <(cat plain)"):
            self.put("out", b"kept")
            self.shell(f"qrx -b1 {source} >> out")
            self.assertEqual(self.get("out")[:4], b"kept", source)
            self.check(self.get("out")[4:])
        self.put("back", b"kept")
        self.shell("qrx -c plain | qrx -dc >> back")
        self.assertEqual(self.get("back"), b"kept" + self.content)

    def test_at_an_offset_of_the_output(self):
        self.shell("(echo before; cat plain | qrx -b1; echo after) > out")
        written = self.get("out")
        self.assertTrue(written.startswith(b"before\n") and written.endswith(b"after\n"))
        self.check(written[7:-6])

    def test_decompressing_at_an_offset_of_the_output(self):
        self.shell("qrx -c plain > c; (echo before; qrx -dc c c; echo after) > out")
        self.assertEqual(self.get("out"), b"before\n" + self.content * 2 + b"after\n")

    def test_from_an_offset_of_the_input(self):
        self.shell("(echo line; cat plain) > in; (read -r line; qrx -b1) < in > out")
        self.check(self.get("out"))
        self.shell("(echo line; cat out) > in; (read -r line; qrx -d) < in > back; cmp plain back")
        self.shell("(echo line; cat plain) > in; (read -r line; qrx --verify) < in > out")
        self.check(self.get("out"))

    def test_input_that_is_read_up(self):
        done = self.shell("(cat > /dev/null; qrx) < plain")
        self.assertEqual(self.original(done.stdout), b"")

    def test_null_device(self):
        self.assertEqual(self.original(self.shell("qrx < /dev/null").stdout), b"")
        self.shell("qrx -c plain > /dev/null; qrx < plain > /dev/null")
        self.shell("qrx -c plain > c; qrx -dc c > /dev/null")

    def test_files_that_claim_to_be_empty(self):
        status = self.shell("qrx -c /proc/version").stdout
        with open("/proc/version", "rb") as version:
            self.assertEqual(self.original(status), version.read())
        self.assertNotEqual(self.original(self.shell("qrx < /proc/version").stdout), b"")

    def test_read_error(self):
        done = self.qrx("-c", "/proc/self/mem", status=1)
        self.assertIn(b"/proc/self/mem: Input/output error", done.stderr)

    def test_full_device(self):
        for command in ("qrx -c plain", "qrx < plain", "cat plain | qrx -b1", "qrx --verify < plain",
                        "qrx -c plain | qrx -d", "qrx -h", "qrx -V"):
            done = self.shell(f"{command} > /dev/full", status=1)
            self.assertIn(b"No space left on device", done.stderr, command)


class ClosedStreams(ToolTest):
    def setUp(self):
        super().setUp()
        self.put("plain", text(5000))

    def test_files_need_no_standard_streams(self):
        self.shell("qrx plain <&- >&- 2>&-; mv plain old; qrx -d plain.qrx <&- >&- 2>&-")
        self.assertEqual(self.get("plain"), self.get("old"))

    def test_closed_output_is_an_error(self):
        for command in ("qrx -c plain", "qrx < plain", "qrx -V", "qrx -c plain | qrx -d"):
            done = self.shell(f"{command} >&-", status=1)
            self.assertIn(b"Bad file descriptor", done.stderr, command)

    def test_closed_input_is_an_error(self):
        for command in ("qrx", "qrx -d", "qrx -t", "qrx -dc"):
            done = self.shell(f"{command} <&-", status=1)
            self.assertIn(b"Bad file descriptor", done.stderr, command)

    def test_messages_never_go_to_a_file(self):
        self.shell("qrx plain missing 2>&-", status=1)
        self.assertEqual(self.original(self.get("plain.qrx")), self.get("plain"))

    def test_streams_that_can_only_be_used_the_other_way(self):
        self.shell("qrx -c plain 1< plain", status=1)
        self.shell("qrx 0> other", status=1)

    def test_signal_of_a_pipe_is_quiet(self):
        self.put("noise", random_bytes(MIB))
        process = self.start("-c", "noise")
        process.stdout.close()
        self.assertEqual(process.wait(), -signal.SIGPIPE)
        self.assertEqual(process.stderr.read(), b"")

"""Terminals: questions, progress, refusals."""

import fcntl
import os
import pty
import re
import signal
import struct
import subprocess
import termios
import time

from qrx_tool import MIB, ToolTest, long_text, random_bytes, text, wait_until, wait_until_drained


def six_bit_noise(size):
    """Returns bytes that compress to three quarters, and take long to decode with -50."""
    return random_bytes(size).translate(bytes(range(64, 128)) * 4)


class TerminalTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.master, self.slave = pty.openpty()
        self.addCleanup(os.close, self.master)
        os.set_blocking(self.master, False)
        self.shown = b""
        self.resize(100)

    def resize(self, columns):
        fcntl.ioctl(self.slave, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))

    def read(self):
        """Adds what is on the terminal to self.shown."""
        try:
            while part := os.read(self.master, 65536):
                self.shown += part
        except (BlockingIOError, OSError):
            pass
        return self.shown

    def end(self, process, status):
        """Waits for a process and checks its exit status."""
        wait_until(lambda: self.read() is not None and process.poll() is not None)
        self.assertEqual(process.returncode, status, self.read())
        self.read()
        os.close(self.slave)


class Questions(TerminalTest):
    def ask(self, answer, status, *words):
        self.make_tree({"f": text(1000), "f.qrx": b"old"})
        process = self.start(*words, "f", stdin=self.slave, stderr=self.slave)
        wait_until(lambda: b"overwrite it (y or n)? " in self.read())
        self.assertEqual(self.get("f.qrx"), b"old")
        os.write(self.master, answer)
        self.end(process, status)

    def test_yes(self):
        for answer in (b"y\n", b"Yes\n"):
            self.ask(answer, 0)
            self.assertEqual(self.original(self.get("f.qrx")), text(1000))
            self.master_again()

    def test_anything_else(self):
        for answer in (b"n\n", b"\n", b"no y\n", b"\x04"):
            self.ask(answer, 1)
            self.assertEqual(self.get("f.qrx"), b"old")
            self.assertIn(b"\n", self.shown[self.shown.index(b"? "):-2])
            self.assertIn(b"\nqrx: f.qrx: exists", self.shown)
            self.master_again()

    def master_again(self):
        os.close(self.master)
        self.master, self.slave = pty.openpty()
        os.set_blocking(self.master, False)
        self.shown = b""

    def test_each_file_is_asked_for(self):
        self.make_tree({"a": b"a", "b": b"b", "a.qrx": b"old", "b.qrx": b"old"})
        process = self.start("a", "b", stdin=self.slave, stderr=self.slave)
        wait_until(lambda: b"a.qrx exists" in self.read())
        os.write(self.master, b"n\n")
        wait_until(lambda: b"b.qrx exists" in self.read())
        os.write(self.master, b"y\n")
        self.end(process, 1)
        self.assertEqual(self.get("a.qrx"), b"old")
        self.assertEqual(self.original(self.get("b.qrx")), b"b")

    def test_question_shows_the_name_safely(self):
        self.make_tree({"f\x1b[2J": b"", "f\x1b[2J.qrx": b""})
        process = self.start("f\x1b[2J", stdin=self.slave, stderr=self.slave)
        wait_until(lambda: b"? " in self.read())
        self.assertIn(b"qrx: f\\x1b[2J.qrx exists", self.shown)
        self.assertNotIn(b"\x1b", self.shown)
        os.write(self.master, b"n\n")
        self.end(process, 1)


class Output(TerminalTest):
    def test_no_compressed_data_on_a_terminal(self):
        self.put("f", b"x")
        for words in (["-c", "f"], []):
            process = self.start(*words, stdin=subprocess.DEVNULL, stdout=self.slave)
            _, errors = process.communicate()
            self.assertEqual(process.returncode, 1)
            self.assertIn(b"isn't written to a terminal", errors)
            self.assertEqual(self.read(), b"")

    def test_force_writes_it(self):
        self.put("f", text(1000))
        process = self.start("-cf", "f", stdout=self.slave)
        self.end(process, 0)
        self.assertNotEqual(self.shown, b"")

    def test_decompressed_data_on_a_terminal(self):
        self.put("f.qrx", self.compressed(b"hello\n"))
        self.end(self.start("-dc", "f.qrx", stdout=self.slave), 0)
        self.assertEqual(self.shown, b"hello\r\n")


class Progress(TerminalTest):
    def feed(self, *words, stderr):
        """Feeds a run slowly enough that it shows its progress."""
        process = self.start(*words, "-b1", "-1", "-T1", "-o", "out", stderr=stderr, bufsize=0)
        for _ in range(3):
            process.stdin.write(long_text(MIB + 1))
            wait_until_drained(process.stdin)
            time.sleep(0.35)
            self.read()
        process.stdin.close()
        return process

    def test_progress_and_its_end(self):
        process = self.feed(stderr=self.slave)
        self.end(process, 0)
        self.assertRegex(self.shown, rb"MiB +\d+ MB/s +ratio 0\.\d\d\d")
        self.assertTrue(self.shown.endswith(b"\r\x1b[K"), self.shown)

    def test_progress_of_a_file(self):
        name = "long-" + "\u00e4" * 60 + "\x1b"
        self.put(name, random_bytes(3 * MIB))
        for columns in (100, 50, 20, 5, 1):
            self.resize(columns)
            self.shown = b""
            process = self.start("-cv", "-1", "-b1", "-T1", name, stderr=self.slave)
            time.sleep(0.6)
            process.stdout.read()  # until then, the run waited for its first block to be read
            self.assertEqual(process.wait(), 0)
            lines = self.read().decode().split("\r\x1b[K")
            self.assertEqual(lines.pop(0), "")
            self.assertIn("3.0 MiB -> 3.0 MiB", lines.pop())  # the line of -v
            for line in lines:
                self.assertLess(len(line.encode()), max(columns, 2))
                self.assertFalse(re.search("[\x00-\x1f]", line), line)
            if columns == 100:
                self.assertRegex(lines[0], r"\d+ %  \d+:\d\d left")

    def run_slowly(self, *words, max_stops=100, **streams):
        """Stops a run again and again until it shows its progress, which is due after half a second."""
        process = self.start(*words, stderr=self.slave, **streams)
        for stop in range(1, max_stops + 1):
            time.sleep(0.005 * stop)  # slow machines need more time, and fast ones end soon
            process.send_signal(signal.SIGSTOP)
            time.sleep(0.3)
            process.send_signal(signal.SIGCONT)
            if process.poll() is not None or b"MB/s" in self.read():
                break
        wait_until(lambda: self.read() is not None and process.poll() is not None)
        self.assertEqual(process.returncode, 0, self.read())
        shown, self.shown = self.read().decode(), b""
        return shown

    def test_ratio_of_known_files_is_that_of_the_whole_file(self):
        size = 4 * MIB
        self.put("f", six_bit_noise(size))
        self.qrx("-50", "-b1", "f")
        self.qrx("split", "f.qrx")
        ratio = f"ratio {len(self.get('f.qrx')) / size:.3f}"
        for words in ("-t f.qrx", "-d -o out f.qrx", "-df --verify f.qrx", "verify f.qrx",
                      "recover -o saved f.qrx", "info --test f.qrx", "split -f f.qrx",
                      "join --verify -o joined f.1of2.qrx f.2of2.qrx"):
            with self.subTest(words=words):
                shown = self.run_slowly(*words.split(), "-T1")
                self.assertEqual(set(re.findall(r"ratio \d\.\d\d\d", shown)), {ratio})
                self.assertTrue(shown.endswith("\r\x1b[K"), shown[-100:])

    def test_progress_ends_after_verification(self):
        self.put("f", six_bit_noise(4 * MIB))
        shown = self.run_slowly("-50", "-b1", "-T1", "--rm", "f")
        self.assertIn("MB/s", shown)
        self.assertTrue(shown.endswith("\r\x1b[K"), shown[-100:])

    def test_no_progress_among_content(self):
        self.put("f.qrx", self.compressed(six_bit_noise(4 * MIB), "-50", "-b1"))
        null = subprocess.DEVNULL  # like a pipe, it could be read by a pager
        for words in (["-dc", "f.qrx"], ["cat", "f.qrx"], ["-d", "-o", "-", "f.qrx"]):
            self.assertEqual(self.run_slowly(*words, "-T1", max_stops=5, stdout=null), "", words)
            self.assertIn("MB/s", self.run_slowly(*words, "-vT1", stdout=null), words)
        shown = self.run_slowly("cat", "-vT1", "f.qrx", max_stops=5, stdout=self.slave)
        self.assertFalse("\x1b" in shown)

    def test_no_progress_without_a_terminal(self):
        process = self.feed(stderr=subprocess.PIPE)
        self.assertEqual(process.stderr.read(), b"")
        self.assertEqual(process.wait(), 0)

    def test_no_progress_with_q(self):
        process = self.feed("-q", stderr=self.slave)
        self.end(process, 0)
        self.assertEqual(self.shown, b"")

    def test_message_after_progress_starts_a_line(self):
        process = self.start("-b1", "-1", "-T1", "-o", "out", stderr=self.slave, bufsize=0)
        for _ in range(3):
            process.stdin.write(random_bytes(MIB))
            wait_until_drained(process.stdin)
            time.sleep(0.35)
        self.put("out", b"precious")
        process.stdin.close()
        self.end(process, 1)
        self.assertRegex(self.shown, rb"MB/s[^\r]*\r\x1b\[Kqrx: out: File exists\r\n$")

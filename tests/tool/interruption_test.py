"""After a signal there is a complete output or none, and the source is unchanged."""

import os
import signal
import subprocess
import time

from qrx_tool import MIB, QRX, ToolTest, random_bytes, text, wait_until_drained

SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGKILL)


class Interruption(ToolTest):
    moments = 4

    def interrupt(self, number, delay, *command):
        """Interrupts a run after a time; returns its exit status and standard error."""
        process = self.start(*command, stdin=subprocess.DEVNULL)
        time.sleep(delay)
        process.send_signal(number)
        _, errors = process.communicate()
        return process.returncode, errors

    def duration(self, *command):
        started = time.monotonic()
        self.qrx(*command)
        return time.monotonic() - started

    def for_each_moment(self, *command, cleanup, check):
        """Interrupts runs of a command at moments from its start to a little past its end."""
        duration = self.duration(*command)
        cleanup()
        finished = 0
        for number in SIGNALS:
            for moment in range(self.moments):
                delay = 1.1 * duration * moment / (self.moments - 1)
                status, errors = self.interrupt(number, delay, *command)
                self.assertIn(status, (0, -number))
                self.assertEqual(errors, b"")
                check(status)
                finished += status == 0
                cleanup()
        self.assertLess(finished, len(SIGNALS) * self.moments)

    def remove(self, *names):
        for name in names:
            (self.dir / name).unlink(missing_ok=True)

    def test_compressing(self):
        content = text(MIB // 4)
        self.put("f", content)

        def check(status):
            self.assertEqual(self.get("f"), content)
            self.assertIn(self.files(), (["f"], ["f", "f.qrx"]))
            if status == 0 or len(self.files()) == 2:
                self.assertEqual(self.original(self.get("f.qrx")), content)

        self.for_each_moment("-58", "-b1", "-T2", "f", cleanup=lambda: self.remove("f.qrx"),
                             check=check)

    def test_compressing_with_removal(self):
        content = text(MIB // 6)
        self.put("f", content)

        def check(status):
            if status == 0: self.assertEqual(self.files(), ["f.qrx"])
            self.assertIn(self.files(), (["f"], ["f", "f.qrx"], ["f.qrx"]))
            if "f" in self.files(): self.assertEqual(self.get("f"), content)
            if "f.qrx" in self.files(): self.assertEqual(self.original(self.get("f.qrx")), content)

        def cleanup():
            self.remove("f.qrx")
            self.put("f", content)

        self.for_each_moment("-57", "-b1", "--rm", "f", cleanup=cleanup, check=check)

    def test_replacing_an_output(self):
        content = text(MIB // 6)
        old = self.compressed(b"old")
        self.put("f", content)

        def check(_status):
            self.assertEqual(self.files(), ["f", "f.qrx"])
            self.assertIn(self.original(self.get("f.qrx")), (b"old", content))

        self.for_each_moment("-57", "-b1", "-f", "f", cleanup=lambda: self.put("f.qrx", old),
                             check=check)

    def test_decompressing(self):
        content = random_bytes(3 * MIB)
        self.put("f.qrx", self.compressed(content, "-b1"))

        def check(_status):
            self.assertIn(self.files(), (["f.qrx"], ["f", "f.qrx"]))
            if "f" in self.files(): self.assertEqual(self.get("f"), content)

        self.for_each_moment("-d", "f.qrx", cleanup=lambda: self.remove("f"), check=check)

    def test_several_files(self):
        content = text(100000)
        names = [f"f{index}" for index in range(6)]
        for name in names:
            self.put(name, content)
        outputs = [name + ".qrx" for name in names]

        def check(_status):
            made = [name for name in self.files() if name.endswith(".qrx")]
            self.assertEqual(made, outputs[:len(made)])
            self.assertEqual(len(self.files()), len(names) + len(made))
            if made: self.qrx("-tq", *made)

        self.for_each_moment("-37", *names, cleanup=lambda: self.remove(*outputs), check=check)


class WithTemporaryNames(ToolTest):
    """The same without nameless files: outputs have a temporary name until they are complete."""

    def waiting_run(self, prefix, *options):
        """Starts a run that waits for more input while its output is half written."""
        process = self.start(*prefix[1:], QRX, "-b1", "-1", "-T1", *options, "-o", "out",
                             program=prefix[0], bufsize=0)
        process.stdin.write(random_bytes(3 * MIB))
        wait_until_drained(process.stdin)
        return process

    def test_interruption_removes_the_temporary_file(self):
        prefix = self.nameless_files_refused()
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            process = self.waiting_run(prefix)
            self.assertRegex(" ".join(self.files()), r"^\.qrx-[-0-9]+$")
            process.send_signal(number)
            _, errors = process.communicate()
            self.assertEqual((process.returncode, errors), (-number, b""))
            self.assertEqual(self.files(), [])

    def test_complete_output_gets_its_name(self):
        prefix = self.nameless_files_refused()
        self.put("out", b"old")
        process = self.waiting_run(prefix, "-f")
        self.assertEqual(process.communicate()[1], b"")
        self.assertEqual(process.returncode, 0)
        self.assertEqual(self.files(), ["out"])
        self.assertEqual(self.original(self.get("out")), random_bytes(3 * MIB))

    def test_failure_removes_the_temporary_file(self):
        prefix = self.nameless_files_refused()
        self.put("bad.qrx", self.compressed(random_bytes(MIB))[:-1000])
        done = subprocess.run([*prefix, QRX, "-d", "bad.qrx"], cwd=self.dir, capture_output=True)
        self.assertEqual(done.returncode, 2)
        self.assertEqual(self.files(), ["bad.qrx"])

    def test_pipes_need_no_lasting_file(self):
        prefix = self.nameless_files_refused()
        content = random_bytes(3 * MIB)
        done = subprocess.run([*prefix, QRX, "-b1"], cwd=self.dir, input=content,
                              capture_output=True, env=dict(os.environ, TMPDIR=str(self.dir)))
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(self.original(done.stdout), content)
        self.assertEqual(self.files(), [])


class Waiting(ToolTest):
    def test_interruption_while_waiting_for_input(self):
        for number in SIGNALS:
            process = self.start("-b1", "-o", "out", bufsize=0)
            process.stdin.write(random_bytes(3 * MIB))
            wait_until_drained(process.stdin)
            self.assertEqual(self.files(), [])  # no name until it is complete
            process.send_signal(number)
            _, errors = process.communicate()
            self.assertEqual((process.returncode, errors), (-number, b""))
            self.assertEqual(self.files(), [])

    def test_ignored_signals_stay_ignored(self):
        process = self.start("-c", "trap '' HUP INT; exec \"$0\" -o out", QRX, program="/bin/sh",
                             bufsize=0)
        process.stdin.write(b"x")
        wait_until_drained(process.stdin)
        for number in (signal.SIGHUP, signal.SIGINT):
            process.send_signal(number)
        process.stdin.write(b"y")
        self.assertEqual(process.communicate()[1], b"")
        self.assertEqual(process.returncode, 0)
        self.assertEqual(self.original(self.get("out")), b"xy")

    def test_stopping_and_continuing(self):
        process = self.start("-o", "out", bufsize=0)
        process.stdin.write(b"x")
        wait_until_drained(process.stdin)
        process.send_signal(signal.SIGSTOP)
        process.send_signal(signal.SIGCONT)
        process.communicate(b"y")
        self.assertEqual(process.returncode, 0)
        self.assertEqual(self.original(self.get("out")), b"xy")

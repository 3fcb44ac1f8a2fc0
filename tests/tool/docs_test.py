"""Documents, completions and the magic entry agree with the program."""

import pathlib
import re
import shutil
import subprocess
import unittest

from qrx_tool import ToolTest, run, text

ROOT = pathlib.Path(__file__).resolve().parents[2]
COMMANDS = ["", "test", "list", "info", "verify", "cat", "recover", "split", "join", "bench"]


def page(name):
    return (ROOT / name).read_text(encoding="utf-8")


def presets():
    """The cell of each preset, from the source, and the default."""
    source = page("src/tool/presets.h")
    cells = re.search(r"preset_cells\{([\d, ]+)\}", source).group(1).split(",")
    default = re.search(r"default_preset = (\d)", source).group(1)
    return {str(preset): int(cell) for preset, cell in enumerate(cells) if preset != 0}, default


def pairs(pattern, content):
    return {preset: int(cell) for preset, cell in re.findall(pattern, content, re.MULTILINE)}


class PresetsTest(ToolTest):
    def test_readme_and_manual_list_the_presets_of_the_program(self):
        cells, default = presets()
        manual, readme = page("docs/man/qrx.1"), page("README.md")
        self.assertEqual(pairs(r"^\.It Fl (\d) Ta Fl (\d\d) Ta ", manual), cells)
        self.assertEqual(pairs(r"^\| `-(\d)`(?: \(default\))? \| `-(\d\d)` \|", readme), cells)
        self.assertIn(f"The default is\n.Fl {default} .", manual)
        self.assertIn(f"| `-{default}` (default) |", readme)

    def test_help_lists_the_presets(self):
        cells, default = presets()
        shown = self.qrx("-h").stdout.decode()
        self.assertEqual(pairs(r"-(\d) = -(\d\d)", shown), cells)
        self.assertIn(f"-{default} = -{cells[default]} (default)", shown)


class OptionsTest(ToolTest):
    def options(self, command):
        """The long options that the help of a command shows."""
        shown = self.qrx(*command.split(), "-h").stdout.decode()
        found = re.findall(r"^ +(?:-\w,)?(--[a-z-]+)", shown, re.MULTILINE)
        self.assertGreaterEqual(len(found), 4, shown)
        return set(found)

    def assert_matches(self, pattern, content):
        self.assertTrue(re.search(pattern, content, re.MULTILINE), pattern)

    def test_the_manual_explains_every_option_and_command(self):
        manual = page("docs/man/qrx.1")
        for command in COMMANDS:
            for option in self.options(command):
                with self.subTest(command=command, option=option):
                    self.assert_matches(rf"^\.It .* {option[1:]}( |$)", manual)
            self.assert_matches(rf"^\.It Cm {command}$" if command else r"^\.Nm qrx ,$", manual)

    def test_bash_completes_every_option(self):
        source = ROOT / "completions/qrx.bash"
        for command in COMMANDS:
            done = run("-c", f"complete() {{ :; }}; . '{source}'; _qrx_options {command or 'compress'}",
                       program="/bin/bash")
            offered = set(done.stdout.decode().split())
            offered = {word for word in offered if word.startswith("--")}
            self.assertEqual(offered, self.options(command), command)

    def test_zsh_and_fish_complete_every_option(self):
        zsh, fish = page("completions/_qrx"), page("completions/qrx.fish")
        for command in COMMANDS:
            for option in self.options(command):
                with self.subTest(command=command, option=option):
                    self.assert_matches(rf"{option}[,'}}\[]", zsh)
                    self.assert_matches(rf"^complete .* -l {option[2:]} ", fish)
            if command:
                self.assert_matches(rf"'{command}:", zsh)
                self.assert_matches(rf" -a {command} ", fish)


class MagicTest(ToolTest):
    def test_file_recognizes_compressed_files(self):
        if shutil.which("file") is None:
            self.skipTest("file isn't installed")
        content = text(3000)
        magic = ROOT / "packaging/magic/qrx"
        for args, shown in ((["-33"], "method 3 level 3, original size 3000, blocks of 32 MiB"),
                            (["-59", "-b2"], "method 5 level 9, original size 3000, blocks of 2 MiB")):
            name = self.put("sample.qrx", self.compressed(content, *args))
            said = subprocess.run(["file", "-b", "-m", magic, name], capture_output=True, check=True)
            self.assertEqual(said.stdout.decode().strip(), "QRX compressed data, " + shown)
        self.put("sample.qrx", b"\0QR0" + bytes(40))  # no method 0
        said = subprocess.run(["file", "-b", "-m", magic, name], capture_output=True, check=True)
        self.assertEqual(said.stdout.decode().strip(), "data")


if __name__ == "__main__":
    unittest.main()

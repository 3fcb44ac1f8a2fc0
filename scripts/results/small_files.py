"""Measures a tree of small files: each file compressed on its own, and the whole tree with tar."""

import pathlib
import random
import shutil
import subprocess

from . import commands

PEERS = ("zstd", "gzip", "xz", "tar")
FILES = 5000
FOLDER_FILES = 100
QUICK_FILES = 200
EACH = [("quarnex", "-33"), ("qrx", "-1"), ("qrx", "-5"), ("qrx", "-5 --no-sync"), ("qrx", "-9"), ("zstd", "-3"),
        ("gzip", "-6"), ("xz", "-6")]
WITH_TAR = [("qrx", "-1"), ("qrx", "-5"), ("qrx", "-9"), ("zstd", "-3"), ("gzip", "-6"), ("xz", "-6")]
SUFFIXES = {"quarnex": ".qrx", "qrx": ".qrx", "zstd": ".zst", "gzip": ".gz", "xz": ".xz"}


def make_tree(tree, files):
    """Writes text files of 1 byte to some KiB: words that many of them share."""
    source = random.Random(1)
    words = [str(source.randrange(10 ** source.randrange(2, 9))) for _ in range(3000)]
    for index in range(files):
        folder = tree / f"{index // FOLDER_FILES:03}"
        if index % FOLDER_FILES == 0:
            folder.mkdir(parents=True)
        text = " ".join(source.choices(words, k=int(source.expovariate(1 / 400)) + 1))
        (folder / f"file-{index}.txt").write_text(text, encoding="ascii")


def size_of(tree, pattern="*"):
    return sum(name.stat().st_size for name in tree.rglob(pattern) if name.is_file())


def each_commands(tool, setting, tree):
    """Returns commands that compress all files of a tree, keeping them, and decompress the results."""
    program, options = commands.program_of(tool), setting.split()
    if tool == "quarnex":  # writes the folder of the same name below its destination
        packed, restored = tree.with_name("packed"), tree.with_name("restored")
        return ([program, *options, "-r", tree, packed], [program, "-d", "-r", packed, restored])
    if tool == "xz":  # has no option for directories
        find = ["find", tree, "-type", "f", "-name"]
        return ([*find, "*.txt", "-exec", program, "-k", *options, "{}", "+"],
                [*find, "*.xz", "-exec", program, "-d", "-k", "{}", "+"])
    if tool == "qrx":
        return ([program, "-q", "-r", *options, tree], [program, "-q", "-d", "-r", *options[1:], tree])
    if tool == "zstd":
        return ([program, "-q", "-r", *options, tree], [program, "-q", "-d", "-r", tree])
    return ([program, "-k", "-r", *options, tree], [program, "-d", "-k", "-r", tree])


class Stage:
    """The tree that is compressed, and a copy of it that is never changed."""

    def __init__(self, folder, files):
        self.original = pathlib.Path(folder) / "original"
        self.tree = pathlib.Path(folder) / "tree"
        self.files = files
        make_tree(self.original, files)
        self.bytes = size_of(self.original)

    def reset(self, *_):
        for name in ("tree", "packed", "restored"):
            shutil.rmtree(self.tree.with_name(name), ignore_errors=True)
        shutil.copytree(self.original, self.tree)
        for name in ("packed", "restored"):
            self.tree.with_name(name).mkdir()

    def check(self, restored, what):
        if subprocess.run(["diff", "-r", "-q", self.original, restored], check=False).returncode != 0:
            raise SystemExit(f"{what} doesn't restore the files")

    def row(self, way, tool, setting, size, there, back):
        return {"way": way, "tool": tool, "setting": setting, "files": self.files, "original_bytes": self.bytes,
                "compressed_bytes": size, "compress_s": f"{there.elapsed_s:.3f}",
                "compress_processor_s": f"{there.processor_s:.3f}", "decompress_s": f"{back.elapsed_s:.3f}",
                "decompress_processor_s": f"{back.processor_s:.3f}"}


def measure_each(stage, tool, setting, runs):
    """Files are compressed in place and kept; before decompression the originals are removed."""
    compress, decompress = each_commands(tool, setting, stage.tree)
    suffix = SUFFIXES[tool]
    there = commands.measure(compress, stage.reset, runs)
    size = size_of(stage.tree.parent, "*" + suffix)

    def prepare():
        stage.reset()
        commands.run_once(compress)
        commands.remove(*stage.tree.rglob("*.txt"))

    back = commands.measure(decompress, prepare, runs)
    commands.remove(*stage.tree.rglob("*" + suffix))
    if tool == "quarnex":
        stage.check(next(stage.tree.with_name("restored").rglob("000")).parent, f"{tool} {setting}")
    else:
        stage.check(stage.tree, f"{tool} {setting}")
    return stage.row("each file", tool, setting, size, there, back)


def measure_tar(stage, tool, setting, runs):
    archive = stage.tree.with_name("archive")
    program = commands.program_of(tool)
    there = commands.measure(["tar", "-I", f"{program} {setting}", "-C", stage.original, "-cf", archive, "."],
                             stage.reset, runs)
    restored = stage.tree.with_name("restored")
    back = commands.measure(["tar", "-I", program, "-C", restored, "-xf", archive], stage.reset, runs)
    stage.check(restored, f"tar with {tool} {setting}")
    size = archive.stat().st_size
    archive.unlink()
    return stage.row("tar", tool, setting, size, there, back)


def measure(quick=False):
    """Returns the rows of the table `small_files`."""
    rows, runs = [], 1 if quick else commands.RUNS
    with commands.work_folder() as folder:
        stage = Stage(folder, QUICK_FILES if quick else FILES)
        for way, settings in ((measure_each, EACH), (measure_tar, WITH_TAR)):
            for tool, setting in commands.installed(settings):
                print(f"{tool} {setting}", flush=True)
                rows.append(way(stage, tool, setting, runs))
    return rows

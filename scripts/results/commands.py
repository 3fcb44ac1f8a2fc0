"""Runs programs and measures them."""

import dataclasses
import os
import pathlib
import resource
import shutil
import subprocess
import sys
import tempfile
import time

from temp_dir import temp_dir

from .tables import ROOT

QRX = str(ROOT / "build" / "program" / "qrx")
QUARNEX = str(ROOT / "build" / "program" / "quarnex")
RUNS = 3         # of each command; the fastest counts
LONG_ENOUGH = 5  # seconds; a command that takes this long isn't repeated


@dataclasses.dataclass
class Cost:
    """The smallest times of several runs, maybe of different ones, and the peak memory of the largest process."""

    elapsed_s: float
    processor_s: float
    peak_mib: float
    runs: int = 1


def child_seconds():
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def run_once(command, cwd=None, output=None):
    """GNU time starts the command: the peak of a child of this process would include the interpreter."""
    with tempfile.NamedTemporaryFile("r") as report:
        with open(output or os.devnull, "wb") as stdout:
            before, started = child_seconds(), time.monotonic()
            done = subprocess.run(["time", "-q", "-f", "%M", "-o", report.name, *map(str, command)], cwd=cwd,
                                  stdin=subprocess.DEVNULL, stdout=stdout, stderr=subprocess.PIPE, check=False)
            elapsed, spent = time.monotonic() - started, child_seconds() - before
        if done.returncode != 0:
            sys.exit(f"{' '.join(map(str, command))}: status {done.returncode}\n{done.stderr.decode()[-2000:]}")
        return Cost(elapsed, spent, int(report.read()) / 1024)


def measure(command, prepare=lambda: None, runs=RUNS, **options):
    """Runs a command a few times, each time after prepare()."""
    costs = []
    while len(costs) < runs:
        prepare()
        costs.append(run_once(command, **options))
        if costs[-1].elapsed_s >= LONG_ENOUGH:
            break
    return Cost(min(cost.elapsed_s for cost in costs), min(cost.processor_s for cost in costs),
                max(cost.peak_mib for cost in costs), len(costs))


def work_folder():
    return temp_dir("quarnex-report-")


def installed(settings):
    """Yields the (tool, setting) pairs whose tool is installed, and prints the names of missing tools."""
    for tool, setting in settings:
        if shutil.which(program_of(tool)) is None:
            print(f"{tool} isn't installed: left out", flush=True)
        else:
            yield tool, setting


def program_of(tool):
    return {"qrx": QRX, "quarnex": QUARNEX, "7zip": shutil.which("7zz") or "7z"}.get(tool, tool)


def compress_command(tool, setting, threads, source, target):
    """Returns a command that compresses one file, and where its standard output goes."""
    program, source, target = program_of(tool), str(source), str(target)
    if tool == "7zip":
        return [program, "a", "-bso0", "-bsp0", "-m0=lzma2", f"-mmt={threads}", setting, target, source], None
    if tool == "brotli":
        return [program, "-f", "-w", "24", "-q", setting.lstrip("-"), "-o", target, source], None
    return [program, "-c", *quiet_options(tool), *thread_options(tool, threads), setting, source], target


def decompress_command(tool, threads, source, target):
    program, source, target = program_of(tool), str(source), str(target)
    if tool == "7zip":
        return [program, "x", "-so", f"-mmt={threads}", source], target
    if tool == "brotli":
        return [program, "-d", "-f", "-o", target, source], None
    return [program, "-d", "-c", *quiet_options(tool), *thread_options(tool, threads), source], target


def quiet_options(tool):
    return ["-q"] if tool in ("qrx", "zstd", "lz4") else []


def thread_options(tool, threads):
    if tool in ("qrx", "zstd", "xz"):
        return [f"-T{threads}"]
    return {"pigz": [f"-p{threads}"], "lbzip2": [f"-n{threads}"]}.get(tool, [])


def remove(*names):
    for name in names:
        pathlib.Path(name).unlink(missing_ok=True)

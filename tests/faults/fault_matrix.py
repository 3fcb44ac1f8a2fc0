#!/usr/bin/env python3
"""Makes calls of quarnex, qrx and libqrx fail (memory, read, write, close, thread start), removes and shortens
their files, kills them, and prints a table.

    fault_matrix.py [--quick] [--build DIR] [--csv FILE] [--seed N] [--jobs N]
                    [--only PATTERN]

Each cell is a fault, an operation, a program and a number of workers.  Its runs must end in time,
with the documented exit status and messages (fault_expectations.py); incomplete outputs may be left
only where the documentation says so; other files must be right or unchanged; and the same run
without the fault must succeed afterwards.  Only runs in which the fault happened are counted; a
cell without any is wrong.  --quick takes a few runs of each cell with 0 and 2 workers instead of
each of these calls.  --only selects cells by a regular expression for
"FAULT, PROGRAM, OPERATION, WORKERS".  --csv replaces a table; one in docs/results/ needs a full
run, without --quick and --only.  Fails if a cell is wrong.
"""

import argparse
import collections
import concurrent.futures
import dataclasses
import inspect
import multiprocessing
import os
import pathlib
import random
import re
import signal
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "tests" / "faults"), str(ROOT / "tests" / "tool"), str(ROOT / "scripts")]
sys.dont_write_bytecode = True

from fault_expectations import FAULTS  # noqa: E402
from fault_runs import Case, Programs, Run  # noqa: E402
from results.tables import columns, refuse_partial, write_table  # noqa: E402
from temp_dir import exit_on_signals, temp_dir  # noqa: E402

SHOWN_FAULTS = 5  # of a cell
MAX_SWEEP = 100_000  # calls; more means that a fault is never reached
QUICK_TRIALS = 2
KILLS = 25  # of each kind


@dataclasses.dataclass
class Cell:
    program: str
    operation: str
    fault: str
    workers: int
    runs: int = 0  # in which the fault happened
    result: str = "good"
    note: str = ""
    wrong: list = dataclasses.field(default_factory=list)


def sweep(run, trial, quick, source):
    """Makes the first call fail, then the second and so on, until a run makes fewer calls.
    Yields what is wrong."""
    numbers = range(1, MAX_SWEEP)
    if quick:
        call, file = trial.fault.split()[:2]
        run.prepare(trial)
        run.start(trial, f"{call} {file} 1 1 none")
        numbers = sorted({1, source.randint(1, max(1, run.counts()[1]))})
    for number in numbers:
        fault = trial.fault.format(number)
        happened, found = run.attempt(dataclasses.replace(trial, fault=fault))
        for text in found:
            yield f"{fault} {' '.join(trial.options)}: {text}"
        if not happened:
            if number == 1:
                yield f"{fault}: was not reached"
            return


def kill_repeatedly(run, trial, quick, source):
    """Kills runs before random calls or after random times.  Yields what is wrong."""
    run.prepare(trial)
    started = time.monotonic()
    run.start(dataclasses.replace(trial, delay=0), "any * 1 1 none")
    duration = time.monotonic() - started
    calls = run.counts()[1]
    killed = 0
    for _ in range(KILLS):
        delay = source.uniform(0.001, 1.1 * duration) if trial.delay else 0
        fault = trial.fault.replace("{random}", str(source.randint(1, calls)))
        happened, found = run.attempt(dataclasses.replace(trial, fault=fault, delay=delay))
        for text in found:
            yield f"{fault} after {delay:.3f} s: {text}"
        # With threads the number of calls varies a little, so the last ones may not be reached.
        if happened:
            killed += 1
        elif trial.delay:
            duration = delay
        if quick and killed:
            break
    if killed == 0:
        yield f"{trial.fault}: was never killed"


def try_once(run, trial):
    happened, found = run.attempt(trial)
    if not happened:
        found.append("was not reached")
    for text in found:
        yield f"{trial.fault} {' '.join(trial.options)}: {text}"


def trials_of(cell, quick, source):
    """Returns the trials of a cell, or the reason why there are none."""
    made = FAULTS[cell.fault](Case(cell.program, cell.operation, cell.workers))
    if inspect.isgenerator(made):
        made = list(made)
    if quick and not isinstance(made, str):
        made = source.sample(made, min(len(made), QUICK_TRIALS))
    return made


def try_cell(build, cell, quick, seed, folder):
    """Fills in the result of a cell, whose runs take place in a directory below `folder`."""
    source = random.Random(f"{seed} {cell}")
    trials = trials_of(cell, quick, source)
    if isinstance(trials, str):
        cell.result, cell.note = "not applicable", trials
        return cell
    with tempfile.TemporaryDirectory(dir=folder) as place:
        run = Run(programs_of(build, folder), Case(cell.program, cell.operation, cell.workers), place)
        for trial in trials:
            if "{random}" in trial.fault or trial.delay:
                found = kill_repeatedly(run, trial, quick, source)
            elif "{}" in trial.fault:
                found = sweep(run, trial, quick, source)
            else:
                found = try_once(run, trial)
            cell.wrong += found
        cell.runs = run.runs
    if cell.runs == 0:
        cell.wrong.append("the fault never happened")
    if cell.wrong:
        cell.result = "wrong"
        cell.note = cell.wrong[0]
    return cell


known_programs = {}


def programs_of(build, folder):
    return known_programs.setdefault(build, Programs(build, folder))


def all_cells(quick, only):
    for fault in FAULTS:
        for program in ("quarnex", "qrx", "libqrx"):
            for operation in ("compress", "restore"):
                for workers in (0, 2) if quick else (0, 1, 2, 8):
                    name = f"{fault}, {program}, {operation}, {workers}"
                    if re.search(only, name):
                        yield Cell(program, operation, fault, workers)


def print_table(cells):
    """Prints a line for each fault, with the number of runs with the fault in each cell."""
    columns = list(dict.fromkeys((cell.program, cell.operation, cell.workers) for cell in cells))
    by_place = {(cell.fault, cell.program, cell.operation, cell.workers): cell for cell in cells}
    groups = collections.Counter(column[:2] for column in columns)
    print(" " * 20 + "".join(f"{' '.join(group):^{6 * count}}" for group, count in groups.items()))
    print(f"{'workers':20}" + "".join(f"{column[2]:>6}" for column in columns))
    for fault in dict.fromkeys(cell.fault for cell in cells):
        line = f"{fault:20}"
        for program, operation, workers in columns:
            cell = by_place.get((fault, program, operation, workers))
            shown = "" if cell is None else {"good": str(cell.runs), "wrong": "WRONG"}.get(
                cell.result, "-")
            line += f"{shown:>6}"
        print(line)


def print_summary(cells):
    counts = collections.Counter(cell.result for cell in cells)
    print(f"\n{counts['good']} cells good, {counts['wrong']} wrong, "
          f"{counts['not applicable']} not applicable (-); {sum(cell.runs for cell in cells)} runs with a fault")
    for reason in dict.fromkeys(cell.note for cell in cells if cell.result == "not applicable"):
        print(f"not applicable: {reason}")
    for cell in cells:
        for text in cell.wrong[:SHOWN_FAULTS]:
            print(f"WRONG: {cell.program} {cell.operation}, {cell.workers} workers, {cell.fault}: "
                  f"{text}")
        if len(cell.wrong) > SHOWN_FAULTS:
            print(f"       and {len(cell.wrong) - SHOWN_FAULTS} more")


def rows_of(cells):
    """Returns the rows of the table `faults`."""
    return [{column: getattr(cell, column) for column in columns("faults")} for cell in cells]


def show_progress(cell):
    """Prints a finished cell on standard error."""
    print(f"{cell.fault}, {cell.program}, {cell.operation}, {cell.workers}: {cell.result}, "
          f"{cell.runs} runs", file=sys.stderr, flush=True)
    for text in cell.wrong[:SHOWN_FAULTS]:
        print(f"    {text}", file=sys.stderr, flush=True)


def try_cells(cells, given, folder):
    """Fills in the results of all cells, in several processes.  Returns the cells."""
    with concurrent.futures.ProcessPoolExecutor(given.jobs, initializer=leave_signals_to_parent) as pool:
        try:
            tasks = [pool.submit(try_cell, given.build, cell, given.quick, given.seed, folder) for cell in cells]
            for task in concurrent.futures.as_completed(tasks):
                show_progress(task.result())
            return [task.result() for task in tasks]
        except BaseException:
            pool.shutdown(wait=False, cancel_futures=True)
            for process in multiprocessing.active_children():
                process.terminate()
            raise


def leave_signals_to_parent():
    """Initializes a process of the pool: the parent handles signals, and removes its files."""
    signal.signal(signal.SIGINT, signal.SIG_IGN)
    signal.signal(signal.SIGTERM, signal.SIG_DFL)


def main():
    parser = argparse.ArgumentParser(description="Injects faults into quarnex, qrx and libqrx.")
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--build", default=str(ROOT / "build/release"))
    parser.add_argument("--csv")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--only", default="")
    given = parser.parse_args()
    refuse_partial(given.csv, given.quick or given.only, "--quick or --only")
    cells = list(all_cells(given.quick, given.only))
    started = time.monotonic()
    exit_on_signals()
    with temp_dir("qrx-faults-") as folder:
        cells = try_cells(cells, given, folder)
    print_table(cells)
    print_summary(cells)
    used = os.times()
    print(f"{time.monotonic() - started:.0f} seconds, {used.children_user + used.children_system:.0f} "
          f"of processor time; seed {given.seed}")
    if given.csv:
        write_table(given.csv, "faults", rows_of(cells))
    return 1 if any(cell.wrong for cell in cells) else 0


if __name__ == "__main__":
    sys.exit(main())

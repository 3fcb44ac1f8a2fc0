"""The faults of the matrix, and what each program does about them according to its documentation.

Each function yields the trials of a cell, or returns the reason why the cell doesn't apply.
"""

import dataclasses
import errno
import os
import re

from fault_runs import KEPT, MIB, PREFIX, RIGHT, Outcome, Trial, success

ABORTED = -6

# Values of qrx_status
NO_MEMORY, NO_THREAD, OPEN_FAILED, READ_FAILED, WRITE_FAILED, TRUNCATED = 2, 3, 4, 5, 6, 8

CALLER_READS = "when compressing, the caller reads the source"
CALLER_WRITES = "when restoring, the caller writes the output"
NO_WORKERS = "without workers no thread is started"
EMPTIED = RIGHT | PREFIX  # or cut


def text(error):
    return re.escape(os.strerror(error))


# ------------------------------------------------------------------------------ outcomes of quarnex

def unfinished(case):
    """States of an output after a failure.  Workers finish blocks in any order."""
    return EMPTIED | {"blocks"} if case.workers else EMPTIED


def quarnex_abort(case, name, message, out="", settled=False):
    """The process ends at once.  Its outputs may be incomplete, and with workers also those of the
    other small files, unless they are `settled`: the driver waits for them."""
    others = EMPTIED if case.workers else RIGHT
    first = RIGHT if settled else others
    last = EMPTIED if case.workers and not settled else KEPT
    return Outcome(ABORTED, re.escape(f"quarnex: {name}: error ") + message + "\n", out,
                   (first, unfinished(case), last))


def quarnex_stop(case, message, big=None):
    """A message; the remaining names are not processed."""
    return Outcome(0, message + "\n", "", (RIGHT, big or unfinished(case), KEPT))


def quarnex_skip(case, message, big=None):
    """A message; the run continues."""
    return Outcome(0, message + "\n", "", (RIGHT, big or unfinished(case), RIGHT))


def write_abort(case, error):
    return quarnex_abort(case, case.target("big"),
                         f"102: write error\\. errno={error} '{text(error)}'")


# ----------------------------------------------------------------------- outcomes of qrx and libqrx

def qrx_failure(name, message, status=1, big=KEPT):
    return Outcome(status, re.escape(f"qrx: {name}: ") + message + "\n", "", (RIGHT, big, RIGHT))


def api_failure(case, status, error=0, events=1):
    """The call fails with one event.  The client keeps what a reader has delivered."""
    failures = f"{events} {status} {error}" if events else "0 0 0"
    return Outcome(0, "", f"{status} {failures}\n", (KEPT, KEPT if case.compresses else PREFIX, KEPT))


def api_modes(case):
    """The modes of the client in which the library's own calls or the caller's read and write."""
    return ("file", "callbacks")


def sweep(first, trial, **changes):
    """Marks a family of trials: the caller counts up `{}` until the fault is not reached."""
    return dataclasses.replace(trial, fault=first, ends_sweep=True, **changes)


# ------------------------------------------------------------------------------------------- faults

def allocation_fails(case):
    outcomes = tuple({"quarnex": quarnex_allocation, "qrx": qrx_allocation,
                      "libqrx": api_allocation}[case.program](case))
    modes = ("buffers", "file") if case.program == "libqrx" else ("file",)
    for mode in modes:
        plain = Trial("alloc * {} 1 error 12", outcomes, mode=mode, ends_sweep=True)
        yield plain
        # What comes before the first file, such as reading the command line, is always the same.
        late = plain.fault if case.program == "libqrx" else "late-" + plain.fault
        for cell in ("25", "38", "49", "53"):
            yield dataclasses.replace(plain, fault=late, cell=cell, is_small=True)
        # From one call on, none succeeds.
        yield Trial("alloc * {} 0 error 12", tuple(exhaustion(case)), mode=mode, is_small=True,
                    ends_sweep=True)


def quarnex_allocation(case):
    yield success(case)
    yield Outcome(ABORTED, "quarnex: error 100: malloc error\n", "", (EMPTIED, unfinished(case), EMPTIED))
    for name in ("first", "big", "last"):
        yield Outcome(ABORTED, f"quarnex: {case.source(name)}: error 100: malloc error\n", "",
                      (EMPTIED, unfinished(case), EMPTIED))
        states = [unfinished(case) if other == name else RIGHT for other in ("first", "big", "last")]
        uncoded = f"{case.source(name)}: not enough memory for block \\d+\n"
        if case.workers:
            yield Outcome(1, uncoded, "(error compressing\n)?", tuple(states))
            if not case.compresses:  # no further file is created
                yield Outcome(1, uncoded, "", (EMPTIED, unfinished(case), EMPTIED))
        else:
            later = [KEPT if index > ("first", "big", "last").index(name) else state
                     for index, state in enumerate(states)]
            yield Outcome(0, uncoded, "(compression error\n)?", tuple(later))
    if case.workers:  # a thread needs memory, too
        yield from quarnex_threads(case, 1)
        yield from quarnex_threads(case, 1, writer=True)


def qrx_allocation(case):
    yield success(case)
    # Before the first file, or between two
    yield Outcome(1, "qrx: out of memory\n", "", (KEPT, KEPT, KEPT))
    names = ("first", "big", "last")
    for name in names:
        # A failure after the output is complete is reported, too.
        states = tuple(RIGHT | KEPT if other == name else RIGHT for other in names)
        yield Outcome(1, f"qrx: {re.escape(case.source(name))}: "
                         "(block \\d+ \\(bytes \\d+:\\d+\\): )?"
                         "(out of memory|a thread can't be started|Cannot allocate memory)\n", "", states)


def exhaustion(case):
    """Outcomes without memory for anything from some point on.  Messages may lack a name."""
    if case.program == "libqrx":
        yield from api_allocation(case)
        return
    yield success(case)
    if case.program == "qrx":
        states = (RIGHT | KEPT,) * 3
        yield Outcome(1, "(qrx: (.*: )?(out of memory|a thread can't be started)\n)+", "", states)
        return
    aborted = "(quarnex: (\\S+: )?error 100: malloc error\n)+"  # each thread may report it
    uncoded = "(\\S+: not enough memory for block \\d+\n)+"
    yield Outcome(ABORTED, f"({uncoded})?{aborted}", "(error compressing\n)*",
                  (EMPTIED, unfinished(case), EMPTIED))
    yield Outcome(0, uncoded, "(compression error\n)?", (EMPTIED, unfinished(case), EMPTIED))
    yield Outcome(1, uncoded, "(error compressing\n)*", (unfinished(case),) * 3)
    if case.workers:
        for failed in range(1, case.workers + 2):
            lines = "Error thread_create\\.\n" * failed
            yield Outcome(255, "", lines, (KEPT, KEPT, KEPT))
            yield Outcome(ABORTED, aborted, lines, (EMPTIED, unfinished(case), EMPTIED))
            yield Outcome(1, uncoded, lines + "(error compressing\n)*", (unfinished(case),) * 3)


def api_allocation(case):
    yield success(case)
    for status in (NO_MEMORY, NO_THREAD):
        yield api_failure(case, status)
    yield api_failure(case, NO_MEMORY, errno.ENOMEM)  # for the name of a file
    yield api_failure(case, NO_MEMORY, events=0)  # there is no handle


def read_short(case):
    if case.program == "libqrx" and case.compresses:
        return CALLER_READS
    if case.program == "libqrx":
        return api_read_short(case)
    return transfers(case, "read r2 {} 1 ")


def api_read_short(case):
    yield from transfers(case, "read r1 {} 1 ")
    # A callback that reads less than it should has come to the end of the file.
    ends = api_failure(case, TRUNCATED)
    yield Trial("read r1 {} 1 short", (ends,), mode="callbacks", ends_sweep=True)
    fails = api_failure(case, READ_FAILED, errno.EINTR)
    yield Trial(f"read r1 {{}} 1 error {errno.EINTR}", (fails,), mode="callbacks", ends_sweep=True)


def write_short(case):
    if case.program == "libqrx" and not case.compresses:
        return CALLER_WRITES
    # Callbacks write everything or fail: the library can't see a short write.
    return transfers(case, f"write {'w1' if case.program == 'libqrx' else 'w2'} {{}} 1 ")


def transfers(case, start):
    """Trials in which the program repeats a call and succeeds."""
    for action in ("short", f"error {errno.EINTR}"):
        yield Trial(start + action, (success(case),), ends_sweep=True)


def read_error(case):
    if case.program == "libqrx":
        return CALLER_READS if case.compresses else api_read_error(case)
    return {"quarnex": quarnex_read_error, "qrx": qrx_read_error}[case.program](case)


def api_read_error(case):
    for mode in api_modes(case):
        yield Trial("read r1 {} 1 error 5", (api_failure(case, READ_FAILED, errno.EIO),), mode=mode,
                    ends_sweep=True)


def quarnex_read_error(case):
    source = case.source("big")
    message = f"can't read input file '{source}'\\. '{text(errno.EIO)}'"
    outcomes = [quarnex_stop(case, message)]
    walked = [quarnex_skip(case, message)]
    if not case.compresses:
        code = f"103: read error\\. errno=5 '{text(errno.EIO)}'"
        aborts = [quarnex_abort(case, source, code, out="(err=Input/output error, \\d+,\\d+ )?",
                                settled=True)]
        outcomes += aborts
        walked += aborts
    yield Trial("read r2 {} 1 error 5", tuple(outcomes), ends_sweep=True)
    yield Trial("read r2 {} 1 error 5", tuple(walked), options=("-r",), ends_sweep=True,
                has_old=True)


def qrx_read_error(case):
    failure = qrx_failure(case.source("big"), "(block \\d+ \\(bytes \\d+:\\d+\\): .*: )?" +
                          text(errno.EIO))
    outcomes = (failure,)
    if not case.compresses and case.workers == 0:
        # With a memory limit, the header is first read only to choose the number of threads; if that
        # fails, it is read again.
        outcomes += (success(case),)
    for has_old in (False, True):
        yield Trial("read r2 {} 1 error 5", outcomes, has_old=has_old, ends_sweep=True)
    # Reading the output back, and the source once more
    name = re.escape(case.target("big")) if case.compresses else case.source("big")
    back = Outcome(1, f"qrx: ({name}|{re.escape(case.source('big'))}): .*{text(errno.EIO)}\n", "",
                   (RIGHT, KEPT, RIGHT))
    for file in ("w2", "r2"):
        yield Trial(f"read {file} {{}} 1 error 5", (back, *outcomes[1:]), options=("--rm",),
                    ends_sweep=True)


def failing_writes(case, error, actions):
    if case.program == "libqrx":
        if not case.compresses:
            return CALLER_WRITES
        outcome, file = api_failure(case, WRITE_FAILED, error), "w1"
    elif case.program == "qrx":
        outcome, file = qrx_failure(case.target("big"), text(error)), "w2"
    else:
        outcome, file = write_abort(case, error), "w2"
    return write_trials(case, f"write {file} {{}} ", outcome, actions)


def write_trials(case, start, outcome, actions):
    for action in actions:
        if case.program == "libqrx":
            for mode in api_modes(case):
                yield Trial(start + action, (outcome,), mode=mode, ends_sweep=True)
        else:
            yield Trial(start + action, (outcome,), ends_sweep=True)
    if case.program != "quarnex":  # the old output stays
        yield Trial(start + action, (outcome,), has_old=True, ends_sweep=True)


def disk_full(case):
    return failing_writes(case, errno.ENOSPC, ("0 error 28", "0 short-error 28"))


def write_error(case):
    return failing_writes(case, errno.EIO, ("1 error 5",))


def close_fails(case):
    if case.program == "libqrx":
        return api_close(case)
    return program_close(case)


def api_close(case):
    if case.compresses:
        for has_old in (False, True):
            yield Trial("close w1 {} 1 error 5",
                        (api_failure(case, WRITE_FAILED, errno.EIO),), has_old=has_old,
                        ends_sweep=True)
    else:  # nothing depends on closing a source
        yield Trial("close r1 {} 1 error 5", (success(case),), ends_sweep=True)


def program_close(case):
    yield Trial("close r2 {} 1 error 5", (success(case),), ends_sweep=True)
    if case.program == "quarnex":
        yield Trial("close w2 {} 1 error 5", (write_abort(case, errno.EIO),), ends_sweep=True)
        return
    # The first close shows whether everything is written; then the file gets its name.
    failure = qrx_failure(case.target("big"), text(errno.EIO))
    for has_old in (False, True):
        for options in ((), ("--no-sync",), ("--rm",)):
            yield Trial("close w2 1 1 error 5", (failure,), has_old=has_old, options=options)
    yield Trial("close w2 2 1 error 5", (success(case),))


def thread_start_fails(case):
    if case.workers == 0:
        return NO_WORKERS
    return {"quarnex": quarnex_thread_trials, "qrx": qrx_thread_trials,
            "libqrx": api_thread_trials}[case.program](case)


def quarnex_threads(case, failed, writer=False):
    lines = "Error thread_create\\.\n" * failed
    if failed >= case.workers or writer:
        yield Outcome(255, "", lines, (KEPT, KEPT, KEPT))
    else:
        yield success(case, out=lines)


def quarnex_thread_trials(case):
    for number in range(1, case.workers + 1):
        yield Trial(f"thread * {number} 1 error 11", tuple(quarnex_threads(case, 1)))
    yield Trial(f"thread * {case.workers + 1} 1 error 11",
                tuple(quarnex_threads(case, 1, writer=True)))
    yield Trial("thread * 1 0 error 11", tuple(quarnex_threads(case, case.workers + 1, True)))
    if case.workers > 1:
        yield Trial(f"thread * 1 {case.workers - 1} error 11",
                    tuple(quarnex_threads(case, case.workers - 1)))


def qrx_thread_trials(case):
    outcome = qrx_failure(case.source("big"), "a thread can't be started")
    for number in range(1, case.workers + 1):  # one file alone has several blocks
        yield Trial(f"thread * {number} 1 error 11", (outcome,), has_old=number % 2 == 0)
    yield Trial("thread * 1 0 error 11", (outcome,))


def api_thread_trials(case):
    for mode in ("buffers", "file", "callbacks"):
        # A handle that can't be opened has reported the failure.
        outcome = api_failure(case, NO_THREAD)
        for number in range(1, case.workers + 1):
            yield Trial(f"thread * {number} 1 error 11", (outcome,), mode=mode)
        yield Trial("thread * 1 0 error 11", (outcome,), mode=mode)


def source_shrinks(case):
    if case.program == "libqrx" and case.compresses:
        return CALLER_READS
    return {"quarnex": quarnex_shrinks, "qrx": qrx_shrinks, "libqrx": api_shrinks}[
        case.program](case)


def quarnex_shrinks(case):
    source = case.source("big")
    if not case.compresses:
        yield from quarnex_shrinks_restored(case)
        return
    shorter = quarnex_skip(case, f"input file '{source}' has become shorter",
                           big=frozenset({"short"}))
    for size in (100, 10):
        yield Trial(f"read r2 {{}} 1 truncate {source} {size}", (shorter,), loses="big",
                    ends_sweep=True)


def quarnex_shrinks_restored(case):
    """The header and the first head are read together, then in turn a payload and the head of the
    next record, where the end of a file gives no message."""
    source = case.source("big")
    short = quarnex_abort(case, source, "10[35]: .*", "(err=, \\d+,\\d+ )?", settled=True)
    for number in range(1, 2 * case.big_blocks + 1):
        expected = short
        if number > 1 and number % 2 == 1:
            expected = Outcome(0, "", "", (RIGHT, PREFIX, RIGHT), size=number // 2 * MIB)
        for size in (100, 10):
            yield Trial(f"read r2 {number} 1 truncate {source} {size}", (expected,), loses="big")


def qrx_shrinks(case):
    source = case.source("big")
    outcomes = [qrx_failure(source, "shrank while being read")]
    if not case.compresses:
        outcomes = [qrx_failure(source, ".*(ends too early|record).*", status=2)]
    for size in (100, 10):
        yield Trial(f"read r2 {{}} 1 truncate {source} {size}", tuple(outcomes), loses="big",
                    ends_sweep=True, has_old=size == 10)


def api_shrinks(case):
    outcomes = tuple(api_failure(case, TRUNCATED, events=events) for events in (0, 1))
    for mode in api_modes(case):
        for size in (100, 10):
            yield Trial(f"read r1 {{}} 1 truncate {case.source('big')} {size}", outcomes, mode=mode,
                        loses="big", ends_sweep=True)


def source_vanishes(case):
    if case.program == "libqrx" and case.compresses:
        return CALLER_READS
    return vanishing_trials(case)


def vanishing_trials(case):
    source = case.source("big")
    file = "r1" if case.program == "libqrx" else "r2"
    # What is open can be read to its end.
    yield Trial(f"read {file} {{}} 1 unlink {source}", (success(case),), loses="big",
                ends_sweep=True)
    if case.program == "libqrx":
        yield Trial("any * 1 1 none", (api_failure(case, OPEN_FAILED, errno.ENOENT),), missing=True)
        return
    early = f"read r1 1 1 unlink {source}"
    if case.program == "quarnex":
        message = f"can't open input file '{source}'\\. '{text(errno.ENOENT)}'"
        yield Trial(early, (quarnex_stop(case, message, KEPT),), loses="big", has_old=True)
        yield Trial(early, (quarnex_skip(case, f"{source}: {text(errno.ENOENT)}", KEPT),), loses="big",
                    options=("-r",))
        return
    yield Trial(early, (qrx_failure(source, text(errno.ENOENT)),), loses="big", has_old=True)
    yield Trial(f"read r2 1 1 unlink {source}",
                (qrx_failure(source, f"not removed: {text(errno.ENOENT)}", big=RIGHT),),
                loses="big", options=("--rm",))


def target_removed(case):
    if case.program == "libqrx" and not case.compresses:
        return CALLER_WRITES
    return removal_trials(case)


def removal_trials(case):
    target = case.target("big")
    file = "w1" if case.program == "libqrx" else "w2"
    move = f"write {file} {{}} 1 rename out gone"
    remove = f"write {file} {{}} 1 unlink {target}"
    missing = text(errno.ENOENT)
    if case.program == "libqrx":
        yield Trial(move, (success(case),), ends_sweep=True)  # the file moves with its directory
        yield Trial(remove, (success(case),), has_old=True, ends_sweep=True)
    elif case.program == "qrx":
        # The directory of -C is created again for the next file.
        yield Trial(move, (qrx_failure(target, missing),), ends_sweep=True)
        yield Trial(remove, (success(case),), has_old=True, ends_sweep=True)
    else:
        uncreated = Outcome(255, f"creat error '{case.target('last')}' '{missing}'\n", "",
                            (RIGHT, RIGHT, KEPT))
        yield Trial(move, (uncreated, success(case)) if case.workers else (uncreated,),
                    ends_sweep=True)
        # An open file can be written to its end; the program doesn't notice that it no longer has a name.
        removed = Outcome(0, "", "", (RIGHT, frozenset({"absent", "kept"}), RIGHT))
        yield Trial(remove, (removed,), ends_sweep=True)


def killed(case):
    """Killed before a random call, and at random times.  The caller fills in the numbers."""
    if case.program == "quarnex" and case.workers:
        states = [(unfinished(case),) * 3]
    elif case.program == "quarnex":  # one file after the other
        states = [(EMPTIED, KEPT, KEPT), (RIGHT, EMPTIED, KEPT), (RIGHT, RIGHT, EMPTIED)]
    elif case.program == "qrx":
        states = [(RIGHT | KEPT,) * 3]
    else:  # the client itself writes a restored file
        states = [(KEPT, RIGHT | KEPT if case.compresses else EMPTIED, KEPT)]
    reported = "(0 0 0 0\n)?" if case.program == "libqrx" else ""  # at its end
    dead = tuple(Outcome(-9, "", reported, each) for each in states)
    for has_old in (False, True):
        leaves = ""
        if case.program == "libqrx":
            leaves = "out/\\.qrx-[0-9a-f]{4}\\.tmp"
        elif case.program == "qrx" and has_old:  # a complete file, about to be renamed
            leaves = "out/\\.qrx-\\d+-\\d+-\\d+"
        yield Trial("any * {random} 1 kill", dead, leaves=leaves, has_old=has_old,
                    ends_sweep=True)
        yield Trial("any * 1 1 none", dead, leaves=leaves, has_old=has_old, delay=1,
                    ends_sweep=True)


FAULTS = {
    "allocation k fails": allocation_fails,
    "read short": read_short,
    "read error": read_error,
    "write short": write_short,
    "write error": write_error,
    "disk full": disk_full,
    "close fails": close_fails,
    "thread start fails": thread_start_fails,
    "source shrinks": source_shrinks,
    "source vanishes": source_vanishes,
    "target removed": target_removed,
    "killed at random": killed,
}

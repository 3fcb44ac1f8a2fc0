"""Temporary directories for tests and scripts: in memory if possible, and removed if a signal ends the process."""

import os
import signal
import subprocess
import sys
import tempfile

# For small files, flushing to a disk takes most of the time.
FAST_DIRECTORY = "/dev/shm" if os.access("/dev/shm", os.W_OK | os.X_OK) else None

SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)


def temp_dir(prefix):
    """Returns a tempfile.TemporaryDirectory, for `with`."""
    return tempfile.TemporaryDirectory(prefix=prefix, dir=FAST_DIRECTORY)


def exit_on_signals():
    """Makes signals raise SystemExit, so that `with temp_dir()` removes its directory; ignored signals stay ignored."""
    for number in SIGNALS:
        if signal.getsignal(number) != signal.SIG_IGN:
            signal.signal(number, exit_once)


def exit_once(number, _):
    """Exits; further signals must not interrupt the removal of directories."""
    for each in SIGNALS:
        signal.signal(each, signal.SIG_IGN)
    sys.exit(f"{os.path.basename(sys.argv[0])}: ended by {signal.Signals(number).name}")


def run_command(command, **options):
    """Runs a command and returns its exit status.

    If a signal ends this process, the command gets SIGTERM and removes its own directories first.
    """
    with subprocess.Popen(command, **options) as process:
        try:
            return process.wait()
        except BaseException:
            process.terminate()
            raise

"""The tables that other commands measure: damage, faults, schedules, fuzzing and reproducible builds."""

import subprocess

from temp_dir import run_command

from .tables import ROOT

# The command of each part, in which {csv} is the file of its table.  Commands without {csv} always write to
# docs/results/.
COMMANDS = {
    "damage": ["scripts/check_damage", "--csv", "{csv}"],
    "faults": ["scripts/check_faults", "--csv", "{csv}"],
    "schedules": ["scripts/stress", "schedules", "--csv", "{csv}"],
    "stress": ["scripts/stress", "files", "--csv", "{csv}"],
    "payloads": ["scripts/check_payloads", "--csv", "{csv}"],
    "reproducible": ["scripts/check_reproducible", "--windows", "--csv", "{csv}"],
    "fuzz_coverage": ["scripts/fuzz", "coverage"],
    "fuzz_hours": ["scripts/fuzz", "hours"],
}

# What lib.sh builds before some of the commands; the others build for themselves.
BUILDS = {"damage": "program quarnex qrx", "schedules": "tsan schedules", "stress": "release quarnex qrx fault_shim"}

# The directories of build/ with what is measured, whose compilers are recorded
PRESETS = {
    "damage": ("program",),
    "faults": ("release",),
    "schedules": ("tsan",),
    "stress": ("release",),
    "payloads": ("release", "payloads-O2", "debug", "payloads-clang", "linux32", "windows64", "windows32"),
    "reproducible": tuple(f"reproducible/a/build/packaging/{name}" for name in ("program", "windows64", "windows32")),
    "fuzz_coverage": ("coverage",),
    "fuzz_hours": ("fuzz", "msan", "fuzz32"),
}

# Whose versions are recorded
PEERS = {"damage": ("zstd", "xz", "lz4", "gzip", "bzip2", "brotli", "7-Zip"), "payloads": ("Wine",)}


def command_text(part):
    return " ".join(COMMANDS[part]).format(csv=f"docs/results/{part}.csv")


def writes_anywhere(part):
    """Whether the command can write to a folder other than docs/results/."""
    return "{csv}" in COMMANDS[part]


def measure(part, tables):
    """Runs the command of a part, which writes the table itself."""
    tables.folder.mkdir(parents=True, exist_ok=True)
    if part in BUILDS:
        script = f'. scripts/lib.sh; need_packages "${{test_packages[@]}}"; build {BUILDS[part]}'
        subprocess.run(["bash", "-c", script, "scripts/report"], cwd=ROOT, check=True)
    command = [word.format(csv=tables.path(part)) for word in COMMANDS[part]]
    if run_command(command, cwd=ROOT) != 0:
        raise SystemExit(f"failed: {' '.join(command)}")

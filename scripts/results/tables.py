"""The CSV files of the results: one directory, one file for each table."""

import csv
import hashlib
import pathlib

ROOT = pathlib.Path(__file__).resolve().parents[2]
DEFAULT_FOLDER = ROOT / "docs" / "results"

# The columns of each table.  A table may have more columns at its end.
COLUMNS = {
    "runs": "part,date,commit,machine,compiler,versions,seconds,digest",
    "speed": "tool,setting,file,original_bytes,compressed_bytes,compress_s,decompress_s,runs",
    "threads": "tool,setting,operation,threads,original_bytes,compressed_bytes,elapsed_s,processor_s,runs",
    "memory": "tool,setting,operation,workers,bound_MiB,peak_MiB",
    "small_files": "way,tool,setting,files,original_bytes,compressed_bytes,compress_s,compress_processor_s,"
                   "decompress_s,decompress_processor_s",
    "damage": "format,method,sealed,edit,edits,noticed,harmless,silent,crashed,hung",
    "faults": "program,operation,fault,workers,runs,result,note",
    "schedules": "kind,runs,seconds,faults,note",
    "stress": "kind,runs,seconds,faults,note",
    "fuzz_coverage": "target,directory,regions,reached",
    "fuzz_unlinked": "file",  # of src/
    # time: Unix time; *_s: seconds; commit: that was built, empty if unknown
    "fuzz_runs": "time,target,status,user_s,system_s,executions,faults,commit",
    "fuzz_hours": "target,processor_hours,executions,faults",
    "fuzz_faults": "target,runs,note",  # written by hand: explains the faults of fuzz_hours
    "payloads": "variant,cells,files,digest,equal",
    "reproducible": "artifact,first,second,equal",
}


# The tables that a part writes; all others write one of their own name.
TABLES_OF_PARTS = {"fuzz_coverage": ["fuzz_coverage", "fuzz_unlinked"],
                   "fuzz_hours": ["fuzz_hours", "fuzz_runs"]}


def digest_of(*paths):
    return hashlib.sha256(b"".join(path.read_bytes() for path in paths)).hexdigest()[:16]


def columns(name):
    return COLUMNS[name].split(",")


def read_table(path, name):
    """Returns a list of dictionaries of strings; None if there is no such file."""
    path = pathlib.Path(path)
    if not path.exists():
        return None
    with path.open(newline="", encoding="utf-8") as file:
        reader = csv.DictReader(file)
        missing = set(columns(name)) - set(reader.fieldnames or [])
        if missing:
            raise SystemExit(f"{path}: no column {', '.join(sorted(missing))}")
        return list(reader)


def write_table(path, name, rows):
    """Writes a list of dictionaries."""
    path = pathlib.Path(path)
    path.parent.mkdir(parents=True, exist_ok=True)
    with path.open("w", newline="", encoding="utf-8") as file:
        writer = csv.DictWriter(file, columns(name), lineterminator="\n")
        writer.writeheader()
        writer.writerows(rows)


def refuse_partial(path, is_partial, options):
    """Exits if a run that measures only a part of a table would replace one in docs/results/."""
    if path and is_partial and pathlib.Path(path).resolve().parent == DEFAULT_FOLDER.resolve():
        raise SystemExit(f"{path} is for full runs: with {options}, --csv needs a file elsewhere")


class Tables:
    """Reads and writes the tables of one directory."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)

    def path(self, name):
        return self.folder / f"{name}.csv"

    def read(self, name):
        """Returns a list of dictionaries of strings; None if the table wasn't measured."""
        return read_table(self.path(name), name)

    def write(self, name, rows):
        write_table(self.path(name), name, rows)

    def digest(self, part):
        """Returns the digest of the tables that a part has written; empty if there are none."""
        paths = [self.path(name) for name in TABLES_OF_PARTS.get(part, [part])]
        found = [path for path in paths if path.exists()]
        return digest_of(*found) if found else ""

    def record_run(self, row):
        """Stores when and where the tables of a part were measured, in place of its previous run."""
        row = {**row, "digest": self.digest(row["part"])}
        rows = [old for old in self.read("runs") or [] if old["part"] != row["part"]]
        self.write("runs", sorted([*rows, row], key=lambda each: each["part"]))

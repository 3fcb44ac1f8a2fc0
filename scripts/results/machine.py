"""Describes the machine, the compilers and the versions of the programs that were measured."""

import datetime
import os
import pathlib
import platform
import re
import shutil
import subprocess

from .tables import ROOT

# The Debian packages of peers, by the name under which their versions are listed
PEER_PACKAGES = {"lz4": "liblz4-1", "zlib": "zlib1g", "zstd": "libzstd1", "brotli": "libbrotli1",
                 "bzip2": "libbz2-1.0", "xz": "liblzma5", "gzip": "gzip", "pigz": "pigz", "lbzip2": "lbzip2",
                 "7-Zip": "7zip", "tar": "tar", "Wine": "wine"}


def output_of(*command):
    """Returns what a command prints; empty if it fails or isn't installed."""
    if shutil.which(command[0]) is None:
        return ""
    done = subprocess.run(command, capture_output=True, text=True, cwd=ROOT, check=False)
    return done.stdout.strip() if done.returncode == 0 else ""


def lscpu(name):
    found = re.search(rf"^{re.escape(name)}: *(.+)$", output_of("env", "LC_ALL=C", "lscpu"), re.MULTILINE)
    return found.group(1) if found else ""


def cache(name):
    """The size of one cache: lscpu prints the sum of all instances."""
    found = re.fullmatch(r"([\d.]+) (\w+) \((\d+) instances?\)", lscpu(name))
    return f"{float(found[1]) / int(found[3]):g} {found[2]}" if found else lscpu(name) or "unknown"


def machine():
    mib = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") / (1 << 20)
    family = f"family {lscpu('CPU family')} model {lscpu('Model')}"
    return (f"{lscpu('Model name') or platform.processor()} ({family}), {os.cpu_count()} processors; caches of "
            f"{cache('L1d cache')}, {cache('L2 cache')} and {cache('L3 cache')}; memory {mib / 1024:.1f} GiB; "
            f"{platform.system()} {platform.release()}; {distribution()}")


def distribution():
    text = pathlib.Path("/etc/os-release").read_text(encoding="utf-8")
    return re.search(r'^PRETTY_NAME="?([^"\n]*)', text, re.MULTILINE).group(1)


def compilers(presets, build=ROOT / "build"):
    """The compilers that CMake found for those of the build directories that were configured, each once."""
    found = []
    for preset in presets:
        for name in (build / preset / "CMakeFiles").glob("*/CMakeCXXCompiler.cmake"):
            facts = dict(re.findall(r'^set\(CMAKE_CXX_(\w+) "([^"]*)"\)', name.read_text(encoding="utf-8"),
                                    re.MULTILINE))
            system = [facts["PLATFORM_ID"]] if facts["PLATFORM_ID"] != platform.system() else []
            bits = ["32 bits"] if facts["SIZEOF_DATA_PTR"] == "4" else []
            target = f" ({', '.join(system + bits)})" if system + bits else ""
            found.append(f"{facts['COMPILER_ID']} {facts['COMPILER_VERSION']}{target}")
    return "; ".join(dict.fromkeys(found)) or "unknown"


def upstream_version(package_version):
    """The version of a Debian package without what Debian adds to it."""
    return re.sub(r"^\d+:|[-+.~](dfsg|ds|repack).*$|-[^-]*$", "", re.sub(r"^.*\+really", "", package_version))


def versions(names=tuple(PEER_PACKAGES)):
    """The upstream versions of peers, from Debian's packages."""
    found = []
    for name in names:
        text = output_of("dpkg-query", "-W", "-f=${Version}", PEER_PACKAGES[name])
        if text:
            found.append(f"{name} {upstream_version(text)}")
    return "; ".join(found)


def commit():
    changed = output_of("git", "status", "--porcelain", "--", ".", ":!docs/results", ":!README.md")
    return output_of("git", "rev-parse", "--short=10", "HEAD") + (" with changes" if changed else "")


def run_row(part, seconds, peers, presets):
    return {"part": part, "date": datetime.date.today().isoformat(), "commit": commit(), "machine": machine(),
            "compiler": compilers(presets), "versions": versions(peers), "seconds": round(seconds)}

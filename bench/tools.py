"""What the benchmark needs on the machine: the tools of others, and its own helpers, built from the .cc files here."""

import os
import re
import shutil
import subprocess
import sys
from dataclasses import dataclass
from pathlib import Path

HERE = Path(__file__).resolve().parent


@dataclass(frozen=True)
class Tool:
    command: str
    package: str  # of Debian
    purpose: str
    needed: bool = False  # without it nothing can be measured


TOOLS = (
    Tool("g++", "g++", "builds the helpers", needed=True),
    Tool("sort", "coreutils", "a rival"),
    Tool("sqlite3", "sqlite3", "a rival"),
    Tool("gnuplot", "gnuplot-nox", "draws the picture"),
)

HELPERS = {
    "measure": ("measure.cc",),
    "make_data": ("make_data.cc", "files.cc"),
    "verify": ("verify.cc", "files.cc", "record_format.cc"),
    "roof": ("roof.cc", "files.cc", "record_format.cc"),
}


def warn(text):
    print(f"warning: {text}", file=sys.stderr)


def has_tool(command):
    return shutil.which(command) is not None


def report_missing_tools():
    """Says what is missing and how to install it; ends the program when it cannot do without."""
    if sys.version_info < (3, 11):
        sys.exit("the benchmark needs Python 3.11 or newer")
    missing = [tool for tool in TOOLS if not has_tool(tool.command)]
    for tool in missing:
        warn(f"{tool.command} is missing ({tool.purpose}). To install it: apt-get install {tool.package}")
    if any(tool.needed for tool in missing):
        sys.exit("nothing can be measured without it")


def build_helpers(folder):
    """Compiles the helpers into a folder; gives their paths by name."""
    folder.mkdir()
    for name, sources in HELPERS.items():
        files = [str(HERE / source) for source in sources]
        subprocess.run(["g++", "-std=c++20", "-O2", "-o", str(folder / name), *files], check=True)
    return {name: str(folder / name) for name in HELPERS}


def warn_of_slow_build(program):
    """Warns when the CMake cache beside the program says that it was built for anything but speed."""
    caches = [folder / "CMakeCache.txt" for folder in Path(program).resolve().parents[:3]]
    cache = next((path for path in caches if path.is_file()), None)
    if cache is None:
        warn(f"no CMakeCache.txt beside {program} tells whether it was built with optimisation")
        return
    values = dict(re.findall(r"^(\w+):\w+=(.*)$", cache.read_text(), re.MULTILINE))
    build_type = values.get("CMAKE_BUILD_TYPE", "")
    flags = f"{values.get('CMAKE_CXX_FLAGS', '')} {values.get('CMAKE_CXX_FLAGS_' + build_type.upper(), '')}"
    levels = re.findall(r"-O(\w*)", flags)
    if not levels or levels[-1] in ("0", "1", "g"):
        warn(f"{program} was built without optimisation (build type '{build_type}')")
    if values.get("TARNVALE_SANITIZE") == "ON" or "-fsanitize" in flags:
        warn(f"{program} was built with sanitizers")


def warn_of_busy_machine():
    load = os.getloadavg()[0]
    if load > 0.3:
        warn(f"other work is running (load {load:.1f}): wall times will be too long")


def warn_of_small_machine(folder, data_bytes):
    """The largest data with what a rival makes of it has to fit the disk, and the data alone the file cache."""
    if shutil.disk_usage(folder).free < 5 * data_bytes:
        warn(f"{folder} has less than {5 * data_bytes / 1e9:.0f} GB free")
    available = re.search(r"MemAvailable:\s+(\d+)", Path("/proc/meminfo").read_text())
    if available and int(available[1]) * 1024 < 1.5 * data_bytes:
        warn("the largest data does not fit in memory: its times include reading it from the disk")

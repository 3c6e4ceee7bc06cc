"""Who does a job: programs of tarnvale, the roof, and rivals. Each can be prepared, run and checked."""

import filecmp
import hashlib
import os
import shutil
import subprocess
import sys
from contextlib import contextmanager
from dataclasses import dataclass, field
from pathlib import Path

from jobs import DEFAULT_AREA, SHAPES
from tools import has_tool

SQLITE_START = "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF; "  # no rival is held up by care for crashes

SQLITE_IMPORT = """CREATE TABLE lines(line TEXT);
.mode ascii
.separator "\\037" "\\n"
.import {} lines
"""


class WrongResult(Exception):
    """A run that failed, or made something other than it should."""


@dataclass(frozen=True)
class Place:
    """Where a data set lies and what works on it."""

    folder: Path
    helpers: dict
    shape: str
    records: int

    @property
    def data(self):
        return self.folder / "data.TXT"

    @property
    def environment(self):
        temporary = str(self.folder / "tmp")
        return {"PATH": os.environ["PATH"], "LC_ALL": "C", "TMPDIR": temporary, "SQLITE_TMPDIR": temporary}

    @contextmanager
    def data_made(self, keep):
        """The data is there inside of it. Behind it the folder goes with all that was made there, unless `keep`."""
        if not self.data.exists():
            print(f"making {self.records:,} records of {self.shape}", file=sys.stderr)
            (self.folder / "tmp").mkdir(parents=True)
            self.run(self.helpers["make_data"], self.shape, str(self.records), str(self.data))
        yield
        if not keep:
            shutil.rmtree(self.folder)

    def run(self, *command, cwd=None, stdin=None):
        """Runs a command that is not measured."""
        result = subprocess.run(command, cwd=cwd or self.folder, env=self.environment, input=stdin, text=True,
                                errors="replace", stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if result.returncode != 0:
            raise WrongResult(f"{' '.join(command)}: {result.stdout.strip()[-300:]}")
        return result.stdout


@dataclass
class Contestant:
    """One command that does a job in a folder of its own; this one makes nothing that could be checked."""

    name: str
    place: Place
    job: object
    turns: int  # at most
    command: list = field(default_factory=list)

    @property
    def folder(self):
        return self.place.folder / self.name

    def begin(self):
        """Before each turn: the folder may be new."""
        self.folder.mkdir(exist_ok=True)
        link = self.folder / self.place.data.name
        if not link.is_symlink():
            link.symlink_to(self.place.data)

    def prepare(self):
        """Before each run, unmeasured."""

    def check(self):
        """After the runs of a turn: raises WrongResult."""

    def end(self):
        """After each turn of all contestants."""


class IndexMaker(Contestant):
    """Makes index.ISI. The first is held against the data, each further one, by a digest, against the first."""

    source_name = "source.ISI"  # of a compaction
    error_file_name = "index.ERR"
    check_words = ()
    checked_digest = None

    @property
    def index(self):
        return self.folder / "index.ISI"

    def begin(self):
        super().begin()
        if self.job.compaction:
            self.place.run(*self.build_command(self.source_name), cwd=self.folder)

    def prepare(self):
        for path in (self.index, self.folder / self.error_file_name):  # to empty a file takes time too
            path.unlink(missing_ok=True)
        if self.job.compaction == "in place":
            self.place.run("cp", self.source_name, "index.ISI", cwd=self.folder)

    def check(self):
        if not self.index.is_file():
            raise WrongResult("no index was made")
        with open(self.index, "rb") as index:
            digest = hashlib.file_digest(index, "blake2b").digest()
        if self.checked_digest is None:
            words = (*self.job.format_words, *self.check_words)
            self.place.run(self.place.helpers["verify"], "index.ISI", str(self.place.data), *words, cwd=self.folder)
            self.checked_digest = digest
        elif digest != self.checked_digest:
            raise WrongResult("the index differs from the one of the first turn")

    def end(self):
        for path in (self.index, self.folder / self.source_name):
            path.unlink(missing_ok=True)


class Tarnvale(IndexMaker):
    """Each program works in a folder of its own, with the same names: an index keeps those it was built with."""

    def __init__(self, name, place, job, turns, program):
        super().__init__(name, place, job, turns)
        self.program = program
        self.command = self.compact_command() if job.compaction else self.build_command("index.ISI")

    def build_command(self, index):
        shape = SHAPES[self.job.shape]
        files = ",".join(filter(None, (self.place.data.name, index, shape.length_field)))
        options = self.job.key if self.job.compaction else self.job.tarnvale_options
        return [self.program, *self.job.leading, files, f"-{options}"]

    def compact_command(self):
        in_place = self.job.compaction == "in place"
        return [self.program, "index.ISI" if in_place else f"{self.source_name},index.ISI", "-c"]


class Roof(IndexMaker):
    check_words = ("bare",)
    error_file_name = "index.ISI.err"

    def __init__(self, place, job, turns):
        super().__init__("roof", place, job, turns)
        source = "index.ISI" if job.compaction == "in place" else self.source_name
        compact = [self.place.helpers["roof"], "compact", source, "index.ISI", str(job.area), *job.format_words]
        self.command = compact if job.compaction else self.build_command("index.ISI")

    def build_command(self, index):
        data = str(self.place.data)
        return [self.place.helpers["roof"], "build", data, index, str(self.job.area), *self.job.format_words]


class Prototype(Contestant):
    """A program outside of this project that does the plain job: PROTOTYPE DATA AREA."""

    def __init__(self, place, job, turns, program):
        super().__init__("prototype", place, job, turns)
        self.command = [program, str(place.data), str(job.area)]

    @staticmethod
    def can_do(job):
        plain = job.key == "1-10" and len(job.format_words) == 1
        return plain and not job.compaction and job.shape in ("random", "short", "long")


class SortRival(Contestant):
    """sort(1), by the columns of the key; a reversed range is taken forwards, which is as much work."""

    def __init__(self, place, job, turns):
        super().__init__("sort", place, job, turns)
        keys = [f"-k1.{min(first, last)},1.{max(first, last)}" + self.fold for first, last in job.key_ranges]
        sort = ["sort", "-S", f"{job.area // 1048576}M", "-s", *keys, "-o", "sorted.txt"]
        if job.condition:
            self.command = self.piped(f"grep -E '{job.condition.pattern}' '{place.data}'", sort)
        elif job.before_sort:
            self.command = self.piped(f"{job.before_sort} '{place.data}'", sort)
        else:
            self.command = [*sort, str(place.data)]

    @property
    def fold(self):
        return "f" if self.job.options == "u," else ""

    @staticmethod
    def piped(source, sort):
        return ["sh", "-c", f"{source} | {' '.join(sort)}"]

    def prepare(self):
        (self.folder / "sorted.txt").unlink(missing_ok=True)

    def check(self):
        result = self.folder / "sorted.txt"
        whole = not self.job.condition and not self.job.before_sort
        size = result.stat().st_size
        result.unlink()  # before it gets to the disk
        if size == 0 or (whole and size != self.place.data.stat().st_size):
            raise WrongResult("not all lines were sorted")


class SqliteRival(Contestant):
    """CREATE INDEX on the imported table, whose columns are those of the key and the rest of the line."""

    def __init__(self, place, job, turns):
        super().__init__("sqlite3", place, job, turns)
        cache = f"PRAGMA cache_size=-{job.area // 1024}; " if job.area != DEFAULT_AREA else ""
        columns = ",".join(f"k{i}{job.collation}" for i, _ in enumerate(job.key_ranges, 1))
        where = f" WHERE {job.condition.where}" if job.condition else ""
        self.command = ["sqlite3", "table.db", f"{SQLITE_START}{cache}CREATE INDEX keys ON data({columns}){where}"]

    def begin(self):
        super().begin()
        if not (self.folder / "table.db").exists():
            script = SQLITE_START + SQLITE_IMPORT.format(self.place.data)
            self.place.run("sqlite3", "table.db", cwd=self.folder, stdin=script)
        table = f"DROP TABLE IF EXISTS data; CREATE TABLE data AS SELECT {self.columns} FROM lines"
        made = self.folder / "columns"  # of the table that another job has left
        if not made.exists() or made.read_text() != self.columns:
            self.place.run("sqlite3", "table.db", SQLITE_START + table, cwd=self.folder)
            made.write_text(self.columns)

    @property
    def columns(self):
        ranges = [(min(pair), max(pair)) for pair in self.job.key_ranges]
        keys = [f"substr(line,{low},{high - low + 1}) AS k{i}" for i, (low, high) in enumerate(ranges, 1)]
        return ", ".join((*keys, f"substr(line,{max(high for _, high in ranges) + 1}) AS rest"))

    def prepare(self):
        self.place.run("sqlite3", "table.db", SQLITE_START + "DROP INDEX IF EXISTS keys", cwd=self.folder)


class CopyRival(Contestant):
    """A plain copy of the index, for the jobs that compact one."""

    def __init__(self, place, job, turns, program):
        super().__init__("cp", place, job, turns)
        self.source = self.folder / IndexMaker.source_name
        self.command = ["cp", self.source.name, "copy.ISI"]
        self.build_command = program.build_command(self.source.name)

    def begin(self):
        super().begin()
        self.place.run(*self.build_command, cwd=self.folder)

    def prepare(self):
        (self.folder / "copy.ISI").unlink(missing_ok=True)

    def check(self):
        copy = self.folder / "copy.ISI"
        same = filecmp.cmp(self.source, copy, shallow=False)
        copy.unlink()
        if not same:
            raise WrongResult("the copy differs")

    def end(self):
        self.source.unlink(missing_ok=True)


def rivals_of(place, job, turns, first_program):
    """Those that are installed and fit the job."""
    if job.compaction:
        return [CopyRival(place, job, turns, first_program)]
    if not job.rivals or not SHAPES[job.shape].lines:
        return []
    rivals = [SortRival(place, job, turns)] if has_tool("sort") else []
    if has_tool("sqlite3") and not job.before_sort:
        rivals.append(SqliteRival(place, job, turns))
    return rivals

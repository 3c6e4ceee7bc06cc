"""The jobs of the benchmark: what data, what is asked of tarnvale, and the same in the words of its rivals."""

from dataclasses import dataclass

DEFAULT_AREA = 1048576  # bytes of the sort area without -m
LARGE_AREA = 67108864


@dataclass(frozen=True)
class Shape:
    """Data as make_data makes it, and what has to be said of it to index it."""

    record_size: int  # bytes, on average
    options: str = ""  # of tarnvale
    length_field: str = ""  # Lnnn, for records of different lengths
    format: tuple = ()  # words for the roof and the check, see record_format.h
    lines: bool = True  # rivals that read lines can read it


SHAPES = {
    "random": Shape(100),
    "crlf": Shape(100, format=("eor=crlf",)),
    "prefix": Shape(100),
    "ten": Shape(100),
    "sorted": Shape(100),
    "reversed": Shape(100),
    "nearly": Shape(100),
    "longkey": Shape(200),
    "short": Shape(16),
    "long": Shape(4000),
    "variable": Shape(261, options="v,", length_field="L500", format=("offsets",)),
    "tabs": Shape(61, options="s,", length_field="L200", format=("offsets", "tabs")),
    "binary": Shape(100, options="f=100,", format=("size=100", "eor=none"), lines=False),
    "framed": Shape(100, options="g=99,", format=("size=100",), lines=False),
}


@dataclass(frozen=True)
class Condition:
    """The same choice of records for everyone."""

    option: str  # of tarnvale
    terms: str  # for the roof and the check
    pattern: str  # for grep
    where: str  # for sqlite3, with the columns k1 and rest


ONE_IN_TEN = Condition("p11=A,", "select=11='A'", "^.{10}A", "substr(rest,1,1)='A'")
THREE_TERMS = Condition(
    "p=11='A'&1<'M'|12='7',",
    "select=11='A'&1<'M'|12='7'",
    "^([!-L].{9}A|.{11}7)",
    "substr(rest,1,1)='A' AND k1<'M' OR substr(rest,2,1)='7'",
)


@dataclass(frozen=True)
class Job:
    name: str
    shape: str
    records: int  # at scale 1
    about: str
    key: str = "1-10"  # column ranges
    options: str = ""  # of tarnvale, before the key
    leading: tuple = ()  # options of tarnvale before the files
    format: tuple = ()  # more words for the roof and the check
    area: int = DEFAULT_AREA
    condition: Condition = None
    compaction: str = ""  # "into a new file" or "in place": the job works on the index of this data
    collation: str = ""  # of sqlite3
    before_sort: str = ""  # a command that makes lines sort(1) can take the key from
    rivals: bool = True

    @property
    def key_ranges(self):
        """First and last column of each range, as written."""
        for text in self.key.split(","):
            first, _, last = text.partition("-")
            yield int(first), int(last or first)

    @property
    def tarnvale_options(self):
        """What stands behind the hyphen."""
        if self.compaction:
            return "c"
        condition = self.condition.option if self.condition else ""
        return SHAPES[self.shape].options + self.options + condition + self.key

    @property
    def format_words(self):
        condition = (self.condition.terms,) if self.condition else ()
        return (f"key={self.key}", *SHAPES[self.shape].format, *self.format, *condition)


MILLION = 1000000

JOBS = (
    Job("random-0.5m", "random", MILLION // 2, "a random key of 10 bytes"),
    Job("random-1m", "random", MILLION, "the same"),
    Job("random-2m", "random", 2 * MILLION, "the same"),
    Job("random-5m", "random", 5 * MILLION, "the same"),
    Job("memory-64m", "random", 5 * MILLION, "the same with -m67108864", leading=("-m67108864",), area=LARGE_AREA),
    Job("quicksort", "random", 5 * MILLION, "the same with -1", leading=("-1",)),
    Job("four-ranges", "random", 5 * MILLION, "a key of four ranges, one reversed", key="1-10,40-31,51-60,71-80"),
    Job("upper-case", "random", 5 * MILLION, "u", options="u,", format=("upper",), collation=" COLLATE NOCASE"),
    Job("one-in-ten", "random", 5 * MILLION, "p11=A keeps one record in ten", condition=ONE_IN_TEN),
    Job("three-terms", "random", 5 * MILLION, "an expression of three terms", condition=THREE_TERMS),
    Job("compact-new", "random", 5 * MILLION, "c into a new file", compaction="into a new file"),
    Job("compact-in-place", "random", 5 * MILLION, "c in place", compaction="in place"),
    Job("random-10m", "random", 10 * MILLION, "a random key of 10 bytes"),
    Job("random-20m", "random", 20 * MILLION, "the same"),
    Job("shared-prefix", "prefix", 5 * MILLION, "keys like CUSTOMER-0000123456", key="1-19"),
    Job("ten-keys-d", "ten", 5 * MILLION, "ten different keys, d", options="d,"),
    # The rivals have no such option: they do the work of ten-keys-d.
    Job("ten-keys-n0", "ten", 5 * MILLION, "the same, n0", options="n0,", format=("first",), rivals=False),
    Job("sorted", "sorted", 5 * MILLION, "keys that rise"),
    Job("reversed", "reversed", 5 * MILLION, "keys that fall"),
    Job("nearly-sorted", "nearly", 5 * MILLION, "one key in a hundred out of order"),
    Job("long-key", "longkey", 2 * MILLION, "a random key of 150 bytes", key="1-150"),
    Job("short-records", "short", 5 * MILLION, "records of 16 bytes"),
    Job("long-records", "long", MILLION // 4, "records of 4,000 bytes"),
    Job("variable", "variable", 2 * MILLION, "v, records of 20 to 500 bytes"),
    Job("tabs", "tabs", 5 * MILLION, "s, TABs in nine records of ten", key="1-4,17-22", before_sort="expand"),
    Job("binary", "binary", 5 * MILLION, "f=100"),
    Job("framed", "framed", 5 * MILLION, "g=99"),
    Job("crlf", "crlf", 5 * MILLION, "records end in CR LF"),
)

# The jobs of the picture: the same work on ever larger files.
SIZES = ("random-0.5m", "random-1m", "random-2m", "random-5m", "random-10m", "random-20m")

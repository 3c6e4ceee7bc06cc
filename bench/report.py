"""What was measured, as a table and as a picture."""

import os
import platform
import re
import subprocess
from pathlib import Path

from jobs import SIZES

ROOFS = ("roof", "prototype")
RIVALS = ("sort", "sqlite3", "cp")

PICTURE_SCRIPT = """
set terminal svg size 800,480 font 'sans-serif,14' background 'white'
set output '{path}'
set title 'Time per record: records of 100 bytes, a random key of 10 bytes'
set xlabel 'million records'
set ylabel 'microseconds per record'
set logscale xy
set xrange [{low}:{high}]
set xtics ({ticks})
set ytics (0.02, 0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10)
set grid linecolor '#dddddd' linetype 1
set key outside right center
{blocks}
plot {plots}
"""


def machine():
    model = re.search(r"model name\s*:\s*(.*)", Path("/proc/cpuinfo").read_text())
    memory = re.search(r"MemTotal:\s+(\d+)", Path("/proc/meminfo").read_text())
    gigabytes = int(memory[1]) / 1048576 if memory else 0
    return f"{model[1] if model else platform.machine()}, {os.cpu_count()} cores, {gigabytes:.0f} GiB of memory"


def number(value):
    """Three digits, as far as they mean something."""
    return f"{value:.3f}" if value < 1 else f"{value:.2f}" if value < 100 else f"{value:.0f}"


class Row:
    """One job's results, as cells. A cell is empty for who did not take part."""

    def __init__(self, job, records, results):
        self.job, self.records, self.results = job, records, results

    def of(self, name, show):
        return show(self.results[name]) if self.results.get(name) else ""

    def seconds(self, name):
        failed = name in self.results and not self.results[name]
        return "failed" if failed else self.of(name, lambda result: number(result.wall))

    def ratios(self, name, other):
        """Of wall and CPU time."""
        one, another = self.results.get(name), self.results.get(other)
        return f"{one.wall / another.wall:.2f}, {one.cpu / another.cpu:.2f}" if one and another else ""

    def rival(self, name, program):
        one, another = self.results.get(name), self.results.get(program)
        if not one or not another:
            return self.seconds(name)
        times = one.wall / another.wall
        return f"{self.seconds(name)} ({times:.{1 if times >= 1 else 2}f})"


def columns_of(programs, names):
    """Heading and cell of each column. Of two programs, the second is compared with everyone."""
    program = programs[-1]
    columns = [("job", lambda row: row.job.name), ("records", lambda row: f"{row.records:,}")]
    for name in programs:
        columns.append((f"{name}, s", lambda row, name=name: row.seconds(name)))
    if len(programs) == 2:
        columns.append((f"{program} / {programs[0]}", lambda row: row.ratios(program, programs[0])))
    columns.append(("CPU, s", lambda row: row.of(program, lambda result: number(result.cpu))))
    columns.append(("µs/record", lambda row: row.of(program, lambda result: number(result.wall / row.records * 1e6))))
    columns.append(("MiB", lambda row: row.of(program, lambda result: f"{result.peak / 1024:.1f}")))
    for roof in filter(names.__contains__, ROOFS):
        columns.append((f"{roof}, s", lambda row, roof=roof: row.seconds(roof)))
        columns.append((f"{program} / {roof}", lambda row, roof=roof: row.ratios(program, roof)))
    for rival in filter(names.__contains__, RIVALS):
        columns.append((f"{rival}, s", lambda row, rival=rival: row.rival(rival, program)))
    return columns


def table(programs, rows):
    """Markdown."""
    columns = columns_of(programs, {name for row in rows for name in row.results})
    lines = [[heading for heading, _ in columns]] + [[cell(row) for _, cell in columns] for row in rows]
    widths = [max(len(line[i]) for line in lines) for i in range(len(columns))]
    lines.insert(1, ["-" * widths[0]] + ["-" * (width - 1) + ":" for width in widths[1:]])
    pads = [str.ljust] + [str.rjust] * (len(columns) - 1)
    return "\n".join(
        "| " + " | ".join(pad(cell, width) for pad, cell, width in zip(pads, line, widths)) + " |" for line in lines
    )


def legend(programs, repeat):
    return (
        f"Medians of {repeat} turns, rivals of fewer, on {machine()}. CPU, time per record and the peak of memory are "
        f"those of {programs[-1]}. A ratio is one of wall times and one of CPU times; behind a rival's time stands how "
        f"many times as long as {programs[-1]} it took."
    )


def draw_picture(path, programs, rows):
    """Time per record against file size, one line per contestant. False when there are too few sizes for a line."""
    sizes = [row for row in rows if row.job.name in SIZES]
    lines = {}
    for name in (*programs, *ROOFS, *RIVALS):
        done = [row for row in sizes if row.results.get(name)]
        if len(done) > 1:
            lines[name] = [f"{row.records / 1e6:g} {row.results[name].wall / row.records * 1e6:.4f}" for row in done]
    if not lines:
        return False
    style = "with linespoints linewidth 2 pointtype 7 pointsize 0.6"
    script = PICTURE_SCRIPT.format(
        path=path,
        low=0.9 * min(row.records for row in sizes) / 1e6,
        high=1.1 * max(row.records for row in sizes) / 1e6,
        ticks=", ".join(f"'{row.records / 1e6:g}' {row.records / 1e6:g}" for row in sizes),
        blocks="\n".join("\n".join((f"$line{i} << end", *line, "end")) for i, line in enumerate(lines.values())),
        plots=", ".join(f"$line{i} {style} title '{name}'" for i, name in enumerate(lines)),
    )
    subprocess.run(["gnuplot"], input=script, text=True, check=True)
    return True

"""Measures the contestants of a job in turns, so that what slows the machine for a moment slows all of them alike."""

import os
import statistics
import subprocess
import sys
from dataclasses import dataclass
from typing import NamedTuple

from contestants import WrongResult


class Sample(NamedTuple):
    wall: float  # seconds
    cpu: float  # seconds, user and system
    peak: int  # KiB of memory


@dataclass(frozen=True)
class Result:
    """All turns of one contestant."""

    samples: tuple

    @property
    def wall(self):
        return statistics.median(sample.wall for sample in self.samples)

    @property
    def cpu(self):
        return statistics.median(sample.cpu for sample in self.samples)

    @property
    def peak(self):
        return max(sample.peak for sample in self.samples)


def run_measured(contestant):
    """The command's output goes to a file, and nothing is left to be written when it starts."""
    (contestant.folder / "messages").unlink(missing_ok=True)
    os.sync()
    measurements = contestant.folder / "measurements"
    with open(contestant.folder / "messages", "x+", errors="replace") as messages:
        command = [contestant.place.helpers["measure"], str(measurements), *contestant.command]
        subprocess.run(command, cwd=contestant.folder, env=contestant.place.environment, check=True,
                       stdin=subprocess.DEVNULL, stdout=messages, stderr=subprocess.STDOUT)
        wall, user, system, peak, status = measurements.read_text().split()
        if int(status) != 0:
            messages.seek(max(0, messages.seek(0, os.SEEK_END) - 300))
            raise WrongResult(f"exit status {status}: {messages.read().strip()}")
    return Sample(float(wall), float(user) + float(system), int(peak))


class Trial:
    """A job, those who do it, and what was measured of them up to now."""

    def __init__(self, job, contestants):
        self.job, self.contestants = job, contestants
        self.samples = {contestant.name: [] for contestant in contestants}
        self.failures = {}  # the reason by name; who fails is left out from there on

    def take_turn(self, turn):
        """Each contestant does the job; their indexes are removed behind it."""
        first = turn % len(self.contestants)  # no one always follows the same other
        present = [each for each in self.contestants[first:] + self.contestants[:first] if turn < each.turns]
        for action in (lambda each: each.begin(), self.measure):
            for contestant in present:
                if contestant.name not in self.failures:
                    try:
                        action(contestant)
                    except WrongResult as wrong:
                        self.failures[contestant.name] = str(wrong)
                        print(f"{self.job.name}: {contestant.name} FAILED: {wrong}", file=sys.stderr)
        for contestant in present:
            contestant.end()

    def measure(self, contestant):
        """Two runs, one right after the other, of which the second counts. The host of a virtual machine takes back
        the memory that files leave free, every two seconds or so, and to fetch it anew can take longer than the job:
        so the first run fetches it."""
        for _ in range(2):
            contestant.prepare()
            sample = run_measured(contestant)
        contestant.check()
        self.samples[contestant.name].append(sample)

    def describe_turn(self, turn):
        walls = (f"{name} {taken[turn].wall:.3f} s" for name, taken in self.samples.items() if turn < len(taken))
        return f"{self.job.name}: {', '.join(walls)}"

    def results(self):
        """By name; a contestant that failed has None."""
        return {name: None if name in self.failures else Result(tuple(taken)) for name, taken in self.samples.items()}

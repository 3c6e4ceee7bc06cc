"""Measures the contestants of a job in turns, so that what slows the machine for a while slows all of them alike."""

import os
import statistics
import subprocess
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


def measure(contestants, repeat):
    """Gives the results by name. A contestant that fails is left out from there on and has None for a result.

    Each turn is two runs, one right after the other, of which the second counts. The host of a virtual machine takes
    back the memory that files leave free, every two seconds or so, and to fetch it anew can take longer than the job:
    so the first run fetches it.
    """
    samples = {contestant.name: [] for contestant in contestants}
    failures = {}

    def attempt(contestant, action):
        if contestant.name not in failures:
            try:
                action()
            except WrongResult as wrong:
                failures[contestant.name] = str(wrong)

    def take_turn(contestant):
        for _ in range(2):  # the second run counts
            contestant.prepare()
            sample = run_measured(contestant)
        contestant.check()
        samples[contestant.name].append(sample)

    for contestant in contestants:
        attempt(contestant, contestant.begin)
    for turn in range(repeat):
        first = turn % len(contestants)  # no one always follows the same other
        for contestant in contestants[first:] + contestants[:first]:
            if turn < contestant.turns:
                attempt(contestant, lambda contestant=contestant: take_turn(contestant))
    for contestant in contestants:
        contestant.end()
    results = {name: None if name in failures else Result(tuple(taken)) for name, taken in samples.items()}
    return results, failures

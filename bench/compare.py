"""Are two programs the same to a user? Every job is done once by each, and what they leave is held together."""

import filecmp
import subprocess

from contestants import Tarnvale, WrongResult

PARTS = ("index.ISI", "index.ERR", "messages")
OWN_LINES = (b"MORVANE ", b"Start time = ")  # of the messages: version and date, time of day


def run_once(contestant):
    """Leaves the parts in the contestant's folder; gives the exit status."""
    for part in PARTS:
        (contestant.folder / part).unlink(missing_ok=True)
    contestant.begin()
    contestant.prepare()
    with open(contestant.folder / "messages", "wb") as messages:
        run = subprocess.run(contestant.command, cwd=contestant.folder, env=contestant.place.environment,
                             stdin=subprocess.DEVNULL, stdout=messages, stderr=subprocess.STDOUT)
    return run.returncode


def shared_lines(path):
    """The messages without the first line, which names the program, and without those of the run's own time."""
    with open(path, "rb") as messages:
        next(messages, None)
        for line in messages:
            if not line.startswith(OWN_LINES):
                yield line


def same_messages(one, other):
    ended = object()
    lines, others = shared_lines(one), shared_lines(other)
    while (line := next(lines, ended)) == next(others, ended):
        if line is ended:
            return True
    return False


def differences(old, new):
    """Names of the parts that differ."""
    for part in PARTS:
        paths = old.folder / part, new.folder / part
        if paths[0].exists() != paths[1].exists():
            yield part
        elif part == "messages":
            if not same_messages(*paths):
                yield part
        elif paths[0].exists() and not filecmp.cmp(*paths, shallow=False):
            yield part


def verdict(old, new):
    """What there is to say of the two, and whether all is well."""
    try:
        statuses = [run_once(program) for program in (old, new)]
    except WrongResult as wrong:
        return f"FAILED: {wrong}", False
    if statuses != [0, 0]:
        return f"FAILED: exit status {statuses[0]} of old, {statuses[1]} of new", False
    differing = list(differences(old, new))
    return "different: " + ", ".join(differing) if differing else "same", not differing


def compare_programs(place, job, programs):
    """Prints one line; True when the job was done by both, with the same result."""
    old, new = (Tarnvale(label, place, job, 1, path) for label, path in programs.items())
    text, well = verdict(old, new)
    for program in (old, new):
        program.end()
    print(f"{job.name:17} {text}", flush=True)
    return well

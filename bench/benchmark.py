"""Functions that the benchmarks share: calling the project's scripts, and measuring programs side by side."""

import dataclasses
import json
import os
import pathlib
import statistics
import subprocess
import time

PROJECT = pathlib.Path(__file__).resolve().parents[1]
KEY = "0123456789abcdef0123456789abcdef01234567"


def script(name, *arguments):
    """Runs a script of the project and returns what it prints."""
    return subprocess.run([PROJECT / name, *arguments], check=True, stdout=subprocess.PIPE, text=True).stdout.strip()


def demo_build():
    """The sample build that ./demo makes and keeps."""
    folder = PROJECT / "build/demo"
    if not folder.exists():
        script("sample/make-app", folder)
    return folder


@dataclasses.dataclass
class Cost:
    wall: float  # seconds, like the next two
    user: float
    system: float
    peak: int  # KiB of memory, of the program or of one that it started

    @property
    def processor(self):
        return self.user + self.system


def measure(command, **options):
    """The cost of a command, which must succeed."""
    start = time.monotonic()
    process = subprocess.Popen(command, **options)
    _, status, usage = os.wait4(process.pid, 0)
    wall = time.monotonic() - start
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        raise subprocess.CalledProcessError(process.returncode, command)
    return Cost(wall, usage.ru_utime, usage.ru_stime, usage.ru_maxrss)


def measure_in_turns(commands, rounds, prepare=lambda: None, **options):
    """For each name in `commands`, the median costs of its command. The commands take turns, so that other work on the
    machine slows all of them alike. `prepare` is called before each. A first round, not counted, fills the caches."""
    costs = {name: [] for name in commands}
    for turn in range(rounds + 1):
        for name, command in commands.items():
            prepare()
            cost = measure(command, **options)
            if turn > 0:
                costs[name].append(dataclasses.astuple(cost))
    return {name: Cost(*map(statistics.median, zip(*all_costs))) for name, all_costs in costs.items()}


def hyperfine(report, commands, *options, **run_options):
    """The median milliseconds of each command line in `commands`, by its name. For programs that end within
    milliseconds, of which `measure` would count the time that Python needs to start them."""
    named = [word for name, command in commands.items() for word in ("-n", name, command)]
    subprocess.run(["hyperfine", "-N", "--style", "none", "--export-json", report, *options, *named],
                   check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **run_options)
    results = json.loads(pathlib.Path(report).read_text())["results"]
    return {result["command"]: result["median"] * 1000 for result in results}

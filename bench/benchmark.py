"""Functions that the benchmarks share: running the project's scripts and services, and measuring programs."""

import contextlib
import dataclasses
import json
import os
import pathlib
import statistics
import subprocess
import sys
import tempfile
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
    peak: int  # KiB of memory

    @property
    def processor(self):
        return self.user + self.system


def measure(command, check=True, **options):
    """The cost of a command, which must succeed unless `check` is false. The peak is that of time(1): the system would
    count the memory of this Python process too."""
    with tempfile.NamedTemporaryFile("r") as peak:
        start = time.monotonic()
        process = subprocess.Popen(["time", "-q", "-f", "%M", "-o", peak.name, *command], **options)
        _, status, usage = os.wait4(process.pid, 0)
        wall = time.monotonic() - start
        process.returncode = os.waitstatus_to_exitcode(status)
        if check and process.returncode != 0:
            raise subprocess.CalledProcessError(process.returncode, command)
        return Cost(wall, usage.ru_utime, usage.ru_stime, int(peak.read()))


def measure_in_turns(commands, rounds, prepare=lambda: None, **options):
    """For each name in `commands`, the median costs of its command. The commands take turns, so that other work on the
    machine slows all of them alike. `prepare` is called before each. The first round is not counted: it only fills the
    system's caches."""
    costs = {name: [] for name in commands}
    for turn in range(rounds + 1):
        for name, command in commands.items():
            prepare()
            cost = measure(command, **options)
            if turn > 0:
                costs[name].append(dataclasses.astuple(cost))
    return {name: Cost(*map(statistics.median, zip(*all_costs))) for name, all_costs in costs.items()}


@contextlib.contextmanager
def service(*command):
    """Runs a service in the background. Returns the last word of the first line that it prints: its address or port."""
    with tempfile.TemporaryFile("w+") as log, subprocess.Popen(command, stdout=log) as process:
        try:
            line = ""
            while not line.endswith("\n"):
                if process.poll() is not None:
                    sys.exit(f"{command[0]} does not start.")
                time.sleep(0.05)
                log.seek(0)
                line = log.readline()
            yield line.split()[-1]
        finally:
            process.terminate()


def hyperfine(report, commands, *options, **run_options):
    """For each name in `commands`, the median milliseconds of its command line. For programs that take only a few
    milliseconds: `measure` includes the time that Python needs to start a program."""
    named = [word for name, command in commands.items() for word in ("-n", name, command)]
    subprocess.run(["hyperfine", "-N", "--style", "none", "--export-json", report, *options, *named],
                   check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **run_options)
    results = json.loads(pathlib.Path(report).read_text())["results"]
    return {result["command"]: result["median"] * 1000 for result in results}

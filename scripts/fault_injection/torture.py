"""Runs the tool with one failing system call or allocation per run. See scripts/torture for the arguments."""

import collections
import concurrent.futures
import contextlib
import os
import pathlib
import queue
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import time

from faults import Fault, faults_of
from stage import PROJECT, Stage
from verdict import violations

TARGETS = ("direct/run", "direct/ditto", "companion/run")
# In bytes: large enough that the archiver compresses with several threads.
BIG_FILE_SIZE = 5 << 19
ALLOCATIONS_IN_ROUND = 8


def make_sample(folder):
    """A build whose dSYM is large enough that the archiver starts threads."""
    subprocess.run([PROJECT / "sample/make-app", folder], check=True)
    resources = next(folder.glob("DerivedData/Build/Products/*/*.dSYM")) / "Contents/Resources"
    words = random.Random(1).randbytes(1 << 10)
    (resources / "big").write_bytes(bytes(random.Random(2).choices(words, k=BIG_FILE_SIZE)))


@contextlib.contextmanager
def stages(number):
    """`number` stages in a temporary folder, which is removed at the end."""
    scratch = pathlib.Path(tempfile.mkdtemp(prefix="torture-"))
    made = []
    try:
        make_sample(scratch / "sample")
        for i in range(number):
            made.append(Stage(scratch / f"stage-{i}", scratch / "sample"))
        yield made
    finally:
        for stage in made:
            stage.close()
        shutil.rmtree(scratch)


def all_faults(stage):
    faults = []
    for target in TARGETS:
        road, program = target.split("/")
        faults += faults_of(target, *stage.count_calls(road, program))
    return faults


def sample_of(faults, size, seed):
    """`size` faults. Each round takes one fault of each call of each target. Allocations are ten times as many as calls,
    so each round takes several of them."""
    groups = collections.defaultdict(list)
    for fault in faults:
        groups[fault.target, fault.call].append(fault)
    chance = random.Random(seed)
    for group in groups.values():
        chance.shuffle(group)
    rounds = [
        (turn // (ALLOCATIONS_IN_ROUND if call == "malloc" else 1), fault)
        for (_, call), group in groups.items()
        for turn, fault in enumerate(group)
    ]
    rounds.sort(key=lambda one: one[0])
    return [fault for _, fault in rounds[:size]]


class Summary:
    def __init__(self):
        self.rows = collections.defaultdict(collections.Counter)
        self.violations = 0

    def add(self, fault, ending, faults_found):
        row = self.rows[fault.target, fault.call]
        status = ending.status if ending.status in (0, 1) else "other"
        row.update(["injections", status])
        if fault.call != "malloc" and not ending.injected:
            row["not reached"] += 1
        if faults_found:
            row["violations"] += 1
            self.violations += 1

    def print(self):
        columns = ("injections", 0, 1, "other", "not reached", "violations")
        print(f"{'':32}" + "".join(f"{'status ' + str(c) if c in (0, 1) else c:>12}" for c in columns))
        total = collections.Counter()
        for (target, call), row in [*sorted(self.rows.items()), (("all", ""), total)]:
            print(f"{target + ' ' + call:32}" + "".join(f"{row[column]:12}" for column in columns))
            total.update(row)


def torture(stage_list, faults, is_verbose):
    free = queue.Queue()
    for stage in stage_list:
        free.put(stage)

    def try_one(fault):
        stage = free.get()
        try:
            ending = stage.run_with(fault)
            return fault, ending, violations(stage, fault, ending)
        finally:
            free.put(stage)

    summary = Summary()
    with concurrent.futures.ThreadPoolExecutor(len(stage_list)) as workers:
        for fault, ending, found in workers.map(try_one, faults):
            summary.add(fault, ending, found)
            if found or is_verbose:
                print(f"\nscripts/torture {fault}")
                print(f"  ended with status {ending.status} after {ending.seconds:.1f} s")
                for text in [*found, ending.injected, ending.output.strip()]:
                    print("  " + text.replace("\n", "\n  "))
                sys.stdout.flush()
    summary.print()
    return summary.violations


def main(arguments):
    start = time.monotonic()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("ended by a signal"))
    what = arguments[0]
    with stages(1 if ":" in what else os.cpu_count()) as stage_list:
        if ":" in what:
            faults = [Fault.parse(argument) for argument in arguments]
        else:
            faults = all_faults(stage_list[0])
            if what == "all":
                faults = [fault for fault in faults if str(fault).startswith("".join(arguments[1:]))]
            else:
                seed = int(arguments[1]) if len(arguments) > 1 else 1
                print(f"{what} of {len(faults)} faults, chosen by the seed {seed}")
                faults = sample_of(faults, int(what), seed)
        found = torture(stage_list, faults, ":" in what)
    print(f"{len(faults)} faults in {time.monotonic() - start:.0f} s: {found or 'no'} violations")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))

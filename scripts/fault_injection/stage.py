"""Runs the tool with one fault, on its own copy of a sample build, and returns the outcome."""

import dataclasses
import os
import pathlib
import shlex
import shutil
import signal
import subprocess
import time

PROJECT = pathlib.Path(__file__).resolve().parents[2]
BUILD = PROJECT / "build/release"
FRAMEWORK = BUILD / "tests/tool/Orvane.framework"  # the tool that reads its endpoints from the environment
SERVICE = BUILD / "sample/local-service"
COMPANION = BUILD / "sample/companion/companion"
FAILING_ALLOCATION = BUILD / "tests/torture/libfailing_allocation.so"

KEY = "0123456789abcdef0123456789abcdef01234567"
SECRET = "secret" * 10 + "four"
# In seconds: three exchanges of 15 seconds, and some time for strace.
TIME_LIMIT = 60
REPORT_LIMIT = 10


@dataclasses.dataclass
class Ending:
    """The outcome of a run."""

    status: int  # negative: the signal that ended it; None: it exceeded the time limit
    archiver_status: int  # None: it was not started or did not end
    output: str
    log: str  # the lines of strace
    seconds: float

    @property
    def injected(self):
        return "\n".join(line for line in self.log.splitlines() if "(INJECTED)" in line)


class Stage:
    """A folder with a copy of the tool, a sample build, a service and a desktop. Use it for one run at a time."""

    def __init__(self, folder, sample):
        self.folder = folder
        shutil.copytree(sample, folder, symlinks=True)
        self.products = folder / "DerivedData/Build/Products/Release-iphoneos"
        self.dsym = self.products / "Sample App.app.dSYM"
        self.framework = folder / "Sample Project/Orvane.framework"
        self.framework.mkdir()
        for name in ("run", "ditto"):
            shutil.copy2(FRAMEWORK / name, self.framework / name)
        shutil.copy2(FRAMEWORK / "ditto", folder / "ditto")
        subprocess.run([PROJECT / "sample/register-companion", folder / "desktop", COMPANION, "203"],
                       check=True, stdout=subprocess.DEVNULL)
        self.report = folder / "desktop/report.txt"
        self.caches = folder / "caches"
        self.received = folder / "service"
        self.log = folder / "strace.log"
        self.archiver_status = folder / "archiver-status"
        self.count = folder / "allocations"
        self.service = subprocess.Popen([SERVICE, self.received, "0"], stdout=subprocess.PIPE, text=True)
        address = self.service.stdout.readline().split()[-1]
        settings = subprocess.run([PROJECT / "sample/xcode-environment", folder], check=True, stdout=subprocess.PIPE)
        self.environment = dict(setting.split(b"=", 1) for setting in settings.stdout.split(b"\0") if setting)
        self.environment |= {
            b"TARNWHISTLE_CREATE_ARTIFACT": b"YES",
            b"ORVANE_TEST_API_ENDPOINT": address.encode(),
            b"ORVANE_TEST_SYMBOLS_ENDPOINT": address.encode(),
            b"XDG_DATA_DIRS": os.fsencode(folder / "no-desktop"),
            b"XDG_CACHE_HOME": os.fsencode(self.caches),
        }
        self.products_at_start = set(os.listdir(self.products))

    def close(self):
        self.service.terminate()
        self.service.communicate()

    def run(self, road, program, wrapper):
        """Runs the tool on a road, with `wrapper` in front of the command line of the program."""
        self._clear()
        ditto = self.framework / "ditto"
        ditto.unlink()
        shutil.copy2(self.folder / "ditto", ditto)
        if program == "ditto":
            command = shlex.join(map(str, [*wrapper, self.folder / "ditto"]))
            status = shlex.quote(str(self.archiver_status))
            ditto.write_text(f'#!/bin/sh\n{command} "$@"\nstatus=$?\necho $status >{status}\nexit $status\n')
        desktop = "desktop" if road == "companion" else "no-desktop"
        command = [*(wrapper if program == "run" else []), "./Orvane.framework/run", KEY, SECRET]
        start = time.monotonic()
        process = subprocess.Popen(command, cwd=self.folder / "Sample Project", stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT, start_new_session=True,
                                   env=self.environment | {b"XDG_DATA_HOME": os.fsencode(self.folder / desktop)})
        try:
            output, _ = process.communicate(timeout=TIME_LIMIT)
            status = process.returncode
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            output, _ = process.communicate()
            status = None
        archiver_status = self._read(self.archiver_status)
        return Ending(status, int(archiver_status) if archiver_status else None,
                      output.decode(errors="replace"), self._read(self.log), time.monotonic() - start)

    def run_with(self, fault):
        return self.run(fault.road, fault.program, self._wrapper(fault))

    def count_calls(self, road, program):
        """The trace of a run without faults, and the number of its allocations."""
        traced = self._run_without_fault(road, program, self._strace([]))
        self._run_without_fault(road, program, self._preload(0, [f"ORVANE_ALLOCATION_COUNT={self.count}"]))
        return traced.log, int(self._read(self.count))

    def companion_report(self):
        """Waits for the companion app's report and returns it. Empty if the app was not started."""
        end = time.monotonic() + REPORT_LIMIT
        while time.monotonic() < end:
            if "Hand-off: " in (report := self._read(self.report)):
                return report
            time.sleep(0.02)
        return ""

    def _run_without_fault(self, road, program, wrapper):
        ending = self.run(road, program, wrapper)
        if ending.status != 0:
            raise SystemExit(f"A run without faults ended with status {ending.status}:\n{ending.output}")
        return ending

    def _wrapper(self, fault):
        if fault.call == "malloc":
            return self._preload(fault.number, [])
        rule = f"{fault.call}:error={fault.error}:when={fault.number}"
        return self._strace([f"--trace={fault.call}", f"--inject={rule}"])

    def _strace(self, options):
        # Does not trace the programs that the traced program starts.
        return ["strace", "-f", "-q", "-y", "--detach-on=execve", "-o", self.log, *options]

    def _preload(self, number, variables):
        return ["env", *variables, f"ORVANE_FAILING_ALLOCATION={number}", f"LD_PRELOAD={FAILING_ALLOCATION}"]

    def _clear(self):
        for name in set(os.listdir(self.products)) - self.products_at_start:
            (self.products / name).unlink()
        for folder in (self.received, self.caches):
            shutil.rmtree(folder, ignore_errors=True)
        for file in (self.report, self.log, self.archiver_status, self.count):
            file.unlink(missing_ok=True)

    @staticmethod
    def _read(path):
        try:
            return path.read_text(errors="replace")
        except FileNotFoundError:
            return ""

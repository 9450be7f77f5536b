"""The tool and its peers as commands that upload a dSYM to local services. Used by bench/direct-road and
bench/performance."""
import contextlib
import os
import pathlib
import shlex
import shutil
import subprocess
import tempfile
import time

from benchmark import KEY, PROJECT, hyperfine, measure_in_turns, script, service

# The portable tool, except that it reads the service's addresses from its environment.
FRAMEWORK = PROJECT / "build/portable/tests/tool/Orvane.framework"
MOST_BYTES_OF_SHORT_RUNS = 20_000_000
INFO = """<plist version="1.0"><dict><key>CFBundleIdentifier</key><string>bench</string>
<key>CFBundleVersion</key><string>1</string><key>CFBundleShortVersionString</key><string>1</string>
<key>CFBundleDisplayName</key><string>Bench</string></dict></plist>"""


@contextlib.contextmanager
def uploaders():
    """Builds the programs, starts the services and returns the Uploaders."""
    script("scripts/setup", "time", "curl", "hyperfine", "zip", "strace")
    script("scripts/build", "portable")
    script("scripts/build", "release", "local_service")
    with contextlib.ExitStack() as stack:
        scratch = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory()))
        storing = stack.enter_context(service(PROJECT / "build/release/sample/local-service", scratch / "service", "0"))
        yield Uploaders(scratch, stack.enter_context(service(PROJECT / "bench/discarding-service")), storing)


class Uploaders:
    def __init__(self, scratch, origin, storing):
        """`origin` is the service that times are measured with, `storing` one that keeps the archives."""
        self.archives = scratch / "service"
        self.scratch = scratch
        self.origin = origin
        self.storing = storing

    def environment(self, dsym, origin):
        """The settings of the run. It gets them directly, so that no shell's start is measured."""
        name = dsym.name.removesuffix(".app.dSYM")
        (dsym.parent / "bench-Info.plist").write_text(INFO)
        return {
            "HOME": os.environ["HOME"], "PATH": "/usr/bin:/bin", "XDG_DATA_DIRS": "/nonexistent",
            "XDG_DATA_HOME": "/nonexistent", "SRCROOT": str(PROJECT), "BUILT_PRODUCTS_DIR": str(dsym.parent),
            "INFOPLIST_PATH": "bench-Info.plist", "EXECUTABLE_PATH": f"{name}.app/{name}",
            "DWARF_DSYM_FOLDER_PATH": str(dsym.parent), "DWARF_DSYM_FILE_NAME": dsym.name, "PLATFORM_NAME": "iphoneos",
            "TARGETED_DEVICE_FAMILY": "1", "IPHONEOS_DEPLOYMENT_TARGET": "7.0", "CONFIGURATION": "Release",
            "PRODUCT_NAME": "App", "ORVANE_TEST_API_ENDPOINT": origin,
            "ORVANE_TEST_SYMBOLS_ENDPOINT": origin,
            # Of bench/upload-pipeline.
            "KEY": KEY, "ZIP": str(self.scratch / "pipeline.zip"),
        }

    def commands(self, dsym, origin):
        commands = {"run": [FRAMEWORK / "run", KEY], "pipeline": [PROJECT / "bench/upload-pipeline", dsym, origin]}
        if "SENTRY_CLI" in os.environ:
            commands["sentry"] = [os.path.realpath(os.environ["SENTRY_CLI"]), "--url", origin, "--auth-token", "x",
                                  "debug-files", "upload", "--org", "x", "--project", "x", dsym]
        return commands

    def seconds(self, dsym, rounds):
        """The median time by uploader."""
        commands = self.commands(dsym, self.origin)
        options = {"cwd": PROJECT, "env": self.environment(dsym, self.origin)}
        if sum(file.stat().st_size for file in dsym.rglob("*")) < MOST_BYTES_OF_SHORT_RUNS:
            lines = {name: shlex.join(map(str, command)) for name, command in commands.items()}
            times = hyperfine(self.scratch / "report", lines, "--warmup", "3", "--runs", str(rounds), **options)
            return {name: milliseconds / 1000 for name, milliseconds in times.items()}
        costs = measure_in_turns(commands, rounds, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **options)
        return {name: cost.wall for name, cost in costs.items()}

    def archive_size(self, name, dsym):
        """The size of the archive that the uploader `name` sends."""
        for archive in self.archives.glob("*/*.zip"):
            archive.unlink()
        subprocess.run(self.commands(dsym, self.storing)[name], check=True, cwd=PROJECT,
                       env=self.environment(dsym, self.storing), stderr=subprocess.DEVNULL)
        return next(self.archives.glob("*-upload/*.zip")).stat().st_size

    def peak_memory(self, dsym):
        """Three peaks in KiB: the run's memory of its own, its mapped files, and its archiver's memory."""
        framework, report = self.scratch / "framework", self.scratch / "archiver-peak"
        shutil.copytree(FRAMEWORK, framework, dirs_exist_ok=True)
        (framework / "ditto").rename(framework / "real-ditto")
        (framework / "ditto").write_text(
            f"#!/bin/sh\nexec /usr/bin/time -f %M -o '{report}' '{framework}/real-ditto' \"$@\"\n")
        (framework / "ditto").chmod(0o755)
        process = subprocess.Popen([framework / "run", KEY], cwd=PROJECT,
                                   env=self.environment(dsym, self.origin), stderr=subprocess.DEVNULL)
        peaks = {"RssAnon:": 0, "RssFile:": 0}
        # Not from the resource usage of the process, which includes that of its archiver.
        while process.poll() is None:
            with contextlib.suppress(OSError):
                for line in pathlib.Path(f"/proc/{process.pid}/status").read_text().splitlines():
                    name, size, *_ = [*line.split(), "", ""]
                    if name in peaks:
                        peaks[name] = max(peaks[name], int(size))
            time.sleep(0.001)
        return *peaks.values(), int(report.read_text().split()[-1])

"""The tool and its peers as commands that upload a dSYM to local services. Used by bench/direct-road and
bench/performance."""
import contextlib
import os
import pathlib
import shutil
import subprocess
import tempfile
import time

from benchmark import KEY, PROJECT, measure_in_turns, script, service

# The portable tool, except that it reads the service's addresses from its environment.
FRAMEWORK = PROJECT / "build/portable/tests/tool/Orvane.framework"
INFO = """<plist version="1.0"><dict><key>CFBundleIdentifier</key><string>bench</string>
<key>CFBundleVersion</key><string>1</string><key>CFBundleShortVersionString</key><string>1</string>
<key>CFBundleDisplayName</key><string>Bench</string></dict></plist>"""


@contextlib.contextmanager
def uploaders():
    """Builds the programs, starts the services and returns the Uploaders."""
    script("scripts/setup", "time", "curl", "zip", "strace")
    script("scripts/build", "portable")
    script("scripts/build", "release", "local_service")
    with contextlib.ExitStack() as stack:
        scratch = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory()))
        origin = stack.enter_context(service(PROJECT / "build/release/sample/local-service", scratch / "service", "0"))
        has_sentry = "SENTRY_CLI" in os.environ
        port = stack.enter_context(service(PROJECT / "bench/chunk-service")) if has_sentry else None
        yield Uploaders(scratch, origin, port)


class Uploaders:
    def __init__(self, scratch, origin, sentry_port):
        self.archives = scratch / "service"
        self.scratch = scratch
        self.origin = origin
        self.sentry_port = sentry_port

    def environment(self, dsym):
        """The settings of the run. It gets them directly, so that no shell's start is measured."""
        name = dsym.name.removesuffix(".app.dSYM")
        (dsym.parent / "bench-Info.plist").write_text(INFO)
        return {
            "HOME": os.environ["HOME"], "PATH": "/usr/bin:/bin", "XDG_DATA_DIRS": "/nonexistent",
            "XDG_DATA_HOME": "/nonexistent", "SRCROOT": str(PROJECT), "BUILT_PRODUCTS_DIR": str(dsym.parent),
            "INFOPLIST_PATH": "bench-Info.plist", "EXECUTABLE_PATH": f"{name}.app/{name}",
            "DWARF_DSYM_FOLDER_PATH": str(dsym.parent), "DWARF_DSYM_FILE_NAME": dsym.name, "PLATFORM_NAME": "iphoneos",
            "TARGETED_DEVICE_FAMILY": "1", "IPHONEOS_DEPLOYMENT_TARGET": "7.0", "CONFIGURATION": "Release",
            "PRODUCT_NAME": "App", "ORVANE_TEST_API_ENDPOINT": self.origin,
            "ORVANE_TEST_SYMBOLS_ENDPOINT": self.origin,
            # Of bench/upload-pipeline.
            "KEY": KEY, "ZIP": str(self.scratch / "pipeline.zip"),
        }

    def commands(self, dsym):
        commands = {"run": [FRAMEWORK / "run", KEY],
                    "pipeline": [PROJECT / "bench/upload-pipeline", dsym, self.origin]}
        if self.sentry_port:
            commands["sentry"] = [os.path.realpath(os.environ["SENTRY_CLI"]), "--url",
                                  f"http://127.0.0.1:{self.sentry_port}", "--auth-token", "x", "debug-files", "upload",
                                  "--org", "x", "--project", "x", dsym]
        return commands

    def delete_archives(self):
        for archive in self.archives.glob("*/*.zip"):
            archive.unlink()

    def costs(self, dsym, rounds):
        """The median costs by uploader."""
        return measure_in_turns(self.commands(dsym), rounds, self.delete_archives, cwd=PROJECT,
                                env=self.environment(dsym), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def archive_size(self, command, dsym):
        self.delete_archives()
        subprocess.run(command, check=True, cwd=PROJECT, env=self.environment(dsym), stderr=subprocess.DEVNULL)
        return next(self.archives.glob("*-upload/*.zip")).stat().st_size

    def peak_memory(self, dsym):
        """Three peaks in KiB: the run's memory of its own, its mapped files, and its archiver's memory."""
        framework, report = self.scratch / "framework", self.scratch / "archiver-peak"
        shutil.copytree(FRAMEWORK, framework, dirs_exist_ok=True)
        (framework / "ditto").rename(framework / "real-ditto")
        (framework / "ditto").write_text(
            f"#!/bin/sh\nexec /usr/bin/time -f %M -o '{report}' '{framework}/real-ditto' \"$@\"\n")
        (framework / "ditto").chmod(0o755)
        process = subprocess.Popen([framework / "run", KEY], cwd=PROJECT, env=self.environment(dsym),
                                   stderr=subprocess.DEVNULL)
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

"""Checks the outcome of a run with a fault."""

import pathlib
import plistlib
import re
import signal
import zipfile
import zlib

from stage import KEY

# If a run cannot create pipes or a task, an assertion ends it.
ASSERTIONS = ("Assertion failed: (stdoutPipe && stdinPipe && stderrPipe)", "Assertion failed: (task)")
# After these messages the archive may remain.
ARCHIVE_STAYS = ("data could not be loaded", "Could not delete zipped dSYM", "The run cannot go on")


def contents(folder, parent):
    """The files below a folder: bytes by path, relative to `parent`."""
    return {str(file.relative_to(parent)): file.read_bytes() for file in folder.rglob("*") if file.is_file()}


def archived(archive):
    with zipfile.ZipFile(archive) as opened:
        return {name: opened.read(name) for name in opened.namelist() if not name.endswith("/")}


def violations(stage, fault, ending):
    """The errors, as messages."""
    return [*_of_ending(fault, ending), *_of_success(stage, ending), *_of_leftovers(stage, fault, ending)]


def _of_ending(fault, ending):
    if ending.status is None:
        yield f"still running after {ending.seconds:.0f} s"
    elif ending.status not in (0, 1) and not _is_assertion(ending):
        yield f"status {ending.status}"
    if ending.archiver_status not in (None, 0, 1):
        yield f"status {ending.archiver_status} of the archiver"
    message = re.sub(r".*Orvane\.framework/run [0-9.]+\n", "", ending.output)
    if ending.status == 1 and not message.strip():
        yield "status 1 without a message"


def _is_assertion(ending):
    return ending.status == -signal.SIGABRT and any(text in ending.output for text in ASSERTIONS)


def _of_success(stage, ending):
    if ending.status != 0:
        return
    archives = sorted(stage.received.glob("*-upload/*.zip"))
    if archives:
        yield from _of_archive(archives[-1], stage)
    elif not (report := stage.companion_report()):
        yield "status 0, but the service has received nothing and the companion app was not started"
    elif ": complete" in report and "Build.plist: " in report:
        yield from _of_cache(stage, report)
    elif not _is_accepted(stage, ending, report):
        yield "status 0, but the companion app reports:\n" + report


def _of_archive(archive, stage):
    try:
        if archived(archive) != contents(stage.dsym, stage.products):
            yield "the archive and the dSYM differ"
    except (zipfile.BadZipFile, zlib.error, EOFError) as error:
        yield f"the archive cannot be read: {error}"


def _of_cache(stage, report):
    folder = pathlib.Path(re.search("Build.plist: (.*)/Build.plist", report).group(1))
    if contents(folder / stage.dsym.name, folder) != contents(stage.dsym, stage.products):
        yield "the dSYM in the cache differs"


def _is_accepted(stage, ending, report):
    """Two failures do not end a run: Build.plist cannot be written, or the companion app's version cannot be read, so
    that the run uses the form for old versions."""
    if "Legacy form" in report:
        return "/desktop/" in ending.injected
    is_written = re.search(r'Build\.plist|\.tmp|/builds/[-0-9A-F]{36}/"', ending.injected)
    return is_written and "cannot be read" in report and not list(stage.caches.rglob("Build.plist"))


def _of_leftovers(stage, fault, ending):
    left = set(path.name for path in stage.products.iterdir()) - stage.products_at_start
    for name in sorted(left):
        if name == "tarnwhistle.plist":
            yield from _of_artifact(stage.products / name)
        elif name.endswith(".zip"):
            if not any(reason in ending.output for reason in ARCHIVE_STAYS):
                yield f"{name} is left"
        elif not fault.call.startswith("unlink"):
            yield f"{name} is left"
    if not fault.call.startswith("unlink"):
        for file in stage.caches.rglob("*.tmp"):
            yield f"{file} is left"


def _of_artifact(path):
    try:
        if plistlib.loads(path.read_bytes()) != {"TarnwhistleAPIKey": KEY}:
            yield "the artifact file is incomplete"
    except (ValueError, plistlib.InvalidFileException):
        yield "the artifact file cannot be read"

"""What the scripts that measure whole programs share: a process and what it used, medians, tables, arguments."""

import argparse
import json
import os
import re
import shutil
import signal
import statistics
import subprocess
import tempfile
import threading

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BUILD = os.path.join(ROOT, "build", "release")
SECTOR = 512
# A measured run takes some seconds; one that takes so long hangs.
TIMEOUT_SECONDS = 600


class Failed(Exception):
    """What was to be measured could not be; the text says why, and what to do."""


class Usage:
    """What a process used from its start to its end: seconds, and its peak of resident memory in bytes."""

    def __init__(self, user, system, wall, peak):
        self.user = user
        self.system = system
        self.wall = wall
        self.peak = peak

    @property
    def cpu(self):
        return self.user + self.system

    def less(self, other):
        """Without what an empty run uses; the peak stays, because it is no sum."""
        return Usage(self.user - other.user, self.system - other.system, self.wall - other.wall, self.peak)

    def as_json(self):
        return {"userSeconds": self.user, "systemSeconds": self.system, "wallSeconds": self.wall,
                "peakBytes": self.peak}


class Pair:
    """A short and a long run of the same test: the cost of what is between them, and the peak of the long one."""

    def __init__(self, short, short_items, long, long_items):
        items = long_items - short_items
        if items <= 0:
            raise Failed(f"the longer run moved {long_items}, the shorter {short_items}")
        self.cpu = (long.cpu - short.cpu) * 1e9 / items
        self.user = (long.user - short.user) * 1e9 / items
        self.peak = long.peak


def median_usage(usages):
    return Usage(*(statistics.median(getattr(usage, name) for usage in usages)
                   for name in ("user", "system", "wall", "peak")))


def run_measured(command, clock):
    """Runs a command to its end.

    The peak of a small program is at least that of this script, because a process inherits it from what started it.

    @param clock returns seconds, such as time.monotonic
    @return its Usage and its output; Failed when it fails or hangs
    """
    with tempfile.TemporaryFile() as output, tempfile.TemporaryFile() as complaints:
        began = clock()
        process = subprocess.Popen(command, stdout=output, stderr=complaints, stdin=subprocess.DEVNULL)
        hangs = threading.Timer(TIMEOUT_SECONDS, process.kill)
        hangs.start()
        try:
            _, status, used = os.wait4(process.pid, 0)
        except BaseException:
            process.kill()
            process.wait()
            raise
        finally:
            hangs.cancel()
        wall = clock() - began
        process.returncode = os.waitstatus_to_exitcode(status)
        output.seek(0)
        complaints.seek(0)
        text = output.read().decode(errors="replace")
        if process.returncode != 0:
            said = (complaints.read().decode(errors="replace") or text).strip()
            raise Failed(f"{' '.join(command)} ended with status {process.returncode}: {said[-500:]}")
        return Usage(used.ru_utime, used.ru_stime, wall, used.ru_maxrss * 1024), text


def file_system_of(folder, mounts):
    """The type of the file system that a folder lies on.

    @param mounts the text of /proc/self/mounts
    """
    path = os.path.realpath(folder)
    best = ("", "")
    for line in mounts.splitlines():
        _, point, kind = line.split(" ")[:3]
        point = point.replace("\\040", " ")
        if (path + "/").startswith(point.rstrip("/") + "/") and len(point) >= len(best[0]):
            best = (point, kind)
    return best[1]


def corvane_counts(result, drives=1):
    """Blocks of 512 bytes that a run wrote and read, from its result.json; Failed when the test was not clean."""
    if result["status"] != "clean" or len(result["drives"]) != drives:
        raise Failed(f"corvane's test ended as '{result['status']}': {result['error']}")
    written = sum(drive["bytes"]["written"] for drive in result["drives"])
    compared = sum(drive["bytes"]["compared"] for drive in result["drives"])
    return written // SECTOR, compared // SECTOR


def knows_engine(program, engine):
    """Whether this Corvane's `file:` has an engine of that name."""
    help_text = subprocess.run([program, "drives"], capture_output=True, text=True, check=False).stdout
    of_files = re.search(r"^file:.*?(?:^$|\Z)", help_text, re.DOTALL | re.MULTILINE)
    return of_files is not None and re.search(rf"\b{engine}\b", of_files.group().partition("engine=")[2]) is not None


class Corvane:
    """Corvane's program, and a folder for what its runs leave."""

    def __init__(self, program, folder, clock):
        self.program = program
        self.output = os.path.join(folder, "output")
        self.clock = clock

    def file_address(self, path):
        """Of a file in memory as a drive. Plain calls hide the least: the system's part of each command is the same, and
        small."""
        engine = "sync" if knows_engine(self.program, "sync") else "uring"
        return f"file:{path},direct=off,engine={engine}"

    def command(self, arguments):
        return [self.program, "run", "--quiet", "--output", self.output, *arguments]

    def run(self, arguments):
        """@return the Usage and result.json of a clean test"""
        shutil.rmtree(self.output, ignore_errors=True)
        usage, _ = run_measured(self.command(arguments), self.clock)
        with open(os.path.join(self.output, "result.json"), encoding="utf-8") as file:
            return usage, json.load(file)


def table(head, rows):
    """Rows of texts as a table in Markdown."""
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows])


class Parser(argparse.ArgumentParser):
    """One line and status 2 for arguments that make no sense."""

    def error(self, message):
        self.exit(2, f"{self.prog}: {message}\n")

    def need_program(self, flag, path, remedy):
        if not os.access(path, os.X_OK) or os.path.isdir(path):
            self.error(f"argument {flag}: there is no program '{path}'; {remedy}")

    def need_json_target(self, path):
        if path is None:
            return
        folder = os.path.dirname(os.path.abspath(path))
        if os.path.isdir(path) or not os.path.isdir(folder) or not os.access(folder, os.W_OK):
            self.error(f"argument --json: '{path}' cannot be written")


def positive(text):
    if not text.isascii() or not text.isdigit() or int(text) == 0:
        raise argparse.ArgumentTypeError(f"'{text}' is not a positive number")
    return int(text)


def write_json(path, document):
    with open(path, "w", encoding="utf-8") as file:
        json.dump(document, file, indent=2)
        file.write("\n")


def stop_on_signals():
    """A signal ends the script through its `finally` parts, so that files and processes go."""
    def stop(number, _):
        # One is enough: a second one must not interrupt the cleaning up.
        for other in (signal.SIGINT, signal.SIGTERM):
            signal.signal(other, signal.SIG_IGN)
        raise SystemExit(128 + number)
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, stop)

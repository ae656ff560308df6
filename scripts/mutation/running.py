"""Builds the agent with a switch for every mutant, learns which tests come by which, and lets them meet one at a time."""

import hashlib
import json
import os
import pathlib
import re
import resource
import shlex
import shutil
import subprocess
import tempfile
import threading
import time
from dataclasses import dataclass

from mutants import mutants_of, switched

AGENT = "plugin/Write_Data_Gen"
# The files that decide what is right, and when it is asked.
FILES = {
    "table": ["AtomicHash", "RecordTable", "RecordPage", "ChunkPool", "BlockRun"],
    "context": ["AtomicContext", "ContextHistory", "Event"],
    "compare": ["Compare", "JudgeInPlace", "BlockHash", "BlockStamp", "ReadBack"],
    "completions": ["WriteCompletion", "ReadCompletion", "PreReadCompletion", "VerifyCompletion", "LostCommands",
                    "HardError", "Miscompare"],
    "scheduling": ["PrepareAtomicWrite", "PrepareNextCommand", "PrepareRead", "PrepareVerify", "PrepareWrite",
                   "ReadSelection", "SlideRead", "Execute", "DeviceReset", "OutsideEvents", "Conditions"],
}
# Folders of tests that link the agent's objects, in the order in which a mutant meets them.
TESTS = ["plugin", "model", "random_host", "oracle"]
MEMORY = 4 << 30


class Failed(Exception):
    """Nothing can be said about any mutant; the text says why."""


@dataclass
class Program:
    name: str
    path: str
    rank: int  # of its folder
    cpu: float = 0.0  # seconds, with no mutant
    wall: float = 0.0
    reached: frozenset = frozenset()


def sources(root):
    """File name → text, for every file of which something can be broken."""
    found = {}
    for units in FILES.values():
        for unit in units:
            for name in (f"{unit}.h", f"{unit}.cpp"):
                path = pathlib.Path(root, AGENT, name)
                if path.exists():
                    found[name] = path.read_text()
    return found


class Agent:
    """All mutants of the agent as it stands, numbered from 1.

    @param memory a file that keeps which of them do not compile as switches, so that this is found out once"""

    def __init__(self, texts, memory=None):
        self.texts, self.mutants, self.sites, self.memory = texts, [], {}, memory
        for name in sorted(texts):
            mutants, self.sites[name] = mutants_of(name, texts[name], len(self.mutants) + 1)
            self.mutants += mutants
        self.left_out = set()  # numbers of mutants whose switch does not compile
        if memory is not None and os.path.exists(memory):
            kept = json.loads(pathlib.Path(memory).read_text(encoding="utf-8"))
            self.left_out = set(kept["leftOut"]) if kept["of"] == self._mark() else set()

    def _mark(self):
        """Changes with the sources and with what is made of them."""
        header = pathlib.Path(__file__).with_name("Mutation.h").read_text(encoding="utf-8")
        switches = [switched(self.texts[name], self.sites[name]) for name in sorted(self.texts)]
        return hashlib.sha256("\0".join([header, *switches]).encode()).hexdigest()

    def remember(self):
        if self.memory is not None:
            pathlib.Path(self.memory).write_text(json.dumps({"of": self._mark(), "leftOut": sorted(self.left_out)}),
                                                 encoding="utf-8")

    def switched(self, name):
        return switched(self.texts[name], self.sites[name], self.left_out)

    def usable(self):
        return [mutant for mutant in self.mutants if mutant.number not in self.left_out]

    def leave_out_line(self, name, line):
        """The switches whose edits stand on a line of the switched source; true when there were any."""
        before = len(self.left_out)
        for site in self.sites[name]:
            text, (start, end, _) = self.texts[name], site.mutants[0]
            if text.count("\n", 0, start) + 1 <= line <= text.count("\n", 0, end) + 1:
                self.left_out |= set(site.numbers)
        return len(self.left_out) > before


def complaints(output):
    """(file name, line) of every place that a compiler complains about, or comes from when it does."""
    return set(re.findall(rf"/{AGENT}/(\w+\.(?:h|cpp)):(\d+):\d+: +(?:error|required from)", output))


class Build:
    """A copy of the tree in which the agent's sources have switches, and what is built of it."""

    def __init__(self, root, folder, jobs, say):
        self.root, self.tree, self.built = root, os.path.join(folder, "tree"), os.path.join(folder, "build")
        self.jobs, self.say = jobs, say

    def _put(self, relative, text):
        """Only what changed, so that only that is compiled again."""
        path = pathlib.Path(self.tree, relative)
        path.parent.mkdir(parents=True, exist_ok=True)
        if not path.exists() or path.read_bytes() != text:
            path.write_bytes(text)

    def copy(self, agent):
        names = subprocess.run(["git", "-C", self.root, "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                               check=True, capture_output=True, text=True).stdout.split("\0")
        of_agent = {f"{AGENT}/{name}" for name in agent.texts}
        for name in names:
            path = pathlib.Path(self.root, name)
            if name and name not in of_agent and path.is_file():
                self._put(name, path.read_bytes())
        self.put_agent(agent)

    def put_agent(self, agent):
        for name in agent.texts:
            self._put(f"{AGENT}/{name}", agent.switched(name).encode())

    def configure(self):
        header = os.path.join(self.tree, "scripts/mutation/Mutation.h")
        command = ["cmake", "-S", self.tree, "-B", self.built, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
                   "-DCORVANE_BENCH=OFF", "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON", "-DCORVANE_OPTIMIZE_LINKS=OFF", f"-DCMAKE_CXX_FLAGS=-w -include {header}",
                   "-DCMAKE_CXX_FLAGS_RELEASE=-O1 -DNDEBUG"]
        if shutil.which("ccache"):
            command.append("-DCMAKE_CXX_COMPILER_LAUNCHER=ccache")
        done = subprocess.run(command, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise Failed(f"cmake failed:\n{done.stderr}")

    def _ninja(self, *targets):
        return subprocess.run(["ninja", "-C", self.built, f"-j{self.jobs}", "-k0", *targets], capture_output=True,
                              text=True, check=False)

    def build(self, agent):
        """Takes out what does not compile as a switch until everything else does."""
        folders = [folder for folder in TESTS if os.path.isdir(os.path.join(self.tree, "tests", folder))]
        for targets in (["corvane_agent_objects"], [f"tests/{folder}/all" for folder in folders]):
            while (done := self._ninja(*targets)).returncode != 0:
                places = complaints(done.stdout)
                taken = [agent.leave_out_line(name, int(line)) for name, line in sorted(places)
                         if name in agent.texts]
                if not any(taken):
                    raise Failed("the switched sources do not compile:\n" +
                                 "\n".join(line for line in done.stdout.splitlines() if "error" in line)[:4000])
                agent.remember()
                self.say(f"{len(agent.left_out)} mutants do not compile as switches; building without them")
                self.put_agent(agent)

    def same_code(self, mutant, text):
        """Whether the compiler makes the very same of a source with the mutant and without it; not known of headers."""
        commands = json.loads(pathlib.Path(self.built, "compile_commands.json").read_text(encoding="utf-8"))
        source = os.path.join(self.tree, AGENT, mutant.file)
        words = next((shlex.split(one["command"]) for one in commands if one["file"] == source), None)
        if words is None:
            return False
        # The headers of the tree itself: those of the copy have switches.
        options = [word.replace(self.tree, self.root) for word in words
                   if word.startswith(("-I", "-m", "-f", "-std"))]
        objects = []
        for version in (text, mutant.applied(text)):
            with tempfile.TemporaryDirectory() as folder:
                path = os.path.join(folder, mutant.file)
                pathlib.Path(path).write_text(version, encoding="utf-8")
                done = subprocess.run(["c++", "-w", "-O2", "-DNDEBUG", *options, "-c", mutant.file, "-o", "object"],
                                      cwd=folder, capture_output=True, check=False)
                if done.returncode != 0:
                    return False
                objects.append(pathlib.Path(folder, "object").read_bytes())
        return objects[0] == objects[1]

    def programs(self):
        """Every test program of TESTS, told by ctest which those are."""
        listed = subprocess.run(["ninja", "-C", self.built, "-t", "targets", "all"], capture_output=True, text=True,
                                check=True).stdout
        found = []
        for rank, folder in enumerate(TESTS):
            for name in sorted(set(re.findall(rf"^tests/{folder}/(\w+): phony", listed, re.MULTILINE))):
                path = os.path.join(self.built, "bin", name)
                if name.endswith(("Test", "_tests")) and os.access(path, os.X_OK):
                    found.append(Program(name, path, rank))
        for path in sorted(pathlib.Path(self.built, "bin").iterdir()) if not found else []:
            if path.name.endswith("Test"):
                found.append(Program(path.name, str(path), 0))
        if not found:
            raise Failed("no test program was built")
        return found


@dataclass
class Ending:
    status: int
    cpu: float
    wall: float
    output: str

    @property
    def failed(self):
        return self.status != 0

    @property
    def how(self):
        if self.status in (-24, -9):
            return "too long"
        if self.status < 0:
            return f"signal {-self.status}"
        named = re.search(r"\[  FAILED  \] (\S+)", self.output)
        return named.group(1).rstrip(",") if named else f"exit status {self.status}"


def call(program, mutant, cpu_limit, wall_limit, reached=None):
    """Runs a test program under a mutant; its processor time is limited, so that other work on the machine ends nothing."""
    environment = dict(os.environ, CORVANE_MUTANT=str(mutant))
    if reached is not None:
        environment["CORVANE_MUTANTS_REACHED"] = reached

    def limit():
        os.setsid()
        resource.setrlimit(resource.RLIMIT_CPU, (cpu_limit, cpu_limit + 1))
        resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))

    start = time.monotonic()
    process = subprocess.Popen([program.path, "--gtest_fail_fast", "--gtest_brief=1"], env=environment,
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                               preexec_fn=limit, cwd=os.path.dirname(program.path), text=True, errors="replace")
    output = []
    reader = threading.Thread(target=lambda: output.append(process.stdout.read(1 << 20) + process.stdout.read()[-1:]))
    reader.start()
    deadline = start + wall_limit
    while True:
        pid, status, used = os.wait4(process.pid, os.WNOHANG)
        if pid != 0:
            break
        if time.monotonic() > deadline:
            os.killpg(process.pid, 9)
        time.sleep(0.005)
    process.returncode = os.waitstatus_to_exitcode(status)
    reader.join()
    process.stdout.close()
    return Ending(process.returncode, used.ru_utime + used.ru_stime, time.monotonic() - start, "".join(output))


def measure(programs, folder):
    """Each program without a mutant: it must pass, and shows how long it takes and which switches it comes by."""
    for program in programs:
        reached = os.path.join(folder, f"reached.{program.name}")
        if os.path.exists(reached):
            os.remove(reached)
        ending = call(program, 0, 600, 3600, reached)
        if ending.failed:
            raise Failed(f"{program.name} fails without a mutant ({ending.how}):\n{ending.output[-2000:]}")
        program.cpu, program.wall = ending.cpu, ending.wall
        if os.path.exists(reached):
            program.reached = frozenset(int(line) for line in pathlib.Path(reached).read_text().split())


def order(programs, file):
    """The file's own tests, then the others folder by folder, the fastest first."""
    unit = file.rsplit(".", 1)[0]
    return sorted(programs, key=lambda program: (not program.name.startswith(unit), program.rank, program.cpu))


def judge(mutant, programs):
    """What became of a mutant: (killed, by what, programs run, processor seconds)."""
    spent, met = 0.0, 0
    for program in order(programs, mutant.file):
        if mutant.number not in program.reached:
            continue
        ending = call(program, mutant.number, int(program.cpu * 5) + 3, program.wall * 20 + 60)
        spent, met = spent + ending.cpu, met + 1
        if ending.failed:
            return True, f"{program.name}: {ending.how}", met, spent
    return False, "reached by no test" if met == 0 else f"passed {met} programs", met, spent


def fingerprint(root):
    """Changes with everything that results depend on."""
    digest = hashlib.sha256()
    for folder in (AGENT, "platform", "host/framework", "host/ostra", "scripts/mutation",
                   *(f"tests/{name}" for name in TESTS)):
        for path in sorted(pathlib.Path(root, folder).rglob("*")):
            if path.suffix in (".cpp", ".h", ".inc", ".py", ".cmake"):
                digest.update(str(path.relative_to(root)).encode() + b"\0" + path.read_bytes())
    return digest.hexdigest()


class Results:
    """What became of mutants, one JSON object a line, kept as long as the sources and the tests stay the same."""

    def __init__(self, path, mark):
        self.path, self.of = path, {}
        lines = pathlib.Path(path).read_text(encoding="utf-8").splitlines() if os.path.exists(path) else []
        if lines and json.loads(lines[0]) == {"fingerprint": mark}:
            for line in lines[1:]:
                try:
                    one = json.loads(line)
                except ValueError:
                    continue  # the last line of a run that was stopped
                self.of[one["key"]] = one
        with open(path, "w", encoding="utf-8") as file:
            for one in [{"fingerprint": mark}, *self.of.values()]:
                file.write(json.dumps(one) + "\n")

    def add(self, one):
        self.of[one["key"]] = one
        with open(self.path, "a", encoding="utf-8") as file:
            file.write(json.dumps(one) + "\n")

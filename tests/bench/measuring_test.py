"""The parts of bench/vs_fio, bench/growth and bench/instructions that need no other program: sums, texts, refusals."""

import importlib.machinery
import importlib.util
import os
import subprocess
import sys
import tempfile
import time
import unittest

BENCH = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../bench")

sys.dont_write_bytecode = True
sys.path.insert(0, BENCH)
import measuring  # noqa: E402


def script(name):
    loader = importlib.machinery.SourceFileLoader(name, os.path.join(BENCH, name, "run"))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(name, loader))
    loader.exec_module(module)
    return module


vs_fio = script("vs_fio")
growth = script("growth")
outstanding = growth.outstanding
drives = growth.drives
instructions = script("instructions")


def usage(cpu, wall=1.0, peak=0):
    return measuring.Usage(cpu, 0.0, wall, peak)


def call(name, *arguments, path=""):
    """A script as a user calls it who has nothing but Python."""
    return subprocess.run([sys.executable, os.path.join(BENCH, name, "run"), *arguments], env={"PATH": path},
                          capture_output=True, text=True, check=False)


class Process(unittest.TestCase):
    def test_its_own_time_counts_and_that_of_earlier_ones_does_not(self):
        busy = [sys.executable, "-c", "import time\nwhile time.process_time() < 0.3: pass"]
        first, _ = measuring.run_measured(busy, time.monotonic)
        second, output = measuring.run_measured(["/bin/echo", "said"], time.monotonic)
        self.assertGreaterEqual(first.cpu, 0.29)
        self.assertGreaterEqual(first.wall, first.user)
        self.assertLess(second.cpu, 0.2)
        self.assertEqual(output, "said\n")

    def test_its_peak_is_in_bytes(self):
        used, _ = measuring.run_measured([sys.executable, "-c", "x = b'a' * (64 << 20)"], time.monotonic)
        self.assertGreater(used.peak, 64 << 20)
        self.assertLess(used.peak, 128 << 20)

    def test_one_that_fails_is_no_measurement(self):
        with self.assertRaisesRegex(measuring.Failed, "status 3: why"):
            measuring.run_measured(["/bin/sh", "-c", "echo why >&2; exit 3"], time.monotonic)

    def test_an_empty_run_is_taken_off_but_for_the_peak(self):
        net = measuring.Usage(3.0, 2.0, 6.0, 100).less(measuring.Usage(0.5, 0.25, 1.0, 90))
        self.assertEqual((net.user, net.system, net.cpu, net.wall, net.peak), (2.5, 1.75, 4.25, 5.0, 100))

    def test_the_median_is_taken_of_each_figure(self):
        middle = measuring.median_usage([measuring.Usage(1, 9, 5, 7), measuring.Usage(2, 8, 6, 9),
                                         measuring.Usage(9, 1, 4, 8)])
        self.assertEqual((middle.user, middle.system, middle.wall, middle.peak), (2, 8, 5, 8))


class Surroundings(unittest.TestCase):
    MOUNTS = ("/dev/vda / ext4 rw 0 0\ntmpfs /dev/shm tmpfs rw 0 0\n/dev/vdb /mnt/a\\040disk xfs rw 0 0\n"
              "tmpfs /dev/shmother ramfs rw 0 0\n")

    def test_a_folder_lies_on_the_deepest_mount_above_it(self):
        for folder, kind in (("/", "ext4"), ("/home", "ext4"), ("/dev/shm", "tmpfs"), ("/dev/shm/x", "tmpfs"),
                             ("/dev/shmother", "ramfs"), ("/dev/shmo", "ext4"), ("/mnt/a disk/x", "xfs")):
            self.assertEqual(measuring.file_system_of(folder, self.MOUNTS), kind, folder)

    def test_the_cost_is_that_of_what_only_the_longer_run_did(self):
        pair = measuring.Pair(usage(1.0), 1000, usage(3.0, peak=77), 2001000)
        self.assertAlmostEqual(pair.cpu, 1000)
        self.assertEqual(pair.peak, 77)
        with self.assertRaises(measuring.Failed):
            measuring.Pair(usage(1.0), 1000, usage(3.0), 1000)

    def test_only_a_clean_test_counts(self):
        drive = {"bytes": {"written": 5120, "compared": 4096}}
        result = {"status": "clean", "error": "", "drives": [drive]}
        self.assertEqual(measuring.corvane_counts(result), (10, 8))
        self.assertEqual(measuring.corvane_counts({**result, "drives": [drive, drive]}, 2), (20, 16))
        with self.assertRaises(measuring.Failed):
            measuring.corvane_counts({**result, "status": "dataFailure"})
        with self.assertRaises(measuring.Failed):
            measuring.corvane_counts(result, 2)

    def test_a_table_is_markdown(self):
        self.assertEqual(measuring.table(("a", "b"), [("1", "2")]), "| a | b |\n|---|---|\n| 1 | 2 |")


class Engines(unittest.TestCase):
    HELP = ("block:PATH\n  engine=auto      io_uring; nodes; threads\n\nfile:PATH[,key=value]...\n  a file to sync\n"
            "  engine=auto      io_uring; uring: or fail;\n                   {}threads\n\niscsi://HOST\n"
            "  engine=late\n")

    def knows(self, text, engine):
        with tempfile.TemporaryDirectory() as folder:
            program = os.path.join(folder, "program")
            with open(program, "w", encoding="utf-8") as file:
                file.write(f"#!/bin/sh\ncat <<'END'\n{text}END\n")
            os.chmod(program, 0o700)
            return measuring.knows_engine(program, engine)

    def test_one_counts_when_the_help_of_files_names_it_as_one(self):
        for engine, known in (("uring", True), ("threads", True), ("sync", False), ("nodes", False), ("late", False)):
            self.assertEqual(self.knows(self.HELP.format(""), engine), known, engine)
        self.assertTrue(self.knows(self.HELP.format("sync: plain calls; "), "sync"))


class Comparison(unittest.TestCase):
    def sample(self, unchecked, verify, corvane, written=1000, compared=1000):
        return vs_fio.Sample(usage(unchecked), usage(verify, wall=2.0), usage(corvane, wall=4.0), 1000, written,
                             compared)

    def test_both_are_held_against_the_same_unchecked_io(self):
        row = vs_fio.summary([self.sample(1e-3, 1.5e-3, 1.25e-3).costs()])
        self.assertAlmostEqual(row["unchecked"], 1000)
        self.assertAlmostEqual(row["addedByFio"], 500)
        self.assertAlmostEqual(row["addedByCorvane"], 250)
        self.assertAlmostEqual(row["fioWall"], 2e6)
        self.assertAlmostEqual(row["corvaneWall"], 4e6)

    def test_bytes_in_a_second_follow_from_the_time_of_a_block(self):
        self.assertEqual(vs_fio.rate(100.0), "5120 MB/s")
        self.assertEqual(vs_fio.rate(-1.0), "")

    def test_a_block_counts_when_it_was_written_and_read_back(self):
        cost = self.sample(1e-3, 1.5e-3, 1.8e-3, written=1100, compared=900).costs()
        self.assertAlmostEqual(cost["corvane"], 1800)
        cost = self.sample(1e-3, 1.5e-3, 1.8e-3, written=2200, compared=1800).costs()
        self.assertAlmostEqual(cost["corvane"], 900)

    def test_the_ratio_is_of_medians_and_again_of_the_least(self):
        row = vs_fio.summary([self.sample(u, v, c).costs() for u, v, c in
                              ((1e-3, 1.2e-3, 1.3e-3), (1e-3, 1.4e-3, 1.1e-3), (0.9e-3, 9e-3, 1.2e-3))])
        self.assertAlmostEqual(row["ratio"], 200 / 400)
        self.assertAlmostEqual(row["least"]["ratio"], 200 / 300)

    def test_there_is_no_ratio_to_what_cannot_be_seen(self):
        row = vs_fio.summary([self.sample(2e-3, 1e-3, 3e-3).costs()])
        self.assertIsNone(row["ratio"])
        self.assertEqual(vs_fio.shown(row["ratio"]), "")

    def test_both_move_the_same_bytes_at_the_same_depth(self):
        for case in vs_fio.CASES:
            for engine in vs_fio.ENGINES:
                work = vs_fio.Work(1 << 20, 3)
                fio = vs_fio.fio_verify("fio", case, engine, "random", "/f", work, False)
                ours = vs_fio.corvane_arguments(case, engine, "random", "/f", case.writes(work), False)
                self.assertIn("--loops=3", fio)
                self.assertIn(f"--bs={case.block * case.blocks}", fio)
                self.assertEqual(ours[ours.index("--queue-depth") + 1], str(engine.depth))
                self.assertIn(f"--iodepth={engine.depth}", fio)
                commands = int(ours[ours.index("--commands") + 1])
                self.assertEqual(commands * case.block * case.blocks, 3 * (2 << 20))
                self.assertEqual(work.blocks * vs_fio.SECTOR, 3 << 20)

    def test_unchecked_io_reads_what_it_wrote_after_all_is_written(self):
        command = vs_fio.fio_unchecked("fio", vs_fio.CASES[0], vs_fio.ENGINES[0], "random", "/f",
                                       vs_fio.Work(4096, 2), True)
        self.assertLess(command.index("--rw=randwrite"), command.index("--stonewall"))
        self.assertLess(command.index("--stonewall"), command.index("--rw=randread"))
        self.assertEqual(command.count("--direct=1"), 2)
        self.assertEqual(command.count("--loops=2"), 2)
        self.assertFalse([word for word in command if "verify" in word])

    def test_every_file_holds_whole_transfers_also_a_sixteenth_of_it(self):
        for case in vs_fio.CASES:
            for medium in vs_fio.MEDIA:
                for shift in (16, 20):
                    self.assertEqual((case.mebibytes[medium] << shift) % (case.transfer * 32), 0)


class Outstanding(unittest.TestCase):
    def test_queue_sizes_are_writes_for_blocks(self):
        self.assertEqual(outstanding.queue_sizes(4096, 8), (448, 512))
        self.assertEqual(outstanding.queue_sizes(1_000_000, 1), (875_000, 1_000_000))
        self.assertEqual(outstanding.queue_sizes(8, 8), (1, 2))

    def test_growth_is_held_against_the_base_of_the_same_round(self):
        def pair(nanoseconds, peak):
            return measuring.Pair(usage(0.0), 0, usage(nanoseconds * 1e-9, peak=peak), 1)

        # The machine becomes slower from round to round, and what grows does so by the same part.
        rounds = [{64: pair(90 * slow, 1000), 4096: pair(100 * slow, 404200), 65536: pair(150 * slow, 6548200),
                   1_000_000: pair(120 * slow, 99994600)} for slow in (1, 10, 20)]
        rows = outstanding.rows_of(8, rounds)
        self.assertEqual([row["outstanding"] for row in rows], list(outstanding.OUTSTANDING))
        self.assertEqual([round(row["relative"], 6) for row in rows], [0.9, 1.0, 1.5, 1.2])
        self.assertEqual([round(row["relativeUser"], 6) for row in rows], [0.9, 1.0, 1.5, 1.2])
        self.assertIsNone(rows[0]["bytesPerBlock"])
        self.assertAlmostEqual(rows[2]["bytesPerBlock"], 100)
        self.assertIn("| 8 | 65,536 | 1500 ns | 1.50 | 1500 ns | 1.50 | 7 MB | 100 |", outstanding.rows_table(rows))

class Drives(unittest.TestCase):
    def test_their_cost_begins_when_their_media_are_written(self):
        length = drives.BLOCKS * 512
        places = (drives.MEBIBYTES << 20) // length
        writes = drives.COMMANDS // 2
        self.assertLess((1 - 1 / places) ** writes, 0.01)
        words = drives.arguments(["sim:64m"], drives.COMMANDS)
        self.assertEqual(words[words.index("--xfer") + 1], f"{drives.BLOCKS}..{drives.BLOCKS}")

    def test_each_has_a_medium_of_its_own(self):
        with tempfile.TemporaryDirectory() as folder:
            corvane = measuring.Corvane("/bin/true", folder, time.monotonic)
            files = drives.make_media("file", corvane, folder, 3)
            self.assertEqual(len(set(files)), 3)
            for address in files:
                path = address.removeprefix("file:").partition(",")[0]
                self.assertEqual(os.path.getsize(path), drives.MEBIBYTES << 20)
            self.assertEqual(drives.make_media("sim", corvane, folder, 2), ["sim:64m", "sim:64m"])

    def test_the_longer_run_is_four_times_the_shorter_and_the_first_does_not_count(self):
        class Counted:
            def __init__(self):
                self.commands = []

            def run(self, words):
                dear = 1.0 if len(self.commands) % 3 == 0 else 0.0
                self.commands.append(int(words[words.index("--commands") + 1]))
                drive = {"bytes": {"written": 512, "compared": 512}}
                return usage(self.commands[-1] * 3e-6 + dear), {"status": "clean", "drives": [drive] * words.count("--drive")}

        corvane = Counted()
        pair = drives.measure_commands(corvane, ["a", "b", "c"], 1000)
        self.assertEqual(corvane.commands, [1000, 1000, 4000])
        self.assertAlmostEqual(pair.cpu, 1000)

    def test_many_are_held_against_one_of_the_same_minute(self):
        minute = 0

        def cost(count):
            nonlocal minute
            minute += count == 1
            # The machine becomes ten times as slow; 16 drives always cost a quarter more than one.
            nanoseconds = (1000.0 if minute <= 4 else 10000.0) * (1.25 if count == 16 else 1.0)
            return measuring.Pair(usage(0.0), 0, usage(nanoseconds * 1e-9, peak=count), 1)

        def copies(count):
            return 50.0 * count

        rows = drives.rows_of([drives.measure_round(drives.DRIVES, cost, copies) for _ in range(2)])
        self.assertEqual([row["drives"] for row in rows], list(drives.DRIVES))
        self.assertEqual([round(row["relative"], 6) for row in rows], [1.0, 1.0, 1.0, 1.0, 0.8])
        self.assertEqual([row["relativeCopies"] for row in rows], [1.0, 0.5, 0.25, 0.125, 0.0625])
        self.assertAlmostEqual(rows[-1]["cpu"], 1.25 * 5500)
        self.assertIn("| file | 16 | 145,455 | 0.80 | 0.06 | 0 MB |", drives.rows_table({"file": rows}))


class Instructions(unittest.TestCase):
    def test_a_dump_names_its_scenario(self):
        text = "version: 1\ndesc: Trigger: Client Request: compare-8\nevents: Ir\nsummary: 0\ntotals: 512000\n"
        self.assertEqual(instructions.dump_of(text), ("compare-8", 512000))
        self.assertIsNone(instructions.dump_of("desc: Trigger: Program termination\ntotals: 0\n"))

    def test_the_table_reads_back(self):
        counts = {"a-1": (589.25, "block"), "b-8": (3648.0, "command")}
        text = instructions.table_text(counts)
        self.assertEqual(instructions.read_table(text), {"a-1": 589.2, "b-8": 3648.0})

    def test_only_what_grew_beyond_the_limit_fails(self):
        rows = instructions.compared({"same": (100.0, "block"), "less": (50.0, "block"), "little": (101.9, "block"),
                                      "more": (102.1, "block"), "new": (1.0, "block")},
                                     {"same": 100.0, "less": 100.0, "little": 100.0, "more": 100.0})
        self.assertEqual(instructions.grown(rows, 2.0), ["more", "new"])
        self.assertEqual(instructions.grown(rows, 1.0), ["little", "more", "new"])
        self.assertIn("| less, a block | 100.0 | 50.0 | -50.0 % |", instructions.report(rows))

    def test_what_the_program_prints_is_how_much_it_did(self):
        self.assertEqual(instructions.items_of("a-1 20 block\nb 3 command\n"),
                         {"a-1": (20, "block"), "b": (3, "command")})


class CommandLine(unittest.TestCase):
    def refused(self, name, word, *arguments):
        result = call(name, *arguments)
        self.assertEqual((result.stdout, result.returncode), ("", 2), arguments)
        self.assertEqual(result.stderr.count("\n"), 1, result.stderr)
        self.assertIn(word, result.stderr)

    def test_wrong_arguments_are_named_in_one_line(self):
        for name in ("vs_fio", "growth"):
            for arguments in (["--rounds", "0"], ["--rounds", "x"], ["--unknown"], ["--json", "/no-such-folder/a"],
                              ["--corvane", "/no-such-program"]):
                self.refused(name, arguments[0], *arguments)
        self.refused("vs_fio", "--folder", "--medium", "disk", "--folder", "/no-such-folder")
        self.refused("vs_fio", "memory; give another folder", "--medium", "disk", "--folder", "/dev/shm")
        self.refused("vs_fio", "--processor", "--processor", "99999")
        self.refused("growth", "--folder", "--folder", "/no-such-folder")
        self.refused("growth", "give 2 or more", "--drives", "1")
        self.refused("growth", "--target vs_fio_floor", "--corvane", "/bin/true", "--floor", "/no-such-program")
        self.refused("instructions", "--limit", "--limit", "x")
        self.refused("instructions", "--update makes it", "--table", "/no-such-table")

    def test_what_is_missing_is_named_with_the_remedy(self):
        self.refused("vs_fio", "apt-get install fio", "--corvane", "/bin/true", "--floor", "/bin/true")
        self.refused("instructions", "apt-get install valgrind", "--program", "/bin/true")
        self.refused("vs_fio", "--target vs_fio_floor", "--corvane", "/bin/true", "--floor", "/no-such-program")

    def test_a_folder_of_a_disk_is_no_memory(self):
        with tempfile.TemporaryDirectory(dir=BENCH) as folder, open("/proc/self/mounts", encoding="utf-8") as mounts:
            if measuring.file_system_of(folder, mounts.read()) in ("tmpfs", "ramfs"):
                self.skipTest("the sources lie in memory")
            self.refused("growth", "is not in memory", "--folder", folder)


if __name__ == "__main__":
    unittest.main()

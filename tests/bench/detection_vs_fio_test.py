"""The parts of bench/detection_vs_fio/run that need no fio: its command line, its faults, its judgement."""

import importlib.machinery
import importlib.util
import os
import random
import subprocess
import sys
import unittest

SCRIPT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../bench/detection_vs_fio/run")

sys.dont_write_bytecode = True
LOADER = importlib.machinery.SourceFileLoader("detection_vs_fio", SCRIPT)
run = importlib.util.module_from_spec(importlib.util.spec_from_loader("detection_vs_fio", LOADER))
LOADER.exec_module(run)

BLOCK = 4096
BLOCKS = 16
WHOLE = run.Layout("4k", "", BLOCK, BLOCK)
SPLIT = run.Layout("4k-512", "", BLOCK, 512)


def call(*arguments):
    """The script as a user calls it who has no fio."""
    return subprocess.run([sys.executable, SCRIPT, *arguments], env={"PATH": ""}, capture_output=True, text=True,
                          check=False)


class CommandLine(unittest.TestCase):
    def test_without_fio_it_says_so_and_is_no_failure(self):
        result = call("--trials", "5")
        self.assertEqual(result.stdout, "fio is not installed: skipped (apt-get install fio)\n")
        self.assertEqual((result.stderr, result.returncode), ("", 0))

    def test_wrong_arguments_are_named_in_one_line(self):
        for arguments in (["--trials", "0"], ["--trials", "-3"], ["--trials", "x"], ["--trials"], ["--seed", "a"],
                          ["--parallel", "0"], ["--unknown"], ["word"], ["--json", "/no-such-folder/a.json"],
                          ["--json", "/"], ["--dir", "/no-such-folder"]):
            with self.subTest(arguments):
                result = call(*arguments)
                self.assertEqual((result.stdout, result.returncode), ("", 2))
                self.assertEqual(result.stderr.count("\n"), 1)
                self.assertIn(arguments[0], result.stderr)


class Faults(unittest.TestCase):
    def setUp(self):
        self.rng = random.Random(7)
        self.old = self.rng.randbytes(BLOCK * BLOCKS)
        self.new = self.rng.randbytes(BLOCK * BLOCKS)

    def damaged(self, fault, layout=WHOLE, old=None):
        """The damage of one trial, and the damaged file."""
        edits = run.edits_of(fault, self.rng, old or self.old, self.new, layout.block)
        image = bytearray(self.new)
        for offset, data in edits:
            image[offset:offset + len(data)] = data
        return run.Damage(self.new, edits, layout), bytes(image)

    def block(self, image, offset):
        return image[offset:offset + BLOCK]

    def test_each_damages_as_many_blocks_as_it_should_and_no_other(self):
        expected = {"clean": 0, "misdirected-write": 2, "swapped-block": 2}
        for fault in run.JOBS:
            for _ in range(200):
                damage, image = self.damaged(fault)
                differing = {start for start in range(0, len(image), BLOCK)
                             if self.block(image, start) != self.block(self.new, start)}
                self.assertEqual(damage.blocks, differing, fault)
                self.assertEqual(len(differing), expected.get(fault, 1), fault)

    def test_a_flip_is_one_bit(self):
        _, image = self.damaged("bit-flip-rest")
        bits = sum((ours ^ theirs).bit_count() for ours, theirs in zip(image, self.new))
        self.assertEqual(bits, 1)

    def test_old_content_is_at_its_own_place(self):
        for fault in ("lost-write", "stale-read"):
            damage, image = self.damaged(fault)
            (place,) = damage.blocks
            self.assertEqual(self.block(image, place), self.block(self.old, place))

    def test_a_misdirected_write_leaves_its_own_place_old(self):
        damage, image = self.damaged("misdirected-write")
        (lost,) = [place for place in damage.blocks if self.block(image, place) == self.block(self.old, place)]
        (hit,) = damage.blocks - {lost}
        self.assertEqual(self.block(image, hit), self.block(self.new, lost))

    def test_swapped_blocks_are_neighbours(self):
        for _ in range(100):
            damage, image = self.damaged("swapped-block")
            first, second = sorted(damage.blocks)
            self.assertEqual(second - first, BLOCK)
            self.assertEqual(self.block(image, first), self.block(self.new, second))

    def test_a_torn_write_begins_new_and_ends_old(self):
        for _ in range(100):
            damage, image = self.damaged("torn-write")
            (place,) = damage.blocks
            sectors = [image[at:at + 512] == self.new[at:at + 512] for at in range(place, place + BLOCK, 512)]
            self.assertEqual(sectors, sorted(sectors, reverse=True))
            self.assertTrue(sectors[0] and not sectors[-1])

    def test_a_write_of_one_sector_cannot_tear(self):
        self.assertIsNone(run.edits_of("torn-write", self.rng, self.old, self.new, 512))

    def test_the_same_bytes_again_are_no_damage(self):
        damage, _ = self.damaged("lost-write", old=self.new)
        self.assertEqual(damage.blocks, set())

    def test_only_the_header_differs_is_told_from_other_data(self):
        for layout in (WHOLE, SPLIT):
            restamped = bytearray(self.new)
            for start in range(0, len(restamped), layout.interval):
                restamped[start + 28] ^= 0xFF
            damage, _ = self.damaged("lost-write", layout, bytes(restamped))
            self.assertEqual((len(damage.blocks), damage.stamp_only), (1, True))
            damage, _ = self.damaged("lost-write", layout)
            self.assertFalse(damage.stamp_only)


class Judgement(unittest.TestCase):
    def setUp(self):
        new = random.Random(3).randbytes(BLOCK * BLOCKS)
        self.damage = run.Damage(new, [(BLOCK, bytes(BLOCK))], WHOLE)
        self.none = run.Damage(new, [], WHOLE)

    def test_found_is_a_failed_job_that_names_a_damaged_block(self):
        self.assertEqual(run.judge(self.damage, run.Verdict(True, {BLOCK})), "found")
        self.assertEqual(run.judge(self.damage, run.Verdict(True, {0})), "elsewhere")
        self.assertEqual(run.judge(self.damage, run.Verdict(True, set())), "elsewhere")
        self.assertEqual(run.judge(self.damage, run.Verdict(False, {BLOCK})), "namedOnly")
        self.assertEqual(run.judge(self.damage, run.Verdict(False, set())), "missed")

    def test_an_alarm_without_a_fault_is_false(self):
        self.assertEqual(run.judge(self.none, run.Verdict(True, {0})), "elsewhere")
        self.assertEqual(run.judge(self.none, run.Verdict(False, {0})), "elsewhere")
        self.assertEqual(run.judge(self.none, run.Verdict(False, set())), "unchanged")


if __name__ == "__main__":
    unittest.main()

"""What a block costs, in time and memory, while so many others await their read-back."""

import os
import statistics
import sys

from measuring import Pair, corvane_counts, table

OUTSTANDING = (64, 4096, 65536, 1000000)
LENGTHS = (1, 8)
# What per-block costs are held against.
BASE_OUTSTANDING = 4096
QUEUE_DEPTH = 32
FILE_MEBIBYTES = 2048
# Blocks, written or read, between the two runs of which the difference is the cost.
STEADY_BLOCKS = 2_000_000


def queue_sizes(outstanding, blocks):
    """ "Min Queue Size" and "Max Queue Size", in writes, for so many blocks that await their read-back."""
    most = max(outstanding // blocks, 2)
    return max(most * 7 // 8, 1), most


def arguments(address, outstanding, blocks, commands):
    least, most = queue_sizes(outstanding, blocks)
    return ["--drive", address, "--commands", str(commands), "--seed", "1", "--commands-of",
            "write,read", "--xfer", f"{blocks}..{blocks}", "--queue-depth", str(min(QUEUE_DEPTH, most)),
            "--set", f"Min Queue Size={least}", "--set", f"Max Queue Size={most}", "--set", "Trace Depth=1000"]


def blocks_moved(result):
    written, compared = corvane_counts(result)
    return written + compared


def measure_pair(corvane, address, outstanding, blocks, steady):
    """The short run ends when reads and writes have begun to alternate."""
    _, most = queue_sizes(outstanding, blocks)
    short = most + most // 8 + 1000
    long = short + steady // blocks
    first, first_result = corvane.run(arguments(address, outstanding, blocks, short))
    second, second_result = corvane.run(arguments(address, outstanding, blocks, long))
    return Pair(first, blocks_moved(first_result), second, blocks_moved(second_result))


def rows_of(blocks, rounds):
    """What each number costs, and relative to the base of the same round; what neighbours do to the memory changes within
    minutes. And the memory of one more block.

    @param rounds of Pairs by number of outstanding blocks
    """
    def median(figure):
        return statistics.median(figure(pairs) for pairs in rounds)

    rows = []
    for outstanding in OUTSTANDING:
        rows.append({"blocks": blocks, "outstanding": outstanding,
                     "cpu": median(lambda pairs: pairs[outstanding].cpu),
                     "relative": median(lambda pairs: pairs[outstanding].cpu / pairs[BASE_OUTSTANDING].cpu),
                     "user": median(lambda pairs: pairs[outstanding].user),
                     "relativeUser": median(lambda pairs: pairs[outstanding].user / pairs[BASE_OUTSTANDING].user),
                     "peak": median(lambda pairs: pairs[outstanding].peak)})
    for row in rows:
        more = row["outstanding"] - OUTSTANDING[0]
        row["bytesPerBlock"] = (row["peak"] - rows[0]["peak"]) / more if more else None
    return rows


def measure(corvane, folder, rounds, share):
    """@param share the part of the work that is done is one of so many"""
    path = os.path.join(folder, "file")
    with open(path, "wb") as file:
        # The same pages for every row, so that the first row does not pay for them.
        for _ in range(FILE_MEBIBYTES // share):
            file.write(bytes(1 << 20))
    address = corvane.file_address(path)
    rows = []
    for blocks in LENGTHS:
        by_round = []
        for number in range(rounds):
            print(f"outstanding blocks by {blocks}, round {number + 1} …", file=sys.stderr, flush=True)
            by_round.append({outstanding: measure_pair(corvane, address, outstanding, blocks, STEADY_BLOCKS // share)
                             for outstanding in OUTSTANDING})
        rows += rows_of(blocks, by_round)
    os.remove(path)
    return rows


def rows_table(rows):
    return table(("Blocks a command", "Blocks outstanding", "CPU a block", "of that at 4,096", "user", "of that at 4,096",
                  "peak memory", "bytes a block outstanding"),
                 [(str(row["blocks"]), f"{row['outstanding']:,}", f"{row['cpu']:.0f} ns", f"{row['relative']:.2f}",
                   f"{row['user']:.0f} ns", f"{row['relativeUser']:.2f}", f"{row['peak'] / 1e6:.0f} MB",
                   f"{row['bytesPerBlock']:.0f}" if row["outstanding"] > BASE_OUTSTANDING else "")
                  for row in rows])

"""What a command costs when several drives are tested at once."""

import os
import statistics
import subprocess
import sys

from measuring import Failed, Pair, corvane_counts, table

DRIVES = (1, 2, 4, 8, 16)
# Files in memory are drives as users have them, with the system's part of each command; a simulated drive leaves the
# checking alone, and the memory of the drive.
MEDIA = ("file", "sim")
MEBIBYTES = 64
# Commands, half of them writes, of the shorter of the two runs. They write nearly every page of the media: what the
# system takes to hand a page out for the first time is no cost of a command.
COMMANDS = 200_000
BLOCKS = 8
QUEUE_DEPTH = 32
COPY_ROUNDS = 1000


def make_media(medium, corvane, folder, drives):
    """@return addresses of so many drives"""
    if medium == "sim":
        return [f"sim:{MEBIBYTES}m"] * drives
    paths = [os.path.join(folder, f"drive{number}") for number in range(drives)]
    for path in paths:
        with open(path, "wb") as file:
            file.write(bytes(MEBIBYTES << 20))
    return [corvane.file_address(path) for path in paths]


def arguments(drives, commands):
    """@param drives addresses"""
    return [word for address in drives for word in ("--drive", address)] + [
        "--commands", str(commands), "--seed", "1", "--commands-of", "write,read", "--xfer", f"{BLOCKS}..{BLOCKS}",
        "--queue-depth", str(QUEUE_DEPTH)]


def measure_commands(corvane, drives, short):
    """@return a Pair, of which an item is a command"""
    long = 4 * short
    # What a virtual machine has not used for a while it takes from its host again, once for both runs that count.
    corvane.run(arguments(drives, short))
    first, _ = corvane.run(arguments(drives, short))
    second, result = corvane.run(arguments(drives, long))
    corvane_counts(result, len(drives))
    return Pair(first, len(drives) * short, second, len(drives) * long)


def measure_copies(floor, processes):
    """Nanoseconds for 512 bytes that are copied and compared in runs of 8, by so many processes at once that do nothing
    else, each with a pool of its own as large as a drive's."""
    began = [subprocess.Popen([floor, str(BLOCKS), str(COPY_ROUNDS)], stdout=subprocess.PIPE, text=True)
             for _ in range(processes)]
    printed = [process.communicate()[0] for process in began]
    if any(process.returncode != 0 for process in began):
        raise Failed(f"'{floor}' failed")
    return statistics.mean(float(text) for text in printed)


def measure_round(numbers, cost, copies):
    """Each number of drives right after one drive, because what neighbours do to the memory changes within minutes.

    @param numbers of drives, one at first
    @param cost returns the Pair of so many drives
    @param copies returns the cost of copies by so many processes
    @return by number of drives: its Pair, and what it and the copies cost of what one costs
    """
    round_of = {}
    for drives in numbers[1:]:
        alone, many = cost(1), cost(drives)
        copies_alone, copies_many = copies(1), copies(drives)
        round_of.setdefault(1, (alone, 1.0, 1.0))
        round_of[drives] = (many, alone.cpu / many.cpu, copies_alone / copies_many)
    return round_of


def rows_of(rounds):
    """@param rounds of measure_round"""
    rows = []
    for drives in sorted(rounds[0]):
        pairs, relative, copies = zip(*(round_of[drives] for round_of in rounds))
        cpu = statistics.median(pair.cpu for pair in pairs)
        rows.append({"drives": drives, "cpu": cpu, "user": statistics.median(pair.user for pair in pairs),
                     "peak": statistics.median(pair.peak for pair in pairs), "commandsPerCpuSecond": 1e9 / cpu,
                     "relative": statistics.median(relative), "relativeCopies": statistics.median(copies)})
    return rows


def measure(corvane, floor, folder, numbers, rounds, share):
    """@param numbers of drives, one at first
    @param share the part of the work that is done is one of so many
    @return rows by medium"""
    by_medium = {}
    for medium in MEDIA:
        drives = make_media(medium, corvane, folder, max(numbers))
        rounds_of = []
        for number in range(rounds):
            print(f"drives: {medium}, round {number + 1} …", file=sys.stderr, flush=True)
            rounds_of.append(measure_round(numbers,
                                           lambda count: measure_commands(corvane, drives[:count], COMMANDS // share),
                                           lambda count: measure_copies(floor, count)))
        by_medium[medium] = rows_of(rounds_of)
    return by_medium


def rows_table(by_medium):
    return table(("Medium", "drives", "commands a CPU second", "of one drive's", "copies alone: of one process's",
                  "peak memory"),
                 [(medium, str(row["drives"]), f"{row['commandsPerCpuSecond']:,.0f}", f"{row['relative']:.2f}",
                   f"{row['relativeCopies']:.2f}", f"{row['peak'] / 1e6:.0f} MB")
                  for medium, rows in by_medium.items() for row in rows])

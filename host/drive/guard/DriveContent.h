#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "host/drive/Drive.h"

namespace corvane::host {

/// What a drive holds that somebody may want to keep, one phrase for each: "ext4 'data' (UUID 2f…)",
/// "a GPT partition table". Empty when it holds nothing that is known.
///
/// libblkid judges the first five and the last two MiB of the drive, as read by the drive's own read commands, and for
/// NTFS the file table, which stands where its boot sector says. File systems, RAID members, volumes, swap space and
/// partition tables all have their marks there; a mark in the middle of a drive is not found, and names that stand
/// deeper (of FAT, exFAT and HFS+) may be left out. Places that cannot be read are a phrase of their own: nobody knows
/// what they hold.
///
/// Some marks are two bytes long: a drive of random data is rarely taken for one that holds something.
///
/// @param drive       has no command outstanding
/// @param longestRead how long the drive may take to answer one
///
/// Throws DriveError when the drive does not answer, or is so long that no file can stand for it (8 EiB).
std::vector<std::string> findContent(Drive& drive, std::chrono::milliseconds longestRead = std::chrono::seconds(60));

}  // namespace corvane::host

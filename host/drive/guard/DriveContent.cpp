#include "host/drive/guard/DriveContent.h"

#include <blkid.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

#include "host/drive/DriveError.h"
#include "host/drive/guard/DriveImage.h"

namespace corvane::host {
namespace {

struct EndProbe {
  void operator()(blkid_probe probe) const { blkid_free_probe(probe); }
};
using Probe = std::unique_ptr<blkid_struct_probe, EndProbe>;

std::string valueOf(blkid_probe probe, const char* name) {
  const char* value = nullptr;
  return blkid_probe_lookup_value(probe, name, &value, nullptr) == 0 && value != nullptr ? value : "";
}

/// libblkid's names, where they are not what people call it.
std::string kindText(std::string_view type) {
  constexpr std::array<std::pair<std::string_view, const char*>, 11> kinds{
      {{"LVM1_member", "an LVM physical volume"},
       {"LVM2_member", "an LVM physical volume"},
       {"linux_raid_member", "a member of a Linux RAID array"},
       {"ddf_raid_member", "a member of a DDF RAID array"},
       {"isw_raid_member", "a member of an Intel RAID array"},
       {"crypto_LUKS", "a LUKS encrypted volume"},
       {"BitLocker", "a BitLocker encrypted volume"},
       {"zfs_member", "a member of a ZFS pool"},
       {"bcache", "a bcache device"},
       {"swap", "swap space"},
       {"vfat", "FAT"}}};
  for (const auto& [name, text] : kinds) {
    if (name == type) {
      return text;
    }
  }
  return std::string(type);
}

std::string tableText(blkid_probe probe, const std::string& type, uint64_t bytes) {
  const std::string kind = type == "gpt" ? "GPT" : type == "dos" ? "MBR" : type;
  const std::string where = valueOf(probe, "PTMAGIC_OFFSET");
  const bool backup = type == "gpt" && std::strtoull(where.c_str(), nullptr, 10) > bytes / 2;
  return (backup ? "the backup of a " : "a ") + kind + " partition table";
}

/// What the probe has just found.
std::string phraseOf(blkid_probe probe, uint64_t bytes) {
  if (const std::string table = valueOf(probe, "PTTYPE"); !table.empty()) {
    return tableText(probe, table, bytes);
  }
  std::string text = kindText(valueOf(probe, "TYPE"));
  if (const std::string label = valueOf(probe, "LABEL"); !label.empty()) {
    text += " '" + label + "'";
  }
  if (const std::string uuid = valueOf(probe, "UUID"); !uuid.empty()) {
    text += " (UUID " + uuid + ")";
  }
  return text;
}

uint64_t littleEndian(const std::vector<uint8_t>& bytes, size_t at, size_t count) {
  uint64_t value = 0;
  for (size_t i = count; i-- > 0;) {
    value = value << 8 | bytes[at + i];
  }
  return value;
}

/// NTFS is believed only with its file table, which stands where the boot sector says; Windows puts it at 3 GiB.
void addNtfsFileTable(DriveImage& image) {
  constexpr size_t bootBytes = 512;
  constexpr uint64_t tableBytes = 64 << 10;  // the records of the table itself and of the volume's name
  constexpr std::string_view mark = "NTFS    ";
  const std::vector<uint8_t> boot = image.at(0, bootBytes);
  if (boot.size() < bootBytes || std::memcmp(boot.data() + 3, mark.data(), mark.size()) != 0) {
    return;
  }
  const uint64_t sector = littleEndian(boot, 11, 2);
  const uint64_t cluster = boot[13];
  constexpr uint64_t mostShift = 31;  // far above every cluster; what says more is rubbish
  const uint64_t shift = cluster <= 128 ? 0 : 256 - cluster;
  const uint64_t clusterBytes = cluster <= 128 ? sector * cluster : shift <= mostShift ? sector << shift : 0;
  for (const size_t pointer : {size_t{48}, size_t{56}}) {  // the table and its mirror
    const uint64_t number = littleEndian(boot, pointer, 8);
    if (clusterBytes != 0 && number < image.bytes() / clusterBytes) {
      image.addPlace(number * clusterBytes, tableBytes);
    }
  }
}

Probe probeOf(const DriveImage& image, uint32_t blockSize) {
  Probe probe(blkid_new_probe());
  if (!probe || blkid_probe_set_device(probe.get(), image.file(), 0, 0) != 0) {
    throw DriveError("libblkid cannot look at what the drive holds");
  }
  blkid_probe_set_sectorsize(probe.get(), blockSize);
  blkid_probe_enable_superblocks(probe.get(), 1);
  // A damaged superblock is somebody's data all the same.
  blkid_probe_set_superblocks_flags(probe.get(), BLKID_SUBLKS_TYPE | BLKID_SUBLKS_LABEL | BLKID_SUBLKS_UUID |
                                                     BLKID_SUBLKS_MAGIC | BLKID_SUBLKS_BADCSUM);
  blkid_probe_enable_partitions(probe.get(), 1);
  blkid_probe_set_partitions_flags(probe.get(), BLKID_PARTS_MAGIC | BLKID_PARTS_FORCE_GPT);
  return probe;
}

}  // namespace

std::vector<std::string> findContent(Drive& drive, std::chrono::milliseconds longestRead) {
  DriveImage image(drive, longestRead);
  addNtfsFileTable(image);
  const Probe probe = probeOf(image, drive.geometry().blockSize);
  std::vector<std::string> content;
  while (blkid_do_probe(probe.get()) == 0) {
    std::string phrase = phraseOf(probe.get(), image.bytes());
    if (!phrase.empty() && std::find(content.begin(), content.end(), phrase) == content.end()) {
      content.push_back(std::move(phrase));
    }
  }
  if (!image.unread().empty()) {
    content.push_back("what cannot be read (" + image.unread() + ")");
  }
  return content;
}

}  // namespace corvane::host

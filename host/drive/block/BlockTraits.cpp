#include "host/drive/block/BlockTraits.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <iterator>

#include "host/base/SystemFile.h"

namespace corvane::host {
namespace {

/// Without what stands around it: devices fill their names up with blanks.
std::string trimmed(const std::string& text) {
  const auto shows = [](char c) { return c > ' ' && c < 0x7F; };
  const auto first = std::find_if(text.begin(), text.end(), shows);
  const auto last = std::find_if(text.rbegin(), std::make_reverse_iterator(first), shows).base();
  return {first, last};
}

std::string lineOf(const std::string& path) { return trimmed(contentOf(path)); }

uint64_t numberIn(const std::string& path) {
  const std::string text = lineOf(path);
  uint64_t value = 0;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

/// The serial number as SCSI devices give it: the unit serial number page of SPC, behind its header of four bytes.
std::string serialOfPage(const std::string& page) { return page.size() > 4 ? trimmed(page.substr(4)) : std::string(); }

std::string firstKnown(const std::string& one, const std::string& other) { return one.empty() ? other : one; }

}  // namespace

BlockTraits readBlockTraits(const std::string& folder) {
  BlockTraits traits;
  std::error_code ignored;
  traits.partition = std::filesystem::exists(folder + "/partition", ignored);
  traits.readOnly = numberIn(folder + "/ro") != 0;
  // A partition's folder stands in that of the whole device, and links to it point there.
  const std::string whole = traits.partition ? folder + "/.." : folder;
  traits.vendor = lineOf(whole + "/device/vendor");
  traits.model = lineOf(whole + "/device/model");
  if (traits.model.empty()) {
    traits.vendor.clear();  // of a bus's number and not of a maker
  }
  traits.serial = firstKnown(firstKnown(lineOf(whole + "/serial"), lineOf(whole + "/device/serial")),
                             serialOfPage(contentOf(whole + "/device/vpd_pg80")));
  traits.backingFile = lineOf(whole + "/loop/backing_file");
  traits.mappedName = lineOf(whole + "/dm/name");
  const std::string queue = whole + "/queue/";
  traits.volatileCache = lineOf(queue + "write_cache") == "write back";
  traits.hostManagedZones = lineOf(queue + "zoned") == "host-managed";
  traits.knowsAtomicWrites = std::filesystem::exists(queue + "atomic_write_unit_max_bytes", ignored);
  traits.mostWriteZerosBytes = numberIn(queue + "write_zeroes_max_bytes");
  traits.mostDiscardBytes = numberIn(queue + "discard_max_bytes");
  if (const std::string mask = lineOf(queue + "dma_alignment"); !mask.empty()) {
    traits.memoryAlignmentBytes = numberIn(queue + "dma_alignment") + 1;
  }
  return traits;
}

std::string BlockTraits::identity() const {
  if (!backingFile.empty()) {
    return "backed by " + backingFile;
  }
  std::string text = vendor;
  const auto add = [&text](const std::string& word, const std::string& before) {
    if (!word.empty()) {
      text += (text.empty() ? "" : " ") + before + word;
    }
  };
  add(model, "");
  add(serial, "serial ");
  add(mappedName, "mapped as ");
  return text;
}

}  // namespace corvane::host

// Blocks as a drive may return them: what host and agent read in them, and how two of them differ.

#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/InputBytes.h"
#include "fuzz/Target.h"
#include "host/explain/BlockDifference.h"
#include "host/explain/BlockStamp.h"
#include "host/explain/HexComparison.h"
#include "plugin/Write_Data_Gen/BlockStamp.h"

using corvane::fuzz::InputBytes;
using corvane::fuzz::require;
using namespace corvane::host;

namespace {

using Bytes = std::span<const uint8_t>;

/// A block in memory that ends where the block ends.
struct ExactBlock {
  explicit ExactBlock(Bytes from) : memory(new uint8_t[from.size()]), bytes(memory.get(), from.size()) {
    std::copy(from.begin(), from.end(), bytes.begin());
  }
  std::unique_ptr<uint8_t[]> memory;
  std::span<uint8_t> bytes;
};

/// Host and agent read a stamp with code of their own, and what they read has to be the same.
void readStamp(Bytes input) {
  const ExactBlock block(input);
  const std::optional<BlockStamp> read = stampOf(block.bytes);
  require(read.has_value() == (input.size() >= stampBytes), "a block has a stamp when it is long enough for one");
  if (!read) {
    return;
  }
  require(read->zeros == isZero(block.bytes), "zeros are zeros");
  require(!read->zeros || (read->bucket == 0 && read->lba == 0 && read->commandId == 0), "zeros say nothing");
  if (size_t{17} + block.bytes[16] > input.size()) {
    // A block of a drive is longer than any such id, which is all that the agent asks of it.
    return;
  }
  const vdl::ObserveData observed = vdl::agent::getObserveData(block.bytes.data());
  require(observed.embed.lba == read->lba, "host and agent read the same LBA");
  require(observed.embed.cmd_id == read->commandId, "host and agent read the same command id");
  const bool namesSector = observed.block_num != vdl::block_num::unknown;
  require(!namesSector || observed.block_num == read->bucket, "host and agent read the same sector");
}

/// What one of them stamps, the other writes in the same way and reads back.
void writeStamp(Bytes input, uint64_t lba, uint64_t commandId) {
  if (input.size() < stampBytes) {
    return;
  }
  const ExactBlock byHost(input);
  const ExactBlock byAgent(input);
  stamp(byHost.bytes, lba, commandId);
  vdl::agent::stampBlock(byAgent.bytes.data(), lba, commandId);
  require(std::ranges::equal(byHost.bytes, byAgent.bytes), "host and agent stamp the same bytes");
  const std::optional<BlockStamp> read = stampOf(byAgent.bytes);
  require(read && read->lba == lba && read->commandId == commandId, "a stamp is read back");
}

/// Bits of a byte of a block that are the other way round in its copy.
struct Flip {
  uint16_t place = 0;
  uint8_t bits = 0;
};

size_t bracketedBytes(const std::string& line) {
  size_t count = 0;
  bool inside = false;
  for (size_t i = 0; i + 1 < line.size(); ++i) {
    inside = line[i] == '[' || (inside && line[i] != ']');
    const bool byteBegins = (line[i] == '[' || line[i] == ' ' || line[i] == ']') && line[i + 1] != ' ';
    count += inside && byteBegins ? 1U : 0U;
  }
  return count;
}

void compareBlocks(Bytes left, Bytes right) {
  const ExactBlock a(left);
  const ExactBlock b(right);
  const std::optional<BlockDifference> difference = differenceOf(a.bytes, b.bytes);
  const bool differ = left.size() == right.size() && !std::ranges::equal(left, right);
  require(difference.has_value() == differ, "blocks of one length differ when their bytes do");
  const std::string shown = hexComparison(a.bytes, b.bytes);
  const std::string someLines = hexComparison(a.bytes, b.bytes, 2);
  require(someLines.size() <= shown.size() + 64, "fewer lines are no longer text");
  if (!difference) {
    return;
  }
  size_t bytes = 0;
  for (size_t i = difference->first; i <= difference->last; ++i) {
    bytes += left[i] != right[i] ? 1U : 0U;
  }
  require(left[difference->first] != right[difference->first] && left[difference->last] != right[difference->last],
          "first and last byte of a difference differ");
  require(std::equal(left.begin(), left.begin() + static_cast<std::ptrdiff_t>(difference->first), right.begin()) &&
              std::ranges::equal(left.subspan(difference->last + 1), right.subspan(difference->last + 1)),
          "outside of a difference all is equal");
  require(bytes == difference->bytes, "the bytes of a difference are counted");
  require(difference->bits >= bytes && difference->bits <= 8 * bytes, "a differing byte has 1 to 8 differing bits");
  require(bracketedBytes(shown) == 2 * bytes, "every differing byte stands in brackets on both sides");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  InputBytes input(data, size);
  const auto lba = input.number<uint64_t>();
  const auto commandId = input.number<uint64_t>();
  std::vector<Flip> flips(input.number<uint8_t>() % 32);
  for (Flip& flip : flips) {
    flip = {input.number<uint16_t>(), input.number<uint8_t>()};
  }
  const Bytes block = input.bytes(4096);
  readStamp(block);
  writeStamp(block, lba, commandId);
  // Two blocks of which nobody knows anything rarely have a byte in common, so the other one is a changed copy.
  std::vector<uint8_t> other(block.begin(), block.end());
  for (const Flip& flip : flips) {
    if (!other.empty()) {
      other[flip.place % other.size()] ^= flip.bits;
    }
  }
  compareBlocks(block, other);
  compareBlocks(block, block.first(block.size() / 2));
  return 0;
}

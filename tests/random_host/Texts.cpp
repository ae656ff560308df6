#include "Texts.h"

#include <array>
#include <cctype>
#include <cstring>
#include <iterator>

namespace randomhost {

namespace {

/// Every text that an agent may say on a channel, as the format that makes it.
struct Text {
  Channel channel;
  const char* format;
};

constexpr Text texts[] = {
    // Start of a test.
    {Channel::error, "Min Queue Size > Max Queue Size: %u > %u"},
    {Channel::error, "Read or verify Condition Must Be Set"},
    {Channel::error, "A Write Condition Must Be Set"},
    {Channel::error, "UserData: No Data Was Specified"},
    {Channel::error, "Drive Blocksize reported as zero"},
    {Channel::error, "Could not allocate sector buckets"},
    {Channel::error, "Corvane: Cannot use writesame and skip commands together"},
    {Channel::error, "Corvane: Cannot use splice checking without read enabled"},
    {Channel::error, "Corvane: Cannot use trim and skip commands together"},
    {Channel::warning, "Corvane: Use of DEPRECATED Embed LBA option, forcing Embed Data option to disabled"},
    // A step and its parts.
    {Channel::error, "execute(): status %d (%d)"},
    {Channel::error, "doAWrite(): status %d (%d)"},
    {Channel::error, "doAWriteAtomic(): status %d (%d)"},
    {Channel::error, "doARead(): status %d (%d)"},
    {Channel::error, "doAVerify(): status %d (%d)"},
    {Channel::error, "doCompares(): status %d (%d)"},
    {Channel::error, "compareBlock(): status -1046 (-1046)"},
    {Channel::error, "recvWrite(): status %d (%d)"},
    {Channel::error, "recvPreRead(): status %d (%d)"},
    {Channel::error, "recvRead(): status %d (%d)"},
    {Channel::error, "recvVerify(): status %d (%d)"},
    {Channel::error, "Requested buffer too large: need=%u, max=%u"},
    {Channel::error, "Multiple write commands selected"},
    {Channel::error, "No write command selected"},
    {Channel::error, "doAReadOrVerify(): failed to select write to read"},
    {Channel::error, "Niether read nor verify selected during execution loop."},
    {Channel::error, "Both Read and Verify condition selected during same execution loop."},
    {Channel::error, "doARead(): Invalid WriteSent and WriteFinished"},
    {Channel::error, "doAVerify(): Invalid WriteSent and WriteFinished"},
    {Channel::error, "recvWrite(): Couldn't find write"},
    {Channel::error, "recvPreRead(): couldn't find pre-read"},
    {Channel::error, "recvPreRead() Read Buffer == NULL"},
    {Channel::error, "recvVerify(): couldn't find verify"},
    {Channel::error, "recvRead(): couldn't find read"},
    {Channel::error, "Could not find Read LBA in Hash Table at LBA 0x%016lx"},
    {Channel::error, "Miscompare Detected with a Verify command at LBA 0x%016llX Transfer Length 0x%03X"},
    {Channel::error, "Miscompare was expected from Verify command at LBA 0x%016llX Transfer Length 0x%03X"},
    {Channel::error, "Write Splice Detected at LBA 0x%016llX Transfer Length 0x%lX"},
    {Channel::warning, "recvRead(): recv read %lu out of order before write %lu"},
    // The compare.
    {Channel::error, "Read Buffer == NULL"},
    {Channel::error, "dataCompare() Read pointer: offset > buff size"},
    {Channel::error, "Data match on invalidated block at LBA 0x%016llX"},
    {Channel::error, "Miscompare Detected at LBA 0x%016llX, first_offset = %u, num_bytes = %u"},
    {Channel::error, "Could not dump CDB: cdb_size = %u"},
    {Channel::error, "Miscompare CDB: %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X"},
    {Channel::error, "Failed to issue Showstop, ostra err %i"},
    // Files.
    {Channel::error, "dumpMiscompareData(): could not open '%s' for writing"},
    {Channel::error, "Miscompare Data Written To '%s'"},
    {Channel::error, "Could not use specifed file path, using temp file instead"},
    {Channel::error, "Could not open the file '%s' to dump the bucket compare command sequence"},
    {Channel::error, "Bucket compare command sequence saved to '%s'"},
    {Channel::information, "Bucket compare command sequence saved to '%s'"},
    // The standard streams.
    {Channel::standardOutput, "re-queuing read cmd_id:%lu:%lx"},
    {Channel::standardOutput, "<W> Clearing out Read LBA Range 0x%016lX thru 0x%016lX"},
    {Channel::standardOutput, "hash compare fail %lx != %lx"},
    {Channel::standardOutput, "atomic data ordering failure"},
    {Channel::standardOutput, "Context History for lba 0x%lx:"},
    {Channel::standardOutput, "EventType   CmdID  %s"},
    {Channel::standardOutput, "----------%s"},
    {Channel::standardOutput, "none        %s"},
    {Channel::standardOutput, "write       %s"},
    {Channel::standardOutput, "atomic      %s"},
    {Channel::standardOutput, "hash        %s"},
    {Channel::standardOutput, "invalidate  %s"},
    {Channel::standardOutput, "?           %s"},
    {Channel::standardOutput, ""},
    {Channel::standardError, "atomic data ordering failure lba:0x%lx"},
    {Channel::standardError, "<E> SANITY_CHECK readIssued expect=1 ref_count=0 lba:%lx cmd_id:%lx"},
    {Channel::standardError, "<E> readIssued !record && expect lba:%lx cmd_id:%lx"},
    {Channel::standardError, "<E> readFinished couldn't find record lba:%lx cmd_id:%lx"},
    {Channel::standardError, "<E> readFinished couldn't find wait_read lba:%lx cmd_id:%lx"},
    {Channel::standardError, "<E> readSkip couldn't find record lba:%lx"},
    {Channel::standardError, "<E> dropHash couldn't find record lba:%lx"},
    {Channel::standardError, "<E> dropHash no hash event found. lba:%lx cmd_id:%lx"},
    {Channel::standardError, "<E> SANITY_CHECK dropHash ref_count=0 lba:%lx cmd_id:%lx"},
};

std::array<bool, std::size(texts)> said;

bool isDigit(char character, char conversion) {
  const auto value = static_cast<unsigned char>(character);
  if (conversion == 'X') {
    return std::isdigit(value) != 0 || (character >= 'A' && character <= 'F');
  }
  if (conversion == 'x') {
    return std::isdigit(value) != 0 || (character >= 'a' && character <= 'f');
  }
  return std::isdigit(value) != 0;
}

/// Behind a number of the text; null when none stands there.
const char* passNumber(const char* text, char conversion) {
  if ((conversion == 'd' || conversion == 'i') && *text == '-') {
    ++text;
  }
  const char* first = text;
  while (isDigit(*text, conversion)) {
    ++text;
  }
  return text == first ? nullptr : text;
}

}  // namespace

bool matches(const char* format, const char* text) {
  while (*format != '\0') {
    if (*format != '%') {
      if (*format++ != *text++) {
        return false;
      }
      continue;
    }
    const char conversion = *(format += std::strcspn(format, "duixXs"));
    ++format;
    if (conversion == 's') {
      while (!matches(format, text)) {
        if (*text++ == '\0') {
          return false;
        }
      }
      return true;
    }
    text = passNumber(text, conversion);
    if (text == nullptr) {
      return false;
    }
  }
  return *text == '\0';
}

bool isDocumented(const Line& line) {
  for (size_t i = 0; i < std::size(texts); ++i) {
    if (texts[i].channel == line.channel && matches(texts[i].format, line.text.c_str())) {
      said[i] = true;
      return true;
    }
  }
  return false;
}

std::vector<std::string> neverSaid() {
  std::vector<std::string> formats;
  for (size_t i = 0; i < std::size(texts); ++i) {
    if (!said[i]) {
      formats.emplace_back(texts[i].format);
    }
  }
  return formats;
}

}  // namespace randomhost

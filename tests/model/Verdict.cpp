#include "tests/model/Verdict.h"

namespace refmodel {

namespace {

void addText(std::string& out, const char* name, const std::string& text) {
  if (!text.empty()) {
    out += std::string("    ") + name + ":\n" + text + (text.back() == '\n' ? "" : "\n");
  }
}

void addDump(std::string& out, const char* name, const Bytes& bytes) {
  if (!bytes.empty()) {
    out += std::string("    ") + name + ": " + std::to_string(bytes.size()) + " bytes, hash " +
           std::to_string(hashOf(bytes)) + "\n";
  }
}

}  // namespace

std::string describe(const Verdict& verdict) {
  std::string out = "    status " + std::to_string(verdict.status) + "\n";
  for (const std::string& line : verdict.log) {
    out += "    log: " + line + "\n";
  }
  addText(out, "standard output", verdict.output);
  addText(out, "standard error", verdict.errors);
  if (verdict.traced) {
    const TracedMiscompare& traced = *verdict.traced;
    out += "    traced: LBA " + std::to_string(traced.lba) + ", command " + std::to_string(traced.id) + ", expected " +
           std::to_string(traced.expected) + ", found " + std::to_string(traced.found) +
           (traced.flag ? ", invalidated" : "") + "\n";
  }
  addText(out, "history", verdict.history);
  addDump(out, "dump of the drive's block", verdict.driveDump);
  addDump(out, "dump of the reference", verdict.referenceDump);
  return out;
}

}  // namespace refmodel

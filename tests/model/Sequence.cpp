#include "tests/model/Sequence.h"

namespace refmodel {

namespace {

const char* nameOf(Kind kind) {
  switch (kind) {
    case Kind::write:
      return "write";
    case Kind::unstamped:
      return "unstamped write";
    case Kind::same:
      return "write-same";
    case Kind::trim:
      return "trim";
    case Kind::atomic:
      return "atomic write";
    case Kind::preRead:
      return "pre-read";
    case Kind::read:
      return "read";
  }
  return "?";
}

std::string blocksText(const Sequence& sequence, const Operation& operation) {
  const uint64_t first = sequence.base + operation.first;
  std::string text = "LBA " + std::to_string(first);
  if (operation.blocks != 1) {
    text += " to " + std::to_string(first + uint64_t{operation.blocks - 1} * operation.step);
  }
  return operation.step == 1 ? text : text + ", every other block";
}

std::string contentText(const Content& content) {
  const std::string command = std::to_string(content.command);
  switch (content.is) {
    case Content::Is::before:
      return "as before the test";
    case Content::Is::written:
      return "written by " + command;
    case Content::Is::torn:
      return "torn: " + std::to_string(content.at) + " bytes written by " + command;
    case Content::Is::flipped:
      return "written by " + command + ", byte " + std::to_string(content.at) + " wrong";
    case Content::Is::foreign:
      return "another block's";
  }
  return "?";
}

/// @param unsaid what blocks hold of which nothing is said
std::string dataText(const Operation& operation, const char* unsaid) {
  std::string text;
  for (const Content& content : operation.data) {
    text += " [" + contentText(content) + "]";
  }
  text += operation.data.empty() ? unsaid : "";
  text += operation.leftOut == 0 ? "" : ", the last " + std::to_string(operation.leftOut) + " not to be compared";
  text += operation.cut == 0 ? "" : ", " + std::to_string(operation.cut) + " bytes missing";
  text += operation.trailers ? ", with protection behind each block" : "";
  return text;
}

std::string issueText(const Sequence& sequence, const Operation& operation) {
  std::string text = std::string(nameOf(operation.kind)) + " of " + blocksText(sequence, operation);
  if (operation.kind == Kind::read) {
    text += operation.expects == Expects::whereOwed
                ? ", which pays off what is owed"
                : (operation.expects == Expects::everywhere ? ", which pays off a write" : ", which pays off nothing");
  } else if (writes(operation.kind) && operation.kind != Kind::trim) {
    text += ", sector " + std::to_string(operation.bucket) + " of the pool";
  }
  return operation.kind == Kind::atomic ? text + ", atomic by " + std::to_string(operation.bound) + " blocks" : text;
}

}  // namespace

std::string describe(const Sequence& sequence, const Operation& operation) {
  const std::string command = "command " + std::to_string(operation.command) + ": ";
  switch (operation.act) {
    case Operation::Act::issue:
      return command + issueText(sequence, operation);
    case Operation::Act::finish:
      return command + "good";
    case Operation::Act::fail:
      return command + "failed from its block " + std::to_string(operation.from) + " on";
    case Operation::Act::giveData:
      return command + "good, with the data" + dataText(operation, " of other blocks");
    case Operation::Act::end:
      return command + "ended without data";
    case Operation::Act::lose:
      return command + "lost, and will be repeated";
    case Operation::Act::keepHashes:
      return command + "good, its hashes are kept" + (operation.flag ? ", with references" : "") +
             dataText(operation, " of what was there before the test");
    case Operation::Act::skip:
      return "references given back: " + blocksText(sequence, operation);
    case Operation::Act::drop:
      return command + "its references are given back";
    case Operation::Act::invalidate:
      return std::string("invalidation of ") + blocksText(sequence, operation) +
             (operation.flag ? ", nothing is expected any more" : ", the content must be gone");
    case Operation::Act::reset:
      return "reset: all that is in flight is lost";
  }
  return "?";
}

std::string describe(const Sequence& sequence) {
  std::string text = "base LBA " + std::to_string(sequence.base) + ", command n has the id " +
                     std::to_string(sequence.idBase) + " + n\n";
  for (size_t i = 0; i < sequence.operations.size(); ++i) {
    text += "  " + std::to_string(i + 1) + ". " + describe(sequence, sequence.operations[i]) + "\n";
  }
  return text;
}

}  // namespace refmodel

// Addresses of drives and descriptions of faults, as they stand on a command line. No drive is opened.

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string>

#include "fuzz/InputBytes.h"
#include "fuzz/Target.h"
#include "host/drive/DriveAddress.h"
#include "host/drive/DriveError.h"
#include "host/drive/DriveFactory.h"
#include "host/drive/scsi/iscsi/IscsiUrl.h"
#include "host/fault/FaultSpec.h"

using corvane::fuzz::InputBytes;
using corvane::fuzz::require;
using corvane::fuzz::requireMessage;
using namespace corvane::host;

namespace {

/// Stands for a password. No text of the program has it, and it means nothing in an address.
constexpr std::string_view secret = "Zq7Xk9Wv";

/// What the environment holds must not decide what an input does.
const bool environmentIsClear = [] {
  unsetenv("LIBISCSI_CHAP_USERNAME");  // NOLINT(concurrency-mt-unsafe): before any thread
  unsetenv("LIBISCSI_CHAP_PASSWORD");  // NOLINT(concurrency-mt-unsafe)
  return true;
}();

/// What the address is refused for; nothing for one that is accepted.
std::optional<std::string> refusalOf(const std::string& text) {
  try {
    checkDriveAddress(text);
    return std::nullopt;
  } catch (const DriveAddressError& error) {
    return error.what();
  }
}

/// An accepted address of an iSCSI unit, written from what was read in it, says the same.
void writeUrl(const std::string& text) {
  const DriveAddress address(text);
  if (address.scheme() != "iscsi") {
    return;
  }
  const IscsiUrl url = parseIscsiUrl(address);
  require(!url.host.empty() && url.port != 0 && !url.target.empty() && url.lun < (1U << 14),
          "an accepted address names a unit");
  const std::string user = url.user.empty() ? "" : url.user + "%" + url.password + "@";
  const std::string written = "iscsi://" + user + url.portal() + "/" + url.target + "/" + std::to_string(url.lun);
  const IscsiUrl again = parseIscsiUrl(DriveAddress(written));
  require(again.host == url.host && again.port == url.port && again.user == url.user &&
              again.password == url.password && again.target == url.target && again.lun == url.lun,
          "an address that is written again is the same");
}

/// Whoever sees what is said about an address does not see its password.
void hidePassword(std::string text) {
  if (text.find(secret) != std::string::npos) {
    return;  // a fuzzer sees what is looked for
  }
  const std::optional<PasswordPlace> place = passwordIn(text);
  if (!place) {
    require(maskedAddress(text) == text, "an address without a password is shown as it is");
    return;
  }
  require(place->begin < place->end && place->end <= text.size(), "a password is a part of its address");
  text.replace(place->begin, place->end - place->begin, secret);
  require(maskedAddress(text).find(secret) == std::string::npos, "an address is shown without its password");
  const std::optional<std::string> refusal = refusalOf(text);
  require(!refusal || refusal->find(secret) == std::string::npos, "a refused address is shown without its password");
  if (!refusal && text.starts_with("iscsi:")) {
    require(parseIscsiUrl(DriveAddress(text)).password == secret,
            "the password that is hidden is the one that is used");
  }
}

void readAddress(const std::string& text) {
  const std::optional<std::string> refusal = refusalOf(text);
  if (refusal) {
    requireMessage(*refusal, "drive address '" + maskedAddress(text) + "': ", text);
  } else {
    writeUrl(text);
  }
  hidePassword(text);
}

void readFault(const std::string& text) {
  try {
    const FaultSpec spec = parseFaultSpec(text);
    require(spec.rate >= 0 && spec.rate <= 1, "a rate is a probability");
    require((spec.atCommand != 0) != (spec.rate != 0) || spec.atCommand == 0, "a fault has one moment or a rate");
    const std::string written = faultSpecText(spec);
    require(parseFaultSpec(written) == spec, "a fault that is written again is the same");
    require(faultSpecText(parseFaultSpec(written)) == written, "a written fault is written alike again");
  } catch (const FaultSpecError& error) {
    requireMessage(error.what(), "fault '" + text + "': ", text);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  require(environmentIsClear, "no password comes from the environment");
  InputBytes input(data, size);
  const bool fault = input.number<uint8_t>() == '!';
  std::string text(fault ? input.text() : std::string_view(reinterpret_cast<const char*>(data), size));
  // A command line has no zero bytes, and test files and documents are refused that have.
  text.resize(std::min(text.find('\0'), text.size()));
  if (fault) {
    readFault(text);
  } else {
    readAddress(text);
  }
  return 0;
}

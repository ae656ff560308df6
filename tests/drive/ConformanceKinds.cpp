#include "tests/drive/ConformanceKinds.h"

#include <cstdlib>
#include <sstream>

#include "host/drive/DriveFactory.h"

namespace corvane::host {

Kind addressKind(const std::string& name, const std::string& address) {
  return {name, [address](const tests::TempFolder& folder) {
            std::string text = address;
            if (const size_t place = text.find("FILE"); place != std::string::npos) {
              text.replace(place, 4, folder / "drive.img");
            }
            return Stand{.under = nullptr, .drive = openDrive(text, conformanceDepth), .missing = ""};
          }};
}

std::vector<Kind> givenKinds() {
  const char* const given = std::getenv("CORVANE_TEST_DRIVES");
  std::istringstream words(given == nullptr ? "" : given);
  std::vector<Kind> kinds;
  for (std::string address; words >> address;) {
    kinds.push_back({"Given" + std::to_string(kinds.size() + 1), [address](const tests::TempFolder&) {
                       return Stand{.under = nullptr,
                                    .drive = openDrive(address, conformanceDepth, 1, Overwriting::ofAnything),
                                    .missing = ""};
                     }});
  }
  return kinds;
}

}  // namespace corvane::host

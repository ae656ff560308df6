#pragma once

#include <map>
#include <string>
#include <vector>

#include "host/cli/GivenTest.h"
#include "host/cli/TestKey.h"

namespace corvane::host::testing {

/// A text other than the default for every setting, in the form in which the setting writes it itself.
inline const std::map<std::string, std::vector<std::string>>& sampleTexts() {
  static const std::map<std::string, std::vector<std::string>> texts{
      {"drive", {"sim:1g", "file:a \"b\"\\c\x7f\té,size=4m"}},
      {"time", {"90s"}},
      {"commands", {"1000000"}},
      {"steps", {"12"}},
      {"watchdog", {"45s"}},
      {"range", {"64.."}},
      {"size", {"12.5%"}},
      {"seed", {"18446744073709551615"}},
      {"pin", {"0,2-5"}},
      {"commands-of", {"write=3,trim,read"}},
      {"queue-depth", {"7"}},
      {"xfer", {"2..9"}},
      {"lba-agent", {"sequential"}},
      {"atomic-bound", {"3..4"}},
      {"e2e", {"50"}},
      {"fua", {"true"}},
      {"rate", {"1500"}},
      {"condition", {"hold", "quiet"}},
      {"step", {"trim=trim & !write", "e2e=", "reset=!trim"}},
      {"random", {"write=3,atomic=1,trim=0", "read=1,verify=2"}},
      {"phase", {"trim,every=10000,for=500", "e2e,every=7,for=6"}},
      {"reset-every", {"100"}},
      {"zone-reset-every", {"200"}},
      {"invalidate-every", {"300"}},
      {"power-toggle", {"sync"}},
      {"fault", {"lost-write:rate=0.001", "torn-write:at=command:9,drive=2"}},
      {"set", {"Trace Depth=5", "Data File=a=b", "Slide Reads=true"}},
      {"plugin", {"./mine.so"}},
      {"output", {"out"}},
      {"json", {"x.json"}},
      {"events", {"e.ndjson"}},
      {"junit", {"j.xml"}},
      {"quiet", {"true"}},
  };
  return texts;
}

/// A test of which every setting was said.
inline GivenTest everythingGiven() {
  GivenTest given;
  for (const TestKey& key : testKeys()) {
    for (const std::string& text : sampleTexts().at(key.name)) {
      given.give(key, text, std::string("--") + key.name);
    }
  }
  return given;
}

}  // namespace corvane::host::testing

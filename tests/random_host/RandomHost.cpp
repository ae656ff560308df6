#include "RandomHost.h"

#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <memory>

extern "C" {

[[gnu::weak]] void __sanitizer_set_death_callback(void (*callback)());

// The framework in this program stands in for the one that a loaded agent brings along.
const char* __asan_default_options() { return "detect_odr_violation=0"; }
// Its reports know no callback, but a signal.
const char* __ubsan_default_options() { return "abort_on_error=1"; }

}  // extern "C"

namespace randomhost {

namespace {

constexpr size_t notesKept = 24;
/// An episode takes far less than a second; one that takes so long hangs.
constexpr unsigned mostSeconds = 300;

/// The latest calls, where a dying process finds them.
struct Notes {
  std::array<Note, notesKept> ring;
  uint64_t count = 0;
  uint64_t seed = 0;
  uint64_t calls = 0;  ///< of execute, in this episode
};
Notes notes;

std::string describe(const Note& note) {
  char text[256];
  std::snprintf(
      text, sizeof text,
      "  drive %zu %-13s finished tag %d status %d, next LBA %llu length %u on tag %d, conditions %llx: %d, %s\n",
      note.drive, note.callback, static_cast<int>(note.tag), static_cast<int>(note.status),
      static_cast<unsigned long long>(note.lba), note.xferLength, static_cast<int>(note.nextTag),
      static_cast<unsigned long long>(note.conditions), note.result, vdl::traceTypeName(note.issued));
  return text;
}

std::string lastCalls() {
  std::string text = "seed " + std::to_string(notes.seed) + ", call " + std::to_string(notes.calls) +
                     " of execute; repeat with: random_host --seed " + std::to_string(notes.seed) + " --calls " +
                     std::to_string(notes.calls + 1) + "\nthe latest calls:\n";
  for (uint64_t i = notes.count > notesKept ? notes.count - notesKept : 0; i < notes.count; ++i) {
    text += describe(notes.ring[i % notesKept]);
  }
  return text;
}

/// The process dies inside the agent, in the call behind the last one of the list.
void tellLastCalls() {
  const std::string text = StandardStreams::untaken() + "\nrandom host: " + lastCalls();
  if (write(STDERR_FILENO, text.data(), text.size()) < 0) {
    return;
  }
}

void onSignal(int number) {
  std::signal(number, SIG_DFL);
  tellLastCalls();
  std::raise(number);
}

void watchForDeath() {
  std::signal(SIGABRT, onSignal);
  std::signal(SIGALRM, onSignal);
  if (__sanitizer_set_death_callback != nullptr) {
    __sanitizer_set_death_callback(tellLastCalls);
  } else {
    std::signal(SIGSEGV, onSignal);
    std::signal(SIGFPE, onSignal);
  }
}

void emptyFolder(const std::string& folder) {
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    std::filesystem::remove_all(entry.path());
  }
}

/// The options of an episode, released when it ends.
class Options {
 public:
  Options(const vdl::AgentTable& agent, Dice& dice) : agent_(agent) {
    manager_.impl = &state_;
    if (dice.oneIn(50)) {
      state_.failingCall = static_cast<int>(1 + dice.below(30));
      state_.failure = -2002;
    }
    result_ = agent.initConfigData(&manager_);
  }
  ~Options() { agent_.freeConfigData(state_.record); }
  Options(const Options&) = delete;
  Options& operator=(const Options&) = delete;

  /// The record, 27 options and two deprecations are 30 calls.
  int expected() const { return state_.failingCall != 0 ? state_.failure : 0; }
  int result() const { return result_; }
  vdl::Corvane::ConfigData& record() { return *static_cast<vdl::Corvane::ConfigData*>(state_.record); }

 private:
  const vdl::AgentTable& agent_;
  vdl::ConfigManager manager_;
  vdl::ConfigManager::Impl state_;
  int result_;
};

/// All drives of an episode.
class Episode {
 public:
  Episode(const vdl::AgentTable& agent, const std::string& folder, uint64_t seed)
      : agent_(agent), folder_(folder), dice_(seed), options_(agent, dice_) {}

  std::string run(uint64_t calls, Report& report) {
    if (options_.result() != options_.expected()) {
      return "initConfigData returned " + std::to_string(options_.result());
    }
    if (options_.result() != 0) {
      return {};
    }
    plan_ = drawPlan(dice_, options_.record(), folder_);
    std::string wrong = begin();
    for (uint64_t left = std::min<uint64_t>(calls, 20 + dice_.below(400)); left > 0 && wrong.empty(); --left) {
      wrong = next(report);
      if (!alive()) {
        break;
      }
    }
    for (size_t i = 0; i < drives_.size() && wrong.empty(); ++i) {
      wrong = dice_.oneIn(4) ? noted(i, drives_[i]->stopTest()) : std::string();
    }
    return wrong;
  }

 private:
  std::string begin() {
    const uint64_t count = dice_.of<uint64_t>({1, 1, 1, 2, 3});
    for (uint64_t i = 0; i < count; ++i) {
      auto drive = std::make_unique<DriveRun>(agent_, options_.record(), plan_, dice_, streams_);
      std::string wrong = drive->initDriveData();
      drives_.push_back(std::move(drive));
      wrong = noted(i, wrong);
      if (!wrong.empty()) {
        return wrong;
      }
      if (!drives_.back()->registered()) {
        drives_.pop_back();
        return {};
      }
      wrong = noted(i, drives_.back()->startTest());
      if (!wrong.empty()) {
        return wrong;
      }
    }
    return {};
  }

  bool alive() const {
    for (const auto& drive : drives_) {
      // One that did not start may be reset, stopped, and started again.
      if (!drive->exhausted()) {
        return true;
      }
    }
    return false;
  }

  std::string next(Report& report) {
    if (drives_.empty()) {
      return {};
    }
    const size_t index = dice_.below(drives_.size());
    DriveRun& drive = *drives_[index];
    if (plan_.does(Misdeed::resets) && !plan_.lawful && dice_.oneIn(40)) {
      return noted(index, drive.deviceReset());
    }
    if (plan_.does(Misdeed::restarts) && dice_.oneIn(60)) {
      if (drives_.size() == 1 && dice_.oneIn(2)) {
        redrawOptions(dice_, plan_, options_.record(), folder_);
      }
      return noted(index, drive.startTest());
    }
    if (plan_.does(Misdeed::stopsInBetween) && dice_.oneIn(150)) {
      return noted(index, drive.stopTest());
    }
    if (!drive.started() || drive.exhausted()) {
      return {};
    }
    std::string wrong = noted(index, drive.execute(notes.calls % 8 == 0));
    ++notes.calls;
    ++report.calls;
    report.lawful += plan_.lawful ? 1 : 0;
    ++report.results[drive.note().result];
    ++report.issued[drive.note().issued];
    return wrong;
  }

  std::string noted(size_t index, const std::string& wrong) {
    Note& note = notes.ring[notes.count++ % notesKept];
    note = drives_[index]->note();
    note.drive = index;
    return wrong;
  }

  const vdl::AgentTable& agent_;
  const std::string& folder_;
  Dice dice_;
  StandardStreams streams_;
  Options options_;
  Plan plan_;
  std::vector<std::unique_ptr<DriveRun>> drives_;
};

}  // namespace

Report RandomHost::run(uint64_t calls, uint64_t seed) {
  watchForDeath();
  Report report;
  while (report.calls < calls && report.failure.empty()) {
    notes = Notes{};
    notes.seed = seed + report.episodes;
    alarm(mostSeconds);
    const auto episode = std::make_unique<Episode>(agent_, folder_, notes.seed);
    report.failure = episode->run(calls - report.calls, report);
    if (!report.failure.empty()) {
      report.failure += "\n" + lastCalls();
    }
    if (++report.episodes % 16 == 0) {
      emptyFolder(folder_);
    }
  }
  emptyFolder(folder_);
  alarm(0);
  std::signal(SIGABRT, SIG_DFL);
  return report;
}

}  // namespace randomhost

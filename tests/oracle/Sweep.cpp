#include "tests/oracle/Sweep.h"

#include <algorithm>
#include <functional>
#include <stdexcept>

#include "tests/oracle/DriveOracle.h"

namespace oracletest {

namespace {

/// The commands that are read before the judged one and whose images are not yet chosen, in the order of their ends.
std::vector<uint8_t> earlierReads(const History& history, uint8_t judged) {
  std::vector<uint8_t> reads;
  for (const Event& event : history.events) {
    if (event.end && event.command != judged && isRead(history.commands[event.command].kind)) {
      reads.push_back(event.command);
    }
  }
  return reads;
}

/// The history up to the end of an earlier read, without the judged one, which shows nothing yet.
History upToEndOf(const History& history, uint8_t earlier, uint8_t judged) {
  History part = history;
  part.events.resize(history.position(earlier, true) + 1);
  std::erase_if(part.events, [judged](const Event& event) { return event.command == judged; });
  return part;
}

/// One image that the agent should let pass, another one with each number.
Image chooseImage(const History& part, uint8_t read, uint64_t number) {
  std::vector<Image> images = possibleImages(part, read, Order::asIssued);
  if (images.empty()) {
    images = possibleImages(part, read, Order::any);
  }
  if (images.empty()) {
    throw std::logic_error("no drive does this: " + describe(part));
  }
  return images[number % images.size()];
}

/// What the earlier reads show, tried in the order of their ends.
bool chooseShown(History& history, uint8_t judged, const std::vector<uint8_t>& reads, std::size_t next,
                 const std::function<bool(const History&)>& judge) {
  if (next == reads.size()) {
    return judge(history);
  }
  const uint8_t read = reads[next];
  for (const Image image : possibleImages(upToEndOf(history, read, judged), read, Order::any)) {
    history.shown[read] = image;
    if (!chooseShown(history, judged, reads, next + 1, judge)) {
      return false;
    }
  }
  return true;
}

}  // namespace

uint64_t Tally::of(Rule rule) const {
  uint64_t count = 0;
  for (const auto& [rules, found] : classes) {
    count += std::find(rules.begin(), rules.end(), rule) != rules.end() ? found.images : 0;
  }
  return count;
}

Tally& Tally::operator+=(const Tally& other) {
  histories += other.histories;
  notPlayed += other.notPlayed;
  reads += other.reads;
  images += other.images;
  bothAccept += other.bothAccept;
  bothReject += other.bothReject;
  for (const auto& [rules, theirs] : other.classes) {
    Class& mine = classes[rules];
    mine.images += theirs.images;
    if (theirs.exampleSize < mine.exampleSize) {
      mine.example = theirs.example;
      mine.exampleSize = theirs.exampleSize;
    }
  }
  unexplained = unexplained.empty() ? other.unexplained : unexplained;
  return *this;
}

std::string describe(const Tally& tally) {
  std::string text = std::to_string(tally.histories) + " histories (" + std::to_string(tally.notPlayed) +
                     " not played), " + std::to_string(tally.reads) + " reads, " + std::to_string(tally.images) +
                     " images: both accept " + std::to_string(tally.bothAccept) + ", both reject " +
                     std::to_string(tally.bothReject) + "\n";
  for (const auto& [rules, found] : tally.classes) {
    std::string names;
    for (const Rule rule : rules) {
      names += (names.empty() ? "" : " + ") + std::string(nameOf(rule));
    }
    text += "  " + names + ": " + std::to_string(found.images) + "\n    " + found.example + "\n";
  }
  return tally.unexplained.empty() ? text : text + "UNEXPLAINED " + tally.unexplained + "\n";
}

bool Sweep::fail(const std::string& what) {
  tally_.unexplained = what;
  return false;
}

void Sweep::note(const History& history, uint8_t read, Image image, const Rules& rules) {
  Tally::Class& found = tally_.classes[rules];
  ++found.images;
  const std::size_t size = 100 * history.events.size() + history.blocks;
  if (size < found.exampleSize) {
    found.example = describe(history, read, image);
    found.exampleSize = size;
  }
}

bool Sweep::judgeLast(const History& history, uint8_t read) {
  const std::vector<Image> images = conceivableImages(history, read);
  std::vector<Judgement> judgements;
  if (history.commands[read].kind == Kind::look) {
    judgements = agent_.judge(history, read, images);
  } else {
    for (const Image image : images) {
      const auto one = agent_.judge(history, read, {image});
      judgements.insert(judgements.end(), one.begin(), one.end());
    }
  }
  if (judgements.empty()) {
    return true;  // the test was over before this read
  }
  ++tally_.reads;
  Comparison comparison(history, read);
  for (const Judgement& judgement : judgements) {
    ++tally_.images;
    try {
      const Rules rules = comparison.explain(judgement.image, judgement.accepted());
      if (!rules.empty()) {
        note(history, read, judgement.image, rules);
      } else {
        ++(judgement.accepted() ? tally_.bothAccept : tally_.bothReject);
      }
    } catch (const std::domain_error& unexplained) {
      return fail(unexplained.what());
    }
  }
  return true;
}

bool Sweep::judge(const History& history) {
  if (history.base == Base::unknown) {
    return judgeOne(history);
  }
  ++tally_.histories;
  const auto read = static_cast<uint8_t>(history.commands.size() - 1);
  History played = history;
  return chooseShown(played, read, earlierReads(history, read), 0,
                     [this, read](const History& whole) { return judgeLast(whole, read); });
}

bool Sweep::judgeOne(const History& history) {
  const auto read = static_cast<uint8_t>(history.commands.size() - 1);
  const uint64_t number = ++tally_.histories;
  const auto played = agent_.withReadsAhead(history, read, [number, read](const History& part, uint8_t earlier) {
    return chooseImage(upToEndOf(part, earlier, read), earlier, number);
  });
  tally_.notPlayed += played ? 0U : 1U;
  return !played || judgeLast(*played, read);
}

}  // namespace oracletest

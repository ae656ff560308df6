#include <algorithm>
#include <array>
#include <cstdio>

#include "host/base/TextFormat.h"
#include "host/report/TextReportParts.h"
#include "host/report/TextTable.h"

namespace corvane::host::report {
namespace {

uint64_t countOf(const std::vector<NamedCount>& counts, const std::string& name) {
  const auto found =
      std::find_if(counts.begin(), counts.end(), [&name](const NamedCount& one) { return one.name == name; });
  return found == counts.end() ? 0 : found->count;
}

std::string listed(const std::vector<NamedCount>& counts) {
  std::string text;
  for (const NamedCount& one : counts) {
    text += one.count == 0 ? "" : (text.empty() ? "" : ", ") + printable(one.name) + " " + groupedNumber(one.count);
  }
  return text;
}

std::string commandsText(const DriveOfResult& drive) {
  TextTable table({"commands", ">issued", ">completed"});
  for (const NamedCount& one : drive.issued) {
    if (one.count != 0) {
      table.add({printable(one.name), groupedNumber(one.count), groupedNumber(countOf(drive.completed, one.name))});
    }
  }
  return table.empty() ? "" : table.text(2);
}

std::string amountsText(const DriveOfResult& drive) {
  TextTable table({"amounts", ">blocks", ">bytes", ">rate"});
  for (const NamedCount& one : drive.blockCounts) {
    const uint64_t bytes = countOf(drive.byteCounts, one.name);
    if (one.count != 0) {
      table.add({printable(one.name), groupedNumber(one.count), bytes == 0 ? "" : bytesText(bytes),
                 bytes == 0 ? "" : rateText(bytes, drive.elapsedMs)});
    }
  }
  return table.empty() ? "" : table.text(2);
}

std::string shareText(uint64_t part, uint64_t whole) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.2f %%", 100.0 * static_cast<double>(part) / static_cast<double>(whole));
  return text.data();
}

std::string coverageText(const Coverage& checked) {
  std::vector<NamedCount> rows{{"one legal content", checked.oneOutcome}};
  for (const NamedCount& one : checked.severalOutcomes) {
    rows.push_back({one.name + " legal contents", one.count});
  }
  for (const NamedCount& one : checked.notCheckable) {
    rows.push_back({"not checkable: " + one.name, one.count});
  }
  uint64_t all = 0;
  for (const NamedCount& row : rows) {
    all += row.count;
  }
  if (all == 0) {
    return "";
  }
  TextTable table({"blocks read", ">blocks", ">share"});
  for (const NamedCount& row : rows) {
    table.add({printable(row.name), groupedNumber(row.count), shareText(row.count, all)});
  }
  return table.text(2);
}

/// The histogram in eight heights, from the least to the greatest bucket that holds something.
std::string sparkline(const LatencyFigures& figures) {
  constexpr std::array<const char*, 8> heights{"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  uint64_t most = 0;
  for (const auto& bucket : figures.buckets) {
    most = std::max(most, bucket.second);
  }
  std::string line;
  for (const auto& [bound, count] : figures.buckets) {
    const auto height = static_cast<double>(count) / static_cast<double>(most) * (heights.size() - 1);
    line += count == 0 ? " " : heights[static_cast<size_t>(height)];
  }
  return line;
}

std::string latencyText(const std::vector<LatencyFigures>& latency, const TextStyle& style) {
  TextTable table({"latency in us", ">count", ">min", ">mean", ">p50", ">p90", ">p99", ">p99.9", ">max"});
  TextTable plots({"histogram", ">from us", "", ">to us"});
  for (const LatencyFigures& one : latency) {
    std::array<char, 32> mean{};
    std::snprintf(mean.data(), mean.size(), "%.1f", one.meanUs);
    table.add({printable(one.kind), groupedNumber(one.count), groupedNumber(one.minUs), mean.data(),
               groupedNumber(one.p50Us), groupedNumber(one.p90Us), groupedNumber(one.p99Us), groupedNumber(one.p999Us),
               groupedNumber(one.maxUs)});
    if (!one.buckets.empty() && one.buckets.size() + 40 <= style.columns) {
      plots.add({printable(one.kind), groupedNumber(one.buckets.front().first), sparkline(one),
                 groupedNumber(one.buckets.back().first)});
    }
  }
  return (table.empty() ? "" : table.text(2)) + (plots.empty() ? "" : plots.text(2));
}

std::string injectionsText(const std::vector<InjectedFault>& injections) {
  TextTable table({"injected fault", ">command", "kind", ">LBA", ">blocks", ">altered", ">delivered"});
  for (const InjectedFault& one : injections) {
    table.add({printable(one.what), groupedNumber(one.command), printable(one.kind), std::to_string(one.lba),
               groupedNumber(one.blocks), groupedNumber(one.alteredBlocks), groupedNumber(one.delivered)});
  }
  return table.empty() ? "" : table.text(2);
}

}  // namespace

std::string driveSection(const DriveOfResult& drive, const TextStyle& style) {
  std::string text =
      "Drive " + printable(drive.name) + ": " + printable(drive.verdict.empty() ? drive.status : drive.verdict);
  text = (drive.status == "clean" ? text : alarming(text, style)) + '\n';
  text += wrapText(printable(drive.address) + "; " + printable(drive.description), style.columns, 2);
  if (drive.endLba != 0) {
    text += "  LBAs " + std::to_string(drive.firstLba) + ".." + std::to_string(drive.endLba) + " of " +
            std::to_string(drive.blocks) + ", " + std::to_string(drive.blockSize) + "-byte blocks, " +
            elapsedText(drive.elapsedMs) + '\n';
  }
  text += commandsText(drive) + amountsText(drive);
  const std::string counts = listed(drive.commandCounts);
  const std::string events = listed(drive.events);
  text += counts.empty() ? "" : "  of the commands: " + counts + '\n';
  text += events.empty() ? "" : "  events: " + events + '\n';
  text += drive.checked ? coverageText(*drive.checked) : "";
  text += latencyText(drive.latency, style);
  return text + injectionsText(drive.injections);
}

}  // namespace corvane::host::report

#include "host/report/RunFolder.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>

#include "host/report/ReportError.h"
#include "host/report/ResultDocument.h"

namespace corvane::host::report {
namespace {

namespace fs = std::filesystem;

constexpr uintmax_t mostResultBytes = 256U << 20;
constexpr const char* usualName = "result.json";

/// Nothing for what is no regular file, cannot be opened, or is longer than that.
std::optional<std::string> contentOf(const fs::path& path, uintmax_t mostBytes) {
  std::error_code error;
  if (!fs::is_regular_file(path, error) || fs::file_size(path, error) > mostBytes || error) {
    return std::nullopt;
  }
  std::ifstream stream(path, std::ios::binary);
  std::string text{std::istreambuf_iterator<char>(stream), {}};
  return stream.bad() || !stream.is_open() ? std::nullopt : std::optional(std::move(text));
}

std::vector<fs::path> resultsIn(const fs::path& folder) {
  std::error_code error;
  std::vector<fs::path> results;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
    if (entry->path().extension() != ".json") {
      continue;
    }
    if (const auto text = contentOf(entry->path(), mostResultBytes); text && looksLikeResult(*text)) {
      results.push_back(entry->path());
    }
  }
  if (error) {
    throw ReportError("the folder '" + folder.string() + "' cannot be read: " + error.message());
  }
  std::sort(results.begin(), results.end());
  return results;
}

fs::path resultIn(const fs::path& folder) {
  std::error_code ignored;
  if (fs::exists(folder / usualName, ignored)) {
    return folder / usualName;
  }
  const std::vector<fs::path> results = resultsIn(folder);
  if (results.empty()) {
    throw ReportError("the folder '" + folder.string() +
                      "' holds no result of a run; give the folder or the file that 'corvane run' named as its output");
  }
  if (results.size() > 1) {
    std::string names;
    for (const fs::path& result : results) {
      names += (names.empty() ? "" : ", ") + result.filename().string();
    }
    throw ReportError("the folder '" + folder.string() + "' holds several results: " + names +
                      "; which one? Give its path");
  }
  return results.front();
}

bool hasEnding(const std::string& name, std::string_view ending) {
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  std::string_view rest = name;
  const size_t dot = rest.rfind('.');
  if (dot != std::string_view::npos && dot + 1 < rest.size() &&
      std::all_of(rest.begin() + static_cast<std::ptrdiff_t>(dot) + 1, rest.end(), isDigit)) {
    rest = rest.substr(0, dot);
  }
  return rest.ends_with(ending);
}

}  // namespace

RunFolder::RunFolder(const std::string& fileOrFolder) : resultFile_(fileOrFolder) {
  std::error_code error;
  const fs::file_status status = fs::status(fileOrFolder, error);
  if (!fs::exists(status)) {
    throw ReportError("'" + fileOrFolder + "' is not there; give the folder or the result.json of a run");
  }
  if (fs::is_directory(status)) {
    resultFile_ = resultIn(fileOrFolder).string();
  }
  auto text = contentOf(resultFile_, mostResultBytes);
  if (!text) {
    throw ReportError("'" + resultFile_ + "' cannot be read as a file; give the folder or the result.json of a run");
  }
  resultText_ = std::move(*text);
}

fs::path RunFolder::folder() const {
  const fs::path parent = fs::path(resultFile_).parent_path();
  return parent.empty() ? fs::path(".") : parent;
}

std::optional<fs::path> RunFolder::find(const std::string& named) const {
  const fs::path path = named;
  const std::array<fs::path, 3> places{folder() / path, folder() / path.filename(), path};
  const auto* found = std::find_if(places.begin(), places.end(), [](const fs::path& place) {
    std::error_code ignored;
    return fs::is_regular_file(place, ignored);
  });
  return found == places.end() ? std::nullopt : std::optional(*found);
}

std::optional<std::string> RunFolder::read(const std::string& named, uintmax_t mostBytes, std::string& problem) const {
  const auto path = find(named);
  if (!path) {
    problem = "'" + named + "' is not there any more";
    return std::nullopt;
  }
  auto text = contentOf(*path, mostBytes);
  if (!text) {
    problem = "'" + path->string() + "' cannot be read or is longer than " + std::to_string(mostBytes) + " bytes";
  }
  return text;
}

EvidenceFiles evidenceFiles(const std::vector<std::string>& files) {
  EvidenceFiles sorted;
  for (const std::string& file : files) {
    if (hasEnding(file, ".txt") && sorted.trace.empty()) {
      sorted.trace = file;
    } else if (hasEnding(file, ".bin")) {
      std::string& place = sorted.drive.empty() ? sorted.drive : sorted.reference;
      place = place.empty() ? file : place;
    }
  }
  return sorted;
}

}  // namespace corvane::host::report

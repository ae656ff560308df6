#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace corvane::host {

/// The known name that somebody probably meant; empty when none is near.
///
/// The case of letters does not count. Near is: up to a third of the wrong name's letters (at least two) changed, added
/// or left out. The first of several equally near names wins.
std::string nearestName(std::string_view wrong, const std::vector<std::string>& known);

/// "; did you mean 'NAME'?", or an empty text when no known name is near.
std::string didYouMean(std::string_view wrong, const std::vector<std::string>& known);

}  // namespace corvane::host

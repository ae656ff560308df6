#pragma once

#include <cstddef>
#include <string_view>

namespace corvane::host {

/// How deep the documents that this program reads may nest objects and lists; its own nest less than ten deep.
inline constexpr size_t mostJsonNesting = 64;

/// Whether a text of JSON nests objects and lists deeper than that. Asked before a document is read: what prints or
/// copies one goes as deep into the stack as the document nests. Of a text that is no JSON the answer means nothing.
bool nestsTooDeep(std::string_view json);

}  // namespace corvane::host

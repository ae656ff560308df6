#include "tests/model/StandardStreams.h"

#include <new>
#include <utility>

namespace refmodel {

namespace {

ssize_t append(void* text, const char* bytes, size_t count) {
  static_cast<std::string*>(text)->append(bytes, count);
  return static_cast<ssize_t>(count);
}

FILE* streamInto(std::string& text) {
  cookie_io_functions_t functions{};
  functions.write = append;
  FILE* stream = fopencookie(&text, "w", functions);
  if (stream == nullptr) {
    throw std::bad_alloc();
  }
  // Nothing is kept back, so that looking costs nothing when nothing came, which is the rule.
  std::setvbuf(stream, nullptr, _IONBF, 0);
  return stream;
}

}  // namespace

StandardStreams::Appender::int_type StandardStreams::Appender::overflow(int_type c) {
  text_.push_back(static_cast<char>(c));
  return c;
}

std::streamsize StandardStreams::Appender::xsputn(const char* bytes, std::streamsize count) {
  text_.append(bytes, static_cast<std::size_t>(count));
  return count;
}

// The C library's standard streams are variables, and printf looks at them each time.
StandardStreams::StandardStreams()
    : realOutput_(stdout), realErrors_(stderr), realCerr_(std::cerr.rdbuf()), cerrFlags_(std::cerr.flags()) {
  stdout = streamInto(output_);
  stderr = streamInto(errors_);
  std::cerr.rdbuf(&errorAppender_);
}

StandardStreams::~StandardStreams() {
  std::fclose(stdout);
  std::fclose(stderr);
  stdout = realOutput_;
  stderr = realErrors_;
  std::cerr.rdbuf(realCerr_);
  std::cerr.flags(cerrFlags_);
}

std::string StandardStreams::takeOutput() { return std::exchange(output_, {}); }

std::string StandardStreams::takeErrors() { return std::exchange(errors_, {}); }

}  // namespace refmodel

#pragma once

#include <cstdio>
#include <iostream>
#include <streambuf>
#include <string>

namespace refmodel {

/// Takes what is written to standard output and to standard error, by C and by C++, while it lives. Without files and
/// system calls: millions of findings are read from it.
class StandardStreams {
 public:
  StandardStreams();
  ~StandardStreams();
  StandardStreams(const StandardStreams&) = delete;
  StandardStreams& operator=(const StandardStreams&) = delete;

  /// What came since the last call.
  std::string takeOutput();
  std::string takeErrors();

  /// Where standard output goes without this, for who reports while it lives.
  FILE* realOutput() const { return realOutput_; }

 private:
  class Appender : public std::streambuf {
   public:
    explicit Appender(std::string& text) : text_(text) {}

   protected:
    int_type overflow(int_type c) override;
    std::streamsize xsputn(const char* bytes, std::streamsize count) override;

   private:
    std::string& text_;
  };

  std::string output_;
  std::string errors_;
  Appender errorAppender_{errors_};
  FILE* realOutput_;
  FILE* realErrors_;
  std::streambuf* realCerr_;
  std::ios_base::fmtflags cerrFlags_;
};

}  // namespace refmodel

// Helpers for the app tests: a fixed time, a FILE* that writes into memory, and small
// shell scripts that stand in for the velmarbs tool.

#ifndef VELMAR_TESTS_APP_APP_TEST_SUPPORT_H_
#define VELMAR_TESTS_APP_APP_TEST_SUPPORT_H_

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string>

#include "app/task_helper.h"

namespace velmar::app::testing {

// A fixed local time for time-stamp texts: 2009/03/14 09:05:07.
inline std::tm march14() {
  std::tm t{};
  t.tm_year = 109;
  t.tm_mon = 2;
  t.tm_mday = 14;
  t.tm_hour = 9;
  t.tm_min = 5;
  t.tm_sec = 7;
  return t;
}

class MemoryStream {
 public:
  MemoryStream() : file_(open_memstream(&buffer_, &length_)) {}
  ~MemoryStream() {
    std::fclose(file_);
    std::free(buffer_);
  }
  MemoryStream(const MemoryStream&) = delete;
  MemoryStream& operator=(const MemoryStream&) = delete;

  FILE* file() const { return file_; }
  std::string text() {
    std::fflush(file_);
    return std::string(buffer_, length_);
  }

 private:
  char* buffer_ = nullptr;
  size_t length_ = 0;
  FILE* file_;
};

// Echo streams that the tests can read back.
struct CapturedEcho {
  MemoryStream out;
  MemoryStream err;
  EchoStreams streams() const { return {out.file(), err.file()}; }
};

// Writes an executable "#!/bin/sh" script at `path` and returns the path.
inline std::string writeScript(const std::string& path, const std::string& body) {
  std::ofstream(path) << "#!/bin/sh\n" << body << "\n";
  ::chmod(path.c_str(), 0755);
  return path;
}

}  // namespace velmar::app::testing

#endif  // VELMAR_TESTS_APP_APP_TEST_SUPPORT_H_

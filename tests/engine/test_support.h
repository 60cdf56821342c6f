// Small helpers the engine tests share: literals and the logger's history.

#ifndef VELMAR_TESTS_ENGINE_TEST_SUPPORT_H_
#define VELMAR_TESTS_ENGINE_TEST_SUPPORT_H_

#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <string>
#include <utility>

#include "engine/log_object.h"
#include "base/value.h"
#include "tests/base/value_literals.h"

namespace velmar::testing {

inline const std::string& logText() { return LogObject::sharedLogger().historicalLog(); }
// The log so far; the next test phase starts with an empty one.
inline std::string takeLog() {
  std::string text = logText();
  LogObject::sharedLogger().setHistoricalLog("");
  return text;
}
inline bool logged(const std::string& line) { return logText().find(line + "\n") != std::string::npos; }

inline void writeFile(const std::string& path, const std::string& contents = "x") {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << contents;
}

}  // namespace velmar::testing

#endif  // VELMAR_TESTS_ENGINE_TEST_SUPPORT_H_

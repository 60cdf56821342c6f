// Helpers for the widget tests: waiting on the event loop, a recorder for
// the system log, and reading a file back.

#ifndef VELMAR_TESTS_UI_UI_TEST_SUPPORT_H_
#define VELMAR_TESTS_UI_UI_TEST_SUPPORT_H_

#include <QTest>
#include <fstream>
#include <functional>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "app/system_log.h"

namespace velmar::app::testing {

// Runs the event loop until `done` or 20 seconds have passed.
inline bool waitFor(const std::function<bool()>& done) { return QTest::qWaitFor(done, 20000); }

inline std::string fileText(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// Keeps what would have gone to the system log.
class SystemLogRecorder {
 public:
  TextSink sink() {
    return [this](const std::string& text) {
      std::lock_guard lock(mutex_);
      lines_.push_back(text);
    };
  }
  std::vector<std::string> lines() {
    std::lock_guard lock(mutex_);
    return lines_;
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> lines_;
};

}  // namespace velmar::app::testing

#endif  // VELMAR_TESTS_UI_UI_TEST_SUPPORT_H_

// The system log, for the front end's failures that the user is not shown
// (query failures, an unreadable log file, a mail that could not be
// prepared). Classes that write to it take a TextSink so tests can watch.

#ifndef VELMAR_APP_SYSTEM_LOG_H_
#define VELMAR_APP_SYSTEM_LOG_H_

#include <functional>
#include <string>

namespace velmar::app {

// Something that takes text: the log window's addString, the system log, a
// test's recorder.
using TextSink = std::function<void(const std::string&)>;

// One entry in the system log (syslog), the text as it stands.
void writeSystemLog(const std::string& text);

}  // namespace velmar::app

#endif  // VELMAR_APP_SYSTEM_LOG_H_

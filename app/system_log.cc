#include "app/system_log.h"

#include <syslog.h>

namespace velmar::app {

void writeSystemLog(const std::string& text) {
  // Through "%s": the text may hold '%' from paths and tool output.
  syslog(LOG_USER | LOG_ERR, "%s", text.c_str());
}

}  // namespace velmar::app

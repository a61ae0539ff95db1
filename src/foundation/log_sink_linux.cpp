// The system log is syslog(3); journald collects it where systemd runs.

#include <syslog.h>
#include <unistd.h>

#include <mutex>
#include <string>

#include "foundation/log_sink.h"

namespace halyard::platform {

void writeSystemLog(std::string_view line, LogPriority priority) {
  static std::once_flag opened;
  std::call_once(opened, [] { ::openlog("halyard-backgrounder", LOG_PID, LOG_USER); });
  const std::string text(line);
  ::syslog(priority == LogPriority::Error ? LOG_ERR : LOG_NOTICE, "%s", text.c_str());
}

bool standardErrorIsTerminal() { return ::isatty(STDERR_FILENO) == 1; }

}  // namespace halyard::platform

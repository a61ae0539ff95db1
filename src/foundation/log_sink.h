#pragma once
// The one sink for this program's log lines. A line goes to the system log
// (ident "halyard-backgrounder"), and also to standard error when standard
// error is a terminal or when that has been switched on (`--log-stderr`).
// Tests install a LogCapture, which takes every line instead.
//
//   logLine("<Error:> Exception caught in scheduledMonths", LogPriority::Error);

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace halyard {

enum class LogPriority { Notice, Error };

// Writes one line (without a trailing newline).
void logLine(std::string_view line, LogPriority priority = LogPriority::Notice);

// Also copy every line to standard error, even when it is not a terminal.
void setLogToStandardError(bool enabled);

// While a capture is alive, lines go to it and nowhere else. One capture at
// a time; it may be read from any thread.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<std::string> lines() const;

 private:
  friend void logLine(std::string_view, LogPriority);
  void add(std::string_view line);

  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

namespace platform {
// The system-log and terminal calls behind the sink (log_sink_linux.cpp).
void writeSystemLog(std::string_view line, LogPriority priority);
bool standardErrorIsTerminal();
}  // namespace platform

}  // namespace halyard

#include "foundation/log_sink.h"

#include <atomic>
#include <cstdio>

namespace halyard {
namespace {

std::mutex gCaptureMutex;
LogCapture* gCapture = nullptr;
std::atomic<bool> gToStandardError{false};

}  // namespace

void logLine(std::string_view line, LogPriority priority) {
  {
    std::lock_guard hold(gCaptureMutex);
    if (gCapture) {
      gCapture->add(line);
      return;
    }
  }
  platform::writeSystemLog(line, priority);
  if (gToStandardError || platform::standardErrorIsTerminal()) {
    std::fprintf(stderr, "%.*s\n", static_cast<int>(line.size()), line.data());
  }
}

void setLogToStandardError(bool enabled) { gToStandardError = enabled; }

LogCapture::LogCapture() {
  std::lock_guard hold(gCaptureMutex);
  gCapture = this;
}

LogCapture::~LogCapture() {
  std::lock_guard hold(gCaptureMutex);
  if (gCapture == this) gCapture = nullptr;
}

std::vector<std::string> LogCapture::lines() const {
  std::lock_guard hold(mutex_);
  return lines_;
}

void LogCapture::add(std::string_view line) {
  std::lock_guard hold(mutex_);
  lines_.emplace_back(line);
}

}  // namespace halyard

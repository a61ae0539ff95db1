#pragma once
// The collaborators a log talks to, as small interfaces: the clock and zone
// its time stamps come from, the document that owns it, the window that
// shows it, and the observers its change notifications reach. The core
// defines them; the application (and tests) implement them.

#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include <cctz/time_zone.h>

#include "foundation/dates.h"

namespace halyard {

class GenericLog;

// "Now" and the user's zone, in which time stamps are described.
class LogClock {
 public:
  virtual ~LogClock() = default;
  virtual TimeInterval now() const = 0;
  virtual cctz::time_zone zone() const = 0;
};

// The machine's clock and the process's local zone (log_clock_linux.cpp).
std::shared_ptr<const LogClock> systemLogClock();

// The document a log belongs to: told of each change to the log's settings.
class LogDocument {
 public:
  static constexpr int kChangeDone = 0;
  virtual ~LogDocument() = default;
  virtual void updateChangeCount(int change) = 0;
};

// The window that shows a log.
class LogWindowController {
 public:
  virtual ~LogWindowController() = default;
  virtual void recordWindowSizeAndPos() = 0;
};

// Told of a log's notifications, on the thread that posted them, outside
// the log's lock (so it may read the log, but must move to the main thread
// itself to touch a user interface).
class LogObserver {
 public:
  virtual ~LogObserver() = default;
  virtual void logNotification(std::string_view name, const GenericLog& log) = 0;
};

// The process's default centre for log notifications, or a private one.
class LogNotificationCenter {
 public:
  static std::shared_ptr<LogNotificationCenter> defaultCenter();

  void addObserver(std::shared_ptr<LogObserver> observer);
  void removeObserver(const LogObserver* observer);
  // Calls every observer registered now; an observer removed meanwhile
  // still hears this one notification.
  void post(std::string_view name, const GenericLog& log) const;

 private:
  mutable std::mutex mutex_;
  std::vector<std::shared_ptr<LogObserver>> observers_;
};

}  // namespace halyard

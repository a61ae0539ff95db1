#pragma once
// Fakes of a log's collaborators: a fixed clock in UTC, a document that
// counts its changes, and an observer that keeps every notification name it hears.

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "logging/generic_log.h"

namespace halyard::testing_support {

class FixedClock final : public LogClock {
 public:
  explicit FixedClock(TimeInterval now) : _now(now) {}
  TimeInterval now() const override { return _now; }
  cctz::time_zone zone() const override { return cctz::utc_time_zone(); }

 private:
  TimeInterval _now;
};

class CountingDocument final : public LogDocument {
 public:
  void updateChangeCount(int change) override {
    if (change == kChangeDone) ++changes;
  }
  std::atomic<int> changes{0};
};

class RecordingObserver final : public LogObserver {
 public:
  void logNotification(std::string_view name, const GenericLog&) override {
    std::lock_guard guard(mutex_);
    _names.emplace_back(name);
  }
  std::vector<std::string> names() const {
    std::lock_guard guard(mutex_);
    return _names;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> _names;
};

// A log on its own notification centre, observed, at 2001-01-01 00:00:10 UTC.
struct ObservedLog {
  ObservedLog() {
    center->addObserver(observer);
    log = std::make_shared<GenericLog>(environment());
  }
  GenericLog::Environment environment() const { return {std::make_shared<FixedClock>(10.0), center}; }

  std::shared_ptr<LogNotificationCenter> center = std::make_shared<LogNotificationCenter>();
  std::shared_ptr<RecordingObserver> observer = std::make_shared<RecordingObserver>();
  std::shared_ptr<GenericLog> log;
};

}  // namespace halyard::testing_support

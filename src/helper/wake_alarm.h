#pragma once
// The one RTC wake alarm and the tool's record of the alarm it set itself.
// The record lets a cancel clear only an alarm this tool placed: an alarm
// someone else set (another program, the administrator) is left alone.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "foundation/unique_handle.h"

namespace halyard::wake {

inline constexpr char kRtcAlarmPath[] = "/sys/class/rtc/rtc0/wakealarm";
inline constexpr char kOwnedAlarmRecordPath[] = "/var/lib/halyard/wake-alarm";

// The files the tool touches, and nothing else.
struct AlarmFiles {
  std::string alarmPath = kRtcAlarmPath;
  std::string recordPath = kOwnedAlarmRecordPath;
};

// Reads the pending alarm (Unix seconds); nullopt when none is set. Errors
// are errno values.
struct AlarmRead {
  int error = 0;
  std::optional<std::int64_t> alarm;
};
AlarmRead readAlarm(const std::string& path);

// Sets (seconds > 0) or clears (0) the alarm; returns 0 or an errno value.
int writeAlarm(const std::string& path, std::int64_t unixSeconds);

// The alarm this tool recorded, trusted only when the record belongs to the
// tool's own effective user and is a regular file.
std::optional<std::int64_t> readOwnedAlarm(const std::string& recordPath);
int writeOwnedAlarm(const std::string& recordPath, std::int64_t unixSeconds);
void forgetOwnedAlarm(const std::string& recordPath);

// Each user's wake is recorded apart, at "<recordPath>.<uid>": the one RTC
// alarm is the earliest of them, so one user's wake never replaces an
// earlier one of another's, and a cancel takes back only the caller's.
std::string userRecordPath(const std::string& recordPath, unsigned uid);
// Every user's recorded wake (the record of an older version, at
// `recordPath` itself, among them).
std::vector<std::int64_t> recordedWakes(const std::string& recordPath);

// The tool's lock, beside its record, held while it lives. Runs at once (two
// users' agents going to sleep together) would otherwise each take the
// other's alarm for someone else's, and leave one that nothing cancels. The
// lock file is the tool's owner's alone (0600): no user can hold it.
class AlarmLock {
 public:
  explicit AlarmLock(const std::string& recordPath);
  int error() const { return error_; }

 private:
  UniqueFd fd_;
  int error_ = 0;
};

}  // namespace halyard::wake

#include "helper/wake_tool.h"

#include <cerrno>

#include "helper/wake_request.h"

namespace halyard::wake {
namespace {

// Clears the pending alarm only when it is the one this tool recorded. The
// alarm is read first in any case, so that a cancel also tells whether the
// RTC can wake the machine at all.
int cancelOwnAlarm(const AlarmFiles& files) {
  const AlarmRead pending = readAlarm(files.alarmPath);
  if (pending.error) return pending.error;
  const auto owned = readOwnedAlarm(files.recordPath);
  if (!owned) return 0;
  if (pending.alarm == owned) {
    if (int error = writeAlarm(files.alarmPath, 0)) return error;
  }
  forgetOwnedAlarm(files.recordPath);
  return 0;
}

int schedulePowerOn(const AlarmFiles& files, std::int64_t when) {
  const AlarmRead pending = readAlarm(files.alarmPath);
  if (pending.error) return pending.error;
  if (pending.alarm && pending.alarm != readOwnedAlarm(files.recordPath)) return EBUSY;
  // The RTC refuses a new alarm while one is pending, so clear ours first.
  if (pending.alarm) {
    if (int error = writeAlarm(files.alarmPath, 0)) return error;
  }
  if (int error = writeOwnedAlarm(files.recordPath, when)) return error;
  if (int error = writeAlarm(files.alarmPath, when)) {
    forgetOwnedAlarm(files.recordPath);
    return error;
  }
  return 0;
}

}  // namespace

int handleWakeRequest(std::string_view input, std::int64_t nowUnixSeconds, const AlarmFiles& files) {
  const auto request = readWakeRequest(input);
  if (!request) return input.size() > kMaxRequestBytes ? E2BIG : EINVAL;
  if (request->command == Command::SchedulePowerOn && !checkWakeDate(request->powerOnUnixSeconds, nowUnixSeconds)) {
    return ERANGE;
  }
  const AlarmLock lock(files.recordPath);
  if (lock.error()) return lock.error();
  if (request->command == Command::CancelOwnEvents) return cancelOwnAlarm(files);
  return schedulePowerOn(files, request->powerOnUnixSeconds);
}

}  // namespace halyard::wake

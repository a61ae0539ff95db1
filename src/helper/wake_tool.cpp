#include "helper/wake_tool.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <vector>

#include "helper/wake_request.h"

namespace halyard::wake {
namespace {

// The wake the RTC alarm should hold: the earliest recorded one still ahead.
std::optional<std::int64_t> earliestAhead(const std::vector<std::int64_t>& wakes, std::int64_t now) {
  std::optional<std::int64_t> earliest;
  for (const std::int64_t wake : wakes) {
    if (wake > now && (!earliest || wake < *earliest)) earliest = wake;
  }
  return earliest;
}

// Whether the pending alarm is one this tool placed, for any user.
bool placedByTheTool(const AlarmFiles& files, std::optional<std::int64_t> pending) {
  const auto wakes = recordedWakes(files.recordPath);
  return pending && std::find(wakes.begin(), wakes.end(), *pending) != wakes.end();
}

// Puts the alarm at the earliest recorded wake ahead, or clears it. The RTC
// refuses a new alarm while one is pending, so that one is cleared first.
int settleAlarm(const AlarmFiles& files, std::optional<std::int64_t> pending, std::int64_t now) {
  const auto target = earliestAhead(recordedWakes(files.recordPath), now);
  if (pending == target) return 0;
  if (pending) {
    if (int error = writeAlarm(files.alarmPath, 0)) return error;
  }
  return target ? writeAlarm(files.alarmPath, *target) : 0;
}

// Takes back the caller's wake. The alarm is read first in any case, so that
// a cancel also tells whether the RTC can wake the machine at all; an alarm
// someone else set (another program, the administrator) is left alone.
int cancelOwnAlarm(const AlarmFiles& files, unsigned uid, std::int64_t now) {
  const AlarmRead pending = readAlarm(files.alarmPath);
  if (pending.error) return pending.error;
  const bool ours = placedByTheTool(files, pending.alarm);
  forgetOwnedAlarm(userRecordPath(files.recordPath, uid));
  forgetOwnedAlarm(files.recordPath);  // the one record of an older version
  return ours ? settleAlarm(files, pending.alarm, now) : 0;
}

int schedulePowerOn(const AlarmFiles& files, unsigned uid, std::int64_t when, std::int64_t now) {
  const AlarmRead pending = readAlarm(files.alarmPath);
  if (pending.error) return pending.error;
  if (pending.alarm && !placedByTheTool(files, pending.alarm)) return EBUSY;
  const std::string record = userRecordPath(files.recordPath, uid);
  if (int error = writeOwnedAlarm(record, when)) return error;
  if (int error = settleAlarm(files, pending.alarm, now)) {
    forgetOwnedAlarm(record);
    return error;
  }
  return 0;
}

}  // namespace

int handleWakeRequest(std::string_view input, std::int64_t nowUnixSeconds, const AlarmFiles& files, unsigned uid) {
  const auto request = readWakeRequest(input);
  if (!request) return input.size() > kMaxRequestBytes ? E2BIG : EINVAL;
  if (request->command == Command::SchedulePowerOn && !checkWakeDate(request->powerOnUnixSeconds, nowUnixSeconds)) {
    return ERANGE;
  }
  const AlarmLock lock(files.recordPath);
  if (lock.error()) return lock.error();
  if (request->command == Command::CancelOwnEvents) return cancelOwnAlarm(files, uid, nowUnixSeconds);
  return schedulePowerOn(files, uid, request->powerOnUnixSeconds, nowUnixSeconds);
}

}  // namespace halyard::wake

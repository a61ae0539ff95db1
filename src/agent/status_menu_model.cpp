#include "agent/status_menu_model.h"

#include "foundation/strings_table.h"
#include "schedule/minute_check.h"

namespace halyard::agent {

namespace {

// The start of the minute after `now`, or `now` itself at second 0. Only the
// whole seconds are taken off, as the calendar's second-of-minute counts them.
TimeInterval startOfComingMinute(TimeInterval now, const cctz::time_zone& zone) {
  const SplitInstant split = splitInstant(now);
  const int second = cctz::convert(split.seconds, zone).second();
  if (second == 0) return now;
  return now + 60 - second;
}

std::string formatMenuDate(TimeInterval date, const std::string& format, const cctz::time_zone& zone) {
  return cctz::format(format, splitInstant(date).seconds, zone);
}

std::string titleOf(const KSScheduledItem& item) { return item.description().value_or(localizedString("NO_DESC")); }

StatusMenuEntry noneEntry() { return {localizedString("NONE"), false, false, nullptr}; }

std::vector<StatusMenuEntry> nextRunEntries(const StatusMenuInputs& in) {
  if (!in.items || !in.schedulerActive) return {noneEntry()};
  const auto next = nextScheduledItemInfo(*in.items, in.now, in.zone, in.byMinuteCheck);
  if (!next) return {noneEntry()};
  return {{titleOf(*next->item), false, false, nullptr},
          {formatMenuDate(next->date, in.dateFormat, in.zone), false, false, nullptr}};
}

std::vector<StatusMenuEntry> documentEntries(const StatusMenuInputs& in) {
  std::vector<StatusMenuEntry> entries;
  if (in.items) {
    for (const auto& item : *in.items) {
      const auto& path = item->documentPathName();
      const bool present = path && in.fileExists && in.fileExists(*path);
      entries.push_back({titleOf(*item), present, item->active(), item});
    }
  }
  if (entries.empty()) entries.push_back(noneEntry());
  return entries;
}

}  // namespace

std::optional<NextScheduledItemInfo> nextScheduledItemInfo(const ScheduleItems& items, TimeInterval now,
                                                           const cctz::time_zone& zone, bool byMinuteCheck) {
  const TimeInterval start = startOfComingMinute(now, zone);
  std::optional<NextScheduledItemInfo> best;
  TimeInterval bestDate = kDistantFuture;
  for (const auto& item : items) {
    const auto date = byMinuteCheck ? MinuteCheckSearch(*item).next(start, kDistantFuture, zone)
                                    : item->nextScheduledDateAfter(start, std::nullopt, now, zone);
    if (date && bestDate > *date) {
      bestDate = *date;
      best = NextScheduledItemInfo{*date, item};
    }
  }
  return best;
}

StatusMenuModel makeStatusMenuModel(const StatusMenuInputs& in) {
  StatusMenuModel model;
  model.nextRun = nextRunEntries(in);
  model.documents = documentEntries(in);
  model.toggleTitle = localizedString(in.schedulerActive ? "SCHED_SUSPEND" : "RESUME_SUSPEND");
  model.stateTitle = localizedString(in.schedulerActive ? "SCHED_STATE_ACTIVE" : "SCHED_STATE_SUSPENDED");
  return model;
}

}  // namespace halyard::agent

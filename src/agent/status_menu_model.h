#pragma once
// StatusMenuModel: what the status menu shows, made from the schedule and the
// scheduler state each time the menu opens: the next run (the submenu of the
// entry tagged 101), the scheduled documents (102), and the titles of the
// suspend/resume command (104) and of the state line (105). The tray draws
// it as it stands; tests read it without any widget.
//
//   auto model = makeStatusMenuModel({items, active, clock.now(), clock.zone(), dateFormat, fileExists});

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <cctz/time_zone.h>

#include "agent/scheduled_items.h"
#include "foundation/dates.h"

namespace halyard::agent {

// The tags of the menu's fixed entries that the model fills or retitles.
namespace menu_tags {
inline constexpr int kNextRun = 101;
inline constexpr int kDocuments = 102;
inline constexpr int kToggleScheduler = 104;
inline constexpr int kSchedulerState = 105;
}  // namespace menu_tags

// The next run of the schedule: its date and the item that runs then.
struct NextScheduledItemInfo {
  TimeInterval date = 0;
  std::shared_ptr<KSScheduledItem> item;
};

// The earliest next run of any item, asked from the start of the coming
// minute (from `now` itself when it is at second 0). Ties keep the item
// earlier in the array; absent when no item has a run. `byMinuteCheck`: the
// next hand-over by the minute check (the exactly-once mode) instead of the
// next run date.
std::optional<NextScheduledItemInfo> nextScheduledItemInfo(const ScheduleItems& items, TimeInterval now,
                                                           const cctz::time_zone& zone, bool byMinuteCheck = false);

// One line of a submenu. A document line carries its item; a line without
// one is information only.
struct StatusMenuEntry {
  std::string title;
  bool enabled = false;
  bool checked = false;
  std::shared_ptr<KSScheduledItem> item;
};

struct StatusMenuModel {
  std::vector<StatusMenuEntry> nextRun;    // submenu 101
  std::vector<StatusMenuEntry> documents;  // submenu 102
  std::string toggleTitle;                 // entry 104
  std::string stateTitle;                  // entry 105
};

struct StatusMenuInputs {
  const std::optional<ScheduleItems>& items;  // absent: no schedule file
  bool schedulerActive = true;
  TimeInterval now = 0;
  const cctz::time_zone& zone;
  std::string dateFormat;  // a %-directive format, as preferredDateFormatter() gives
  std::function<bool(const std::string& path)> fileExists;
  bool byMinuteCheck = false;  // the exactly-once mode: next run by the minute check
};

StatusMenuModel makeStatusMenuModel(const StatusMenuInputs& in);

}  // namespace halyard::agent

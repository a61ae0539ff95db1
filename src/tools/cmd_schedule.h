#pragma once
// `halyardctl schedule`: the pieces of the command shared by its files —
// its options, the friendly selection-set forms, and its output.

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <cctz/time_zone.h>

#include "foundation/expected.h"
#include "schedule/schedule_file.h"
#include "schedule/selection_set_text.h"
#include "tools/commands.h"

namespace halyard::tools::schedule {

// What `add` and `edit` change; absent fields stay as they are.
struct ItemEdits {
  std::optional<std::string> description;
  std::optional<std::string> document;  // absolute path
  std::optional<ScheduleType> type;
  std::optional<TimeInterval> startDate;
  std::optional<bool> active;
  std::array<std::optional<std::string>, kSetCount> sets;
  bool any() const;
};

struct Options {
  std::string action;
  std::vector<std::string> operands;
  std::optional<std::string> file;
  bool json = false;
  std::optional<int> count;
  ItemEdits edits;
};

// Parses `schedule ACTION [operands] [options]`; `zone` reads --start-date.
Expected<Options> parseOptions(const Arguments& args, const cctz::time_zone& zone);

// Applies edits to an item (the document through its alias).
void applyEdits(const ItemEdits& edits, KSScheduledItem& item, const cctz::time_zone& zone);

// Output, in the user's zone.
void printItems(const ScheduleItems& items, std::size_t first, std::size_t last, bool json, bool detailed,
                const cctz::time_zone& zone);
// What `schedule next` lists: the coming runs of one item (index given) or
// of the whole schedule.
struct NextRunsRequest {
  std::optional<std::size_t> index;
  int count = 10;
  bool json = false;
  bool exactlyOnce = false;  // the agent's mode: a repeated minute runs at its first pass only
};
void printNextRuns(const ScheduleItems& items, const NextRunsRequest& request, TimeInterval now,
                   const cctz::time_zone& zone);

}  // namespace halyard::tools::schedule

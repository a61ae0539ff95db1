// `halyardctl schedule list|show|add|edit|remove|enable|disable|next`: reads
// and edits the schedule data file. A command that fails leaves the file as
// it was: everything is checked before the file is replaced, and the file is
// replaced atomically. Dates are shown and read in the user's zone.

#include <cmath>
#include <filesystem>
#include <iostream>

#include "fileservices/document_alias.h"
#include "foundation/file_io.h"
#include "tools/cmd_schedule.h"
#include "tools/commands.h"
#include "tools/known_classes.h"
#include "tools/schedule_json.h"

namespace halyard::tools {
namespace {

using namespace schedule;

constexpr const char* kUsage =
    "usage: halyardctl schedule list|show N|add|edit N|remove N|enable N|disable N|next [N] [options]\n"
    "       halyardctl schedule import FILE.json | export --json\n"
    "  --file PATH  --json  --count K (next)\n"
    "  add/edit: --description TEXT --document PATH --type 3-7 --start-date 'YYYY-MM-DD HH:MM[:SS]'\n"
    "            --active|--inactive --months jan-mar --days-of-month 1,15 --days-of-week mon-fri\n"
    "            --hours 9-17 --minutes 0,30 (or each set as its raw string of 0 and 1)\n";

int fail(const std::string& message) {
  std::cerr << "halyardctl: " << message << "\n";
  return 1;
}

// The schedule in the file; a missing file is an empty schedule only when
// `missingIsEmpty` (for list, next and add).
Expected<ScheduleData> loadSchedule(const std::string& path, bool missingIsEmpty) {
  std::error_code error;
  if (!std::filesystem::exists(path, error)) {
    if (missingIsEmpty) return ScheduleData{nullptr, ScheduleItems{}};
    return makeError(path + ": no such schedule file");
  }
  auto bytes = readWholeFile(path);
  if (!bytes) return bytes.error();
  auto data = decodeScheduleData(*bytes, knownClasses());
  if (!data) return makeError(path + ": not a schedule file: " + data.error().describe());
  if (!data->items) data->items = ScheduleItems{};
  return data;
}

// The item number an action names (from 1).
Expected<std::size_t> itemIndex(const Options& options, std::size_t count, bool optional) {
  if (options.operands.empty() && optional) return count;  // "all"
  if (options.operands.empty()) return makeError(options.action + ": expects one item number");
  if (options.operands.size() > 1) {
    return makeError(options.action + ": expects one item number, not also '" + options.operands[1] + "'");
  }
  const std::string& text = options.operands[0];
  std::size_t number = 0;
  for (char c : text) {
    if (c < '0' || c > '9' || number > count) return makeError("'" + text + "' is not an item number");
    number = number * 10 + static_cast<std::size_t>(c - '0');
  }
  if (text.empty() || number == 0 || number > count) {
    return makeError("no item " + text + " (the schedule has " + std::to_string(count) + ")");
  }
  return number - 1;
}

std::shared_ptr<CalendarDate> dateInUserZone(TimeInterval seconds, const cctz::time_zone& zone) {
  return CalendarDate::make(seconds, TimeZone::make(zone.name(), true));
}

// `import FILE.json`: the items of the file in item form are added at the
// end of the schedule. A bad item leaves the schedule as it was (status 2).
int importItems(const Options& options, ScheduleData& data, const std::string& path, const cctz::time_zone& zone) {
  if (options.operands.size() != 1) return fail("import: expects one JSON file");
  const std::string& source = options.operands[0];
  auto text = readWholeFile(source);
  if (!text) return fail(text.error().describe());
  const CalendarClock clock = [&] { return dateInUserZone(systemNow(), zone); };
  auto imported = readScheduleJson(*text, zone, clock);
  if (!imported) {
    std::cerr << "halyardctl: schedule: " << source << ": " << imported.error().describe() << "\n";
    return 2;
  }
  data.items->insert(data.items->end(), imported->begin(), imported->end());
  if (auto written = writeScheduleFile(path, data); !written) return fail(written.error().describe());
  std::cout << "imported " << imported->size() << " item" << (imported->size() == 1 ? "" : "s") << "\n";
  return 0;
}

int runAction(const Options& options, const std::string& path, const cctz::time_zone& zone) {
  const std::string& action = options.action;
  const bool readOnly = action == "list" || action == "show" || action == "next";
  auto data = loadSchedule(
      path, action != "show" && action != "edit" && action != "remove" && action != "enable" && action != "disable");
  if (!data) return fail(data.error().describe());
  ScheduleItems& items = *data->items;
  if (action == "import") return importItems(options, *data, path, zone);
  if (action == "export") {
    if (!options.operands.empty()) return fail("export: takes no item number");
    std::cout << writeScheduleJson(items, zone);
    return 0;
  }
  if (action == "list") {
    if (!options.operands.empty()) return fail("list: takes no item number");
    printItems(items, 0, items.size(), options.json, false, zone);
    return 0;
  }
  std::size_t index = items.size();
  if (action != "add") {
    auto found = itemIndex(options, items.size(), action == "next");
    if (!found) return fail(found.error().describe());
    index = *found;
  } else if (!options.operands.empty()) {
    return fail("add: takes no item number");
  }
  if (action == "next") {
    const std::optional<std::size_t> one = index < items.size() ? std::optional(index) : std::nullopt;
    // Whole seconds: the listed dates then carry no stray fraction.
    const NextRunsRequest request{.index = one,
                                  .count = options.count.value_or(one ? 5 : 10),
                                  .json = options.json,
                                  .exactlyOnce = agentSchedulesExactlyOnce()};
    printNextRuns(items, request, std::floor(systemNow()), zone);
    return 0;
  }
  if (action == "add") items.push_back(std::make_shared<KSScheduledItem>(dateInUserZone(systemNow(), zone)));
  if (action == "add" || action == "edit") applyEdits(options.edits, *items[index], zone);
  if (action == "enable" || action == "disable") items[index]->setActive(action == "enable");
  if (action == "remove") items.erase(items.begin() + static_cast<std::ptrdiff_t>(index));
  if (!readOnly) {
    if (auto written = writeScheduleFile(path, *data); !written) return fail(written.error().describe());
  }
  if (action == "show" || action == "add" || action == "edit") {
    printItems(items, index, index + 1, options.json, true, zone);
  } else if (!options.json) {
    std::cout << action << "d item " << index + 1 << "\n";
  }
  return 0;
}

}  // namespace

void schedule::applyEdits(const ItemEdits& edits, KSScheduledItem& item, const cctz::time_zone& zone) {
  if (edits.description) item.setDescription(edits.description);
  if (edits.document) {
    item.setDocumentAlias(fileservices::createAliasObjectFromNSPath(*edits.document));
    item.setDocumentPathName(edits.document);  // kept even while the document is away
  }
  if (edits.type) item.setType(*edits.type);
  if (edits.startDate) item.setStartDate(dateInUserZone(*edits.startDate, zone));
  if (edits.active) item.setActive(*edits.active);
  if (edits.sets[0]) item.setScheduledMonths(edits.sets[0]);
  if (edits.sets[1]) item.setScheduledDaysOfMonth(edits.sets[1]);
  if (edits.sets[2]) item.setScheduledDaysOfWeek(edits.sets[2]);
  if (edits.sets[3]) item.setScheduledHours(edits.sets[3]);
  if (edits.sets[4]) item.setScheduledMinutes(edits.sets[4]);
}

int runSchedule(const Arguments& args) {
  if (!args.empty() && (args[0] == "--help" || args[0] == "help")) {
    std::cout << kUsage;
    return 0;
  }
  // The user's zone, read here at the tool's edge only.
  const cctz::time_zone zone = cctz::local_time_zone();
  auto options = parseOptions(args, zone);
  if (!options) {
    std::cerr << "halyardctl: schedule: " << options.error().describe() << "\n";
    return 2;
  }
  static const char* const kActions[] = {"list",   "show",    "add",  "edit",   "remove",
                                         "enable", "disable", "next", "import", "export"};
  if (std::find(std::begin(kActions), std::end(kActions), options->action) == std::end(kActions)) {
    std::cerr << "halyardctl: schedule: unknown action '" << options->action << "' (see halyardctl schedule --help)\n";
    return 2;
  }
  return runAction(*options, options->file.value_or(scheduleFilePath()), zone);
}

}  // namespace halyard::tools

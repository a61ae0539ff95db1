// The options of `halyardctl schedule`. Every error is one line naming the
// option and the value.

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <map>

#include "tools/cmd_schedule.h"

namespace halyard::tools::schedule {
namespace {

bool parseInt(std::string_view text, int& value) {
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  return !text.empty() && ec == std::errc() && end == text.data() + text.size();
}

Expected<TimeInterval> parseStartDate(const std::string& text, const cctz::time_zone& zone) {
  static const char* const kFormats[] = {"%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M:%S", "%Y-%m-%d %H:%M", "%Y-%m-%dT%H:%M",
                                         "%Y-%m-%d"};
  for (const char* format : kFormats) {
    cctz::time_point<cctz::seconds> when;
    if (cctz::parse(format, text, zone, &when)) return joinInstant(when, 0.0);
  }
  return makeError("--start-date: '" + text + "' is not a local date and time (YYYY-MM-DD HH:MM[:SS])");
}

const std::map<std::string_view, SetKind> kSetOptions = {
    {"--months", SetKind::Months}, {"--days-of-month", SetKind::DaysOfMonth}, {"--days-of-week", SetKind::DaysOfWeek},
    {"--hours", SetKind::Hours},   {"--minutes", SetKind::Minutes},
};

// One option that takes a value, applied to `options`.
Status applyValueOption(const std::string& name, const std::string& value, Options& options,
                        const cctz::time_zone& zone) {
  ItemEdits& edits = options.edits;
  if (auto set = kSetOptions.find(name); set != kSetOptions.end()) {
    auto parsed = parseSelectionSet(set->second, value);
    if (!parsed) return parsed.error();
    edits.sets[static_cast<std::size_t>(set->second)] = std::move(*parsed);
  } else if (name == "--description") {
    edits.description = value;
  } else if (name == "--document") {
    if (value.empty()) return makeError("--document: the path is empty");
    edits.document = std::filesystem::absolute(value).lexically_normal().string();
  } else if (name == "--type") {
    int type = 0;
    if (!parseInt(value, type) || !isNamedScheduleType(scheduleTypeFromNumber(type))) {
      return makeError("--type: '" + value + "' is not a schedule type (3-7)");
    }
    edits.type = scheduleTypeFromNumber(type);
  } else if (name == "--start-date") {
    auto date = parseStartDate(value, zone);
    if (!date) return date.error();
    edits.startDate = *date;
  } else if (name == "--file") {
    options.file = value;
  } else if (name == "--count") {
    int count = 0;
    if (!parseInt(value, count) || count < 1 || count > 10000)
      return makeError("--count: '" + value + "' is not a count (1-10000)");
    options.count = count;
  } else {
    return makeError("unknown option '" + name + "'");
  }
  return success();
}

bool takesValue(std::string_view name) {
  return kSetOptions.count(name) || name == "--description" || name == "--document" || name == "--type" ||
         name == "--start-date" || name == "--file" || name == "--count";
}

// Which options each action accepts.
Status checkApplies(const Options& options) {
  const bool edits = options.action == "add" || options.action == "edit";
  if (options.edits.any() && !edits) return makeError("item options apply only to add and edit");
  if (options.count && options.action != "next") return makeError("--count applies only to next");
  return success();
}

}  // namespace

bool ItemEdits::any() const {
  return description || document || type || startDate || active ||
         std::any_of(sets.begin(), sets.end(), [](const auto& s) { return s.has_value(); });
}

Expected<Options> parseOptions(const Arguments& args, const cctz::time_zone& zone) {
  Options options;
  if (args.empty()) return makeError("missing action (list, show, add, edit, remove, enable, disable, next)");
  options.action = args[0];
  for (std::size_t i = 1; i < args.size(); ++i) {
    std::string name = args[i];
    std::optional<std::string> value;
    if (const std::size_t equals = name.find('='); name.rfind("--", 0) == 0 && equals != std::string::npos) {
      value = name.substr(equals + 1);
      name.resize(equals);
    }
    if (name == "--json") options.json = true;
    else if (name == "--active") options.edits.active = true;
    else if (name == "--inactive") options.edits.active = false;
    else if (takesValue(name)) {
      // A value that looks like an option is taken as a forgotten value
      // (`--description=--x` still gives one that starts with dashes).
      if (!value && (i + 1 >= args.size() || args[i + 1].rfind("--", 0) == 0)) {
        return makeError(name + ": missing value");
      }
      if (auto applied = applyValueOption(name, value ? *value : args[++i], options, zone); !applied) {
        return applied.error();
      }
    } else if (name.rfind("--", 0) == 0) {
      return makeError("unknown option '" + name + "'");
    } else {
      options.operands.push_back(name);
    }
  }
  if (auto applies = checkApplies(options); !applies) return applies.error();
  return options;
}

}  // namespace halyard::tools::schedule

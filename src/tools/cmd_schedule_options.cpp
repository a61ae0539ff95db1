// The options of `halyardctl schedule` and the friendly forms of the
// selection sets. Every error is one line naming the option and the value.

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <map>

#include "tools/cmd_schedule.h"

namespace halyard::tools::schedule {
namespace {

struct SetShape {
  const char* option;
  const char* element;  // for messages: "a minute"
  std::size_t length;
  int first;  // the friendly number of index 0 (1 for days of month and months)
  std::vector<std::string_view> names;  // English names, by index; any prefix of 3 letters or more
};

const SetShape& shapeOf(SetKind kind) {
  static const SetShape shapes[kSetCount] = {
      {"--months", "a month (1-12 or jan-dec)", 12, 1,
       {"january", "february", "march", "april", "may", "june", "july", "august", "september", "october", "november",
        "december"}},
      {"--days-of-month", "a day of the month (1-31)", 31, 1, {}},
      {"--days-of-week", "a day of the week (0-6 or sun-sat)", 7, 0, {"sunday", "monday", "tuesday", "wednesday", "thursday", "friday", "saturday"}},
      {"--hours", "an hour (0-23)", 24, 0, {}},
      {"--minutes", "a minute (0-59)", 60, 0, {}},
  };
  return shapes[static_cast<std::size_t>(kind)];
}

Error setError(const SetShape& shape, std::string_view what) {
  return makeError(std::string(shape.option) + ": " + std::string(what));
}

// One element, by number or by name, as an index of the set.
Expected<std::size_t> parseElement(const SetShape& shape, std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
  for (std::size_t i = 0; i < shape.names.size(); ++i) {
    if (lower.size() >= 3 && shape.names[i].substr(0, lower.size()) == lower) return i;
  }
  int number = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), number);
  const int index = number - shape.first;
  if (text.empty() || ec != std::errc() || end != text.data() + text.size() || index < 0 ||
      index >= static_cast<int>(shape.length)) {
    return setError(shape, "'" + std::string(text) + "' is not " + shape.element);
  }
  return static_cast<std::size_t>(index);
}

Status markPart(const SetShape& shape, std::string_view part, std::string& set) {
  const std::size_t dash = part.find('-', 1);
  auto from = parseElement(shape, part.substr(0, dash));
  if (!from) return from.error();
  auto to = dash == std::string_view::npos ? from : parseElement(shape, part.substr(dash + 1));
  if (!to) return to.error();
  if (*to < *from) return setError(shape, "the range '" + std::string(part) + "' runs backwards");
  std::fill(set.begin() + static_cast<std::ptrdiff_t>(*from), set.begin() + static_cast<std::ptrdiff_t>(*to) + 1, '1');
  return success();
}

bool onlyDigits(std::string_view s) { return s.find_first_not_of("0123456789") == std::string_view::npos; }

bool parseInt(std::string_view text, int& value) {
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  return !text.empty() && ec == std::errc() && end == text.data() + text.size();
}

Expected<TimeInterval> parseStartDate(const std::string& text, const cctz::time_zone& zone) {
  static const char* const kFormats[] = {"%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M:%S", "%Y-%m-%d %H:%M",
                                         "%Y-%m-%dT%H:%M", "%Y-%m-%d"};
  for (const char* format : kFormats) {
    cctz::time_point<cctz::seconds> when;
    if (cctz::parse(format, text, zone, &when)) return joinInstant(when, 0.0);
  }
  return makeError("--start-date: '" + text + "' is not a local date and time (YYYY-MM-DD HH:MM[:SS])");
}

const std::map<std::string_view, SetKind> kSetOptions = {
    {"--months", SetKind::Months},   {"--days-of-month", SetKind::DaysOfMonth}, {"--days-of-week", SetKind::DaysOfWeek},
    {"--hours", SetKind::Hours},     {"--minutes", SetKind::Minutes},
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
    if (!parseInt(value, type) || type < 3 || type > 7) return makeError("--type: '" + value + "' is not a schedule type (3-7)");
    edits.type = type;
  } else if (name == "--start-date") {
    auto date = parseStartDate(value, zone);
    if (!date) return date.error();
    edits.startDate = *date;
  } else if (name == "--file") {
    options.file = value;
  } else if (name == "--count") {
    int count = 0;
    if (!parseInt(value, count) || count < 1 || count > 10000) return makeError("--count: '" + value + "' is not a count (1-10000)");
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

Expected<std::string> parseSelectionSet(SetKind kind, std::string_view value) {
  const SetShape& shape = shapeOf(kind);
  const bool binary = value.size() >= 3 && value.find_first_not_of("01") == std::string_view::npos;
  if (binary || (value.size() == shape.length && onlyDigits(value))) {
    if (!binary) return setError(shape, "a set string may hold only the characters 0 and 1");
    if (value.size() != shape.length) {
      return setError(shape, "a set string must be " + std::to_string(shape.length) + " characters long, not " +
                                 std::to_string(value.size()));
    }
    return std::string(value);
  }
  std::string set(shape.length, '0');
  if (value == "*" || value == "all") return std::string(shape.length, '1');
  if (value == "none") return set;
  std::size_t start = 0;
  while (start <= value.size()) {
    const std::size_t comma = std::min(value.find(',', start), value.size());
    if (auto marked = markPart(shape, value.substr(start, comma - start), set); !marked) return marked.error();
    start = comma + 1;
  }
  return set;
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

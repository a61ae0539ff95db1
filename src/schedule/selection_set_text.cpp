// The friendly forms of the selection sets, as `halyardctl schedule` takes
// them. Every error is one line naming the option and the value.

#include "schedule/selection_set_text.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <vector>

namespace halyard {
namespace {

struct SetShape {
  const char* option;
  const char* element;  // for messages: "a minute"
  std::size_t length;
  int first;                            // the friendly number of index 0 (1 for days of month and months)
  std::vector<std::string_view> names;  // English names, by index; any prefix of 3 letters or more
};

const SetShape& shapeOf(SetKind kind) {
  static const SetShape shapes[kSetCount] = {
      {"--months",
       "a month (1-12 or jan-dec)",
       12,
       1,
       {"january", "february", "march", "april", "may", "june", "july", "august", "september", "october", "november",
        "december"}},
      {"--days-of-month", "a day of the month (1-31)", 31, 1, {}},
      {"--days-of-week",
       "a day of the week (0-6 or sun-sat)",
       7,
       0,
       {"sunday", "monday", "tuesday", "wednesday", "thursday", "friday", "saturday"}},
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

}  // namespace

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

}  // namespace halyard

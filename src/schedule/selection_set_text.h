#pragma once
// The text forms of a selection set that people type: a raw "0"/"1" string
// of the set's length, or a friendly list such as "0,30", "9-17", "mon-fri",
// "jan-mar", "1,15" (days of month count from 1 here), "*" or "none".
//
//   auto minutes = parseSelectionSet(SetKind::Minutes, "0,30");  // "1000...1000..."

#include <cstddef>
#include <string>
#include <string_view>

#include "foundation/expected.h"

namespace halyard {

// The five selection sets, in archive order.
enum class SetKind { Months, DaysOfMonth, DaysOfWeek, Hours, Minutes };
constexpr std::size_t kSetCount = 5;

// A set option's value as a set string; errors name the option
// ("--minutes: ...") and the value.
Expected<std::string> parseSelectionSet(SetKind kind, std::string_view value);

}  // namespace halyard

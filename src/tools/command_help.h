#pragma once
// The help page of each halyardctl command (`halyardctl COMMAND --help`,
// `halyardctl help COMMAND`): what it does, its options and examples.

#include <optional>
#include <string_view>

namespace halyard::tools {

std::optional<std::string_view> commandHelp(std::string_view command);

}  // namespace halyard::tools

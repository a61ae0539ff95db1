#pragma once
// The titles of a submenu's lines, as the menu model tests compare them.

#include <string>
#include <vector>

#include "agent/status_menu_model.h"

namespace halyard::agent::testing {

using Titles = std::vector<std::string>;

inline Titles titles(const std::vector<StatusMenuEntry>& entries) {
  Titles result;
  for (const auto& entry : entries) result.push_back(entry.title);
  return result;
}

}  // namespace halyard::agent::testing

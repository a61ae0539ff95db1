#pragma once
// SavedCheck: the agent's last check, kept across restarts when the user asks
// for missed runs to be caught up ("$XDG_STATE_HOME/halyard/last-check").
// The file is the agent's own; a damaged one is ignored (and logged), never
// trusted.

#include <optional>
#include <string>

#include "agent/rules/exactly_once.h"
#include "foundation/expected.h"

namespace halyard::agent {

struct SavedCheck {
  TimeInterval lastCheckDate = 0;
  std::optional<CivilMinute> coveredMinute;  // of the exactly-once mode
};

// $XDG_STATE_HOME/halyard/last-check ($HOME/.local/state when unset).
std::string savedCheckPath();

std::optional<SavedCheck> readSavedCheck(const std::string& path);
// Written whole (flushed, then renamed over the old one); the folder is made.
Status writeSavedCheck(const std::string& path, const SavedCheck& saved);

}  // namespace halyard::agent

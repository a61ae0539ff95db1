// `halyardctl config`: the agent's own preferences beyond the main
// application's, in the settings file both read. Without arguments it shows
// them; `config exactly-once on|off` and `config catch-up on|off` set them.

#include <iostream>
#include <map>

#include "agent/preferences.h"
#include "tools/commands.h"

namespace halyard::tools {
namespace {

constexpr const char* kUsage = "usage: halyardctl config [exactly-once on|off] [catch-up on|off]\n";

const std::map<std::string, const char*> kSwitches = {
    {"exactly-once", agent::prefs::kExactlyOnceScheduling},
    {"catch-up", agent::prefs::kCatchUpMissedRuns},
};

}  // namespace

int runConfig(const Arguments& args) {
  if (args.size() == 1 && (args[0] == "--help" || args[0] == "help")) {
    std::cout << kUsage;
    return 0;
  }
  agent::Preferences preferences(agent::Preferences::defaultFilePath());
  if (args.empty()) {
    for (const auto& [name, key] : kSwitches) {
      std::cout << name << ": " << (preferences.boolForKey(key) ? "on" : "off") << "\n";
    }
    return 0;
  }
  const auto found = kSwitches.find(args[0]);
  if (args.size() != 2 || found == kSwitches.end() || (args[1] != "on" && args[1] != "off")) {
    std::cerr << kUsage;
    return 2;
  }
  preferences.setBool(found->second, args[1] == "on");
  std::cout << found->first << ": " << args[1] << "\n";
  return 0;
}

bool agentSchedulesExactlyOnce() {
  agent::Preferences preferences(agent::Preferences::defaultFilePath());
  return preferences.boolValue(agent::prefs::kExactlyOnceScheduling).value_or(false);
}

}  // namespace halyard::tools

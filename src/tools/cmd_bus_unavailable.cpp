// The bus commands in a build of the core libraries alone (no Qt): they say
// so and fail.

#include <iostream>

#include "tools/commands.h"

namespace halyard::tools {

namespace {
int unavailable() {
  std::cerr << "halyardctl: this build has no bus commands (built without Qt)\n";
  return 2;
}
}  // namespace

int runServeApp(const Arguments&) { return unavailable(); }
int runWatch(const Arguments&) { return unavailable(); }
int runNotify(const Arguments&) { return unavailable(); }
int runStatus(const Arguments&) { return unavailable(); }
// `why` and `config` read the agent's preferences, which need Qt.
int runWhy(const Arguments&) { return unavailable(); }
int runConfig(const Arguments&) { return unavailable(); }
bool agentSchedulesExactlyOnce() { return false; }

}  // namespace halyard::tools

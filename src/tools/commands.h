#pragma once
// The commands of halyardctl. Each takes its own arguments (after the
// command word) and answers the process exit status.

#include <string>
#include <vector>

namespace halyard::tools {

using Arguments = std::vector<std::string>;

int runDump(const Arguments& args);
int runFs(const Arguments& args);
int runServeApp(const Arguments& args);
int runWatch(const Arguments& args);
int runNotify(const Arguments& args);
int runSchedule(const Arguments& args);
int runVolumes(const Arguments& args);
int runStatus(const Arguments& args);
int runSimulate(const Arguments& args);
int runWhy(const Arguments& args);
int runConfig(const Arguments& args);

// Whether the agent's preferences turn its exactly-once mode on (read with
// Qt; a build without Qt answers false).
bool agentSchedulesExactlyOnce();

}  // namespace halyard::tools

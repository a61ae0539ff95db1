#pragma once
// The commands of halyardctl. Each takes its own arguments (after the
// command word) and answers the process exit status.

#include <string>
#include <vector>

namespace halyard::tools {

using Arguments = std::vector<std::string>;

int runDump(const Arguments& args);

}  // namespace halyard::tools

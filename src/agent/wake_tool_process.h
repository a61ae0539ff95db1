#pragma once
// The wake tool as the agent runs it: the first valid privileged copy found
// in the tool's folders, started with an empty environment, one request on
// its stdin and one answer read from its stdout. Where no valid copy exists,
// the launcher (pkexec) runs the installed template to make one.

#include <mutex>

#include "agent/helper_tool.h"
#include "agent/wake_to_sync.h"

namespace halyard::agent {

class ProcessWakeTool final : public WakeTool {
 public:
  ProcessWakeTool(HelperToolFolders folders, std::string templatePath,
                  std::string launcherPath = kPrivilegeLauncherPath);
  ToolLocation locateOrCreate(HelperFolderType type) override;
  Expected<int> execute(const std::string& tool, const std::string& request) override;

 private:
  ToolLocation makeCopy(const std::string& folder);

  HelperToolFolders folders_;
  std::string templatePath_;
  std::string launcherPath_;
  std::mutex making_;  // one copy is made at a time
};

}  // namespace halyard::agent

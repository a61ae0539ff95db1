#pragma once
// The wake tool as the agent runs it: the first valid privileged copy found
// in the tool's folders, started with an empty environment, one request on
// its stdin and one answer read from its stdout. When the tool answers that
// the RTC alarm cannot be set, the agent says so once in its log.

#include <atomic>

#include "agent/helper_tool.h"
#include "agent/wake_to_sync.h"

namespace halyard::agent {

class ProcessWakeTool final : public WakeTool {
 public:
  ProcessWakeTool(HelperToolFolders folders, std::string templatePath);
  Expected<int> execute(const std::string& request) override;

 private:
  HelperToolFolders folders_;
  std::string templatePath_;
  std::atomic<bool> rtcFailureLogged_ = false;
};

}  // namespace halyard::agent

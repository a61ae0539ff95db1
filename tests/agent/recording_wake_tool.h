#pragma once
// A wake tool that records the requests it is sent and the folder types it
// is asked to look in. It answers as the test scripts it: a folder type may
// lie on a volume that ignores ownership, and each request gets `answer`.
// Until the test lets it answer, each request waits.

#include <condition_variable>
#include <mutex>
#include <set>
#include <vector>

#include "agent/wake_to_sync.h"
#include "helper/wake_request.h"

namespace halyard::agent::testing {

class RecordingWakeTool final : public WakeTool {
 public:
  ToolLocation locateOrCreate(HelperFolderType type) override {
    std::lock_guard lock(mutex_);
    located_.push_back(type);
    if (badVolumes_.contains(type)) return {.onBadVolume = true, .problem = "bad volume"};
    const bool support = type == HelperFolderType::ApplicationSupport;
    return {.tool = support ? "support/WakeToSyncTool" : "temporary/WakeToSyncTool"};
  }
  Expected<int> execute(const std::string& tool, const std::string& request) override {
    std::unique_lock lock(mutex_);
    auto parsed = wake::readWakeRequest(request);
    if (!parsed) return parsed.error();
    requests_.push_back(*parsed);
    tools_.push_back(tool);
    answer_.wait(lock, [this] { return open_; });
    return answerNumber_;
  }
  void letAnswer(int errorNumber = 0) {
    std::lock_guard lock(mutex_);
    open_ = true;
    answerNumber_ = errorNumber;
    answer_.notify_all();
  }
  void setBadVolume(HelperFolderType type) {
    std::lock_guard lock(mutex_);
    badVolumes_.insert(type);
  }
  std::vector<wake::WakeRequest> requests() { return locked(requests_); }
  std::vector<std::string> tools() { return locked(tools_); }
  std::vector<HelperFolderType> located() { return locked(located_); }

 private:
  template <class T>
  T locked(const T& recorded) {
    std::lock_guard lock(mutex_);
    return recorded;
  }

  std::mutex mutex_;
  std::condition_variable answer_;
  bool open_ = false;
  int answerNumber_ = 0;
  std::set<HelperFolderType> badVolumes_;
  std::vector<wake::WakeRequest> requests_;
  std::vector<std::string> tools_;
  std::vector<HelperFolderType> located_;
};

}  // namespace halyard::agent::testing

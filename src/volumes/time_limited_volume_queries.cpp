#include "volumes/time_limited_volume_queries.h"

#include <cerrno>
#include <future>
#include <thread>

#include "foundation/log_sink.h"

namespace halyard {

TimeLimitedVolumeQueries::TimeLimitedVolumeQueries(std::shared_ptr<const VolumeQueries> inner,
                                                   std::chrono::milliseconds limit)
    : inner_(std::move(inner)), limit_(limit) {}

template <class T>
std::optional<T> TimeLimitedVolumeQueries::limited(const std::string& path, std::function<T()> query) const {
  {
    std::lock_guard guard(stuck_->mutex);
    if (stuck_->pending.contains(path)) return std::nullopt;
  }
  std::packaged_task<T()> task(std::move(query));
  std::future<T> answer = task.get_future();
  // The thread keeps what it needs alive and, once it answers however late,
  // lets the path be asked again.
  auto answered = std::make_shared<bool>(false);  // guarded by the mutex
  std::thread([task = std::move(task), stuck = stuck_, path, answered]() mutable {
    task();
    std::lock_guard guard(stuck->mutex);
    *answered = true;
    stuck->pending.erase(path);
    stuck->logged.erase(path);
  }).detach();
  if (answer.wait_for(limit_) == std::future_status::ready) return answer.get();
  std::lock_guard guard(stuck_->mutex);
  if (*answered) return answer.get();
  stuck_->pending.insert(path);
  if (stuck_->logged.insert(path).second) {
    logLine("<Error:> The volume at " + path + " did not answer within " + std::to_string(limit_.count()) +
                " ms; it counts as not matching.",
            LogPriority::Error);
  }
  return std::nullopt;
}

std::optional<PathPlace> TimeLimitedVolumeQueries::placeOf(const std::string& path) const {
  return limited<std::optional<PathPlace>>(path, [inner = inner_, path] { return inner->placeOf(path); })
      .value_or(std::nullopt);
}

int TimeLimitedVolumeQueries::pathStatus(const std::string& path) const {
  return limited<int>(path, [inner = inner_, path] { return inner->pathStatus(path); }).value_or(ETIMEDOUT);
}

std::optional<std::uint64_t> TimeLimitedVolumeQueries::deviceOf(const std::string& path) const {
  return limited<std::optional<std::uint64_t>>(path, [inner = inner_, path] { return inner->deviceOf(path); })
      .value_or(std::nullopt);
}

std::optional<FileSystemStats> TimeLimitedVolumeQueries::fileSystemStats(const std::string& path) const {
  return limited<std::optional<FileSystemStats>>(path, [inner = inner_, path] { return inner->fileSystemStats(path); })
      .value_or(std::nullopt);
}

std::optional<KernelTime> TimeLimitedVolumeQueries::birthTime(const std::string& path) const {
  return limited<std::optional<KernelTime>>(path, [inner = inner_, path] { return inner->birthTime(path); })
      .value_or(std::nullopt);
}

DeviceProperties TimeLimitedVolumeQueries::deviceProperties(const MountEntry& mount) const {
  return limited<DeviceProperties>(mount.mountPoint, [inner = inner_, mount] { return inner->deviceProperties(mount); })
      .value_or(DeviceProperties{});
}

std::optional<std::vector<std::string>> TimeLimitedVolumeQueries::listDirectory(const std::string& path) const {
  return limited<std::optional<std::vector<std::string>>>(path,
                                                          [inner = inner_, path] { return inner->listDirectory(path); })
      .value_or(std::nullopt);
}

std::optional<std::uint64_t> TimeLimitedVolumeQueries::fileNumber(const std::string& path) const {
  return limited<std::optional<std::uint64_t>>(path, [inner = inner_, path] { return inner->fileNumber(path); })
      .value_or(std::nullopt);
}

}  // namespace halyard

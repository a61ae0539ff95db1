// VTFileManager's asynchronous-command pattern: spooling a body on the pool,
// waiting for it with progress relayed to a delegate, and reading its
// outcome.

#include <chrono>
#include <cinttypes>
#include <cstdio>

#include "fileservices/fm_audit.h"
#include "fileservices/vt_file_manager.h"

namespace halyard::fileservices {

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr Seconds kLatchTry{1.0};
constexpr Seconds kReportInterval{2.0};
constexpr Seconds kPauseNap{0.5};

std::string idText(CommandID id) { return std::to_string(id); }

}  // namespace

std::optional<PropertyValue> VTFileManager::getProperty(std::string_view key, CommandID id) const {
  return pool_.getProperty(key, id);
}

void VTFileManager::setProperty(std::string_view key, CommandID id, std::optional<PropertyValue> value) {
  pool_.setProperty(key, id, std::move(value));
}

void VTFileManager::disposeCommand(CommandID id) { pool_.disposeCommand(id); }

ErrorCode VTFileManager::statusForCommand(CommandID id) {
  AuditCall audit(*this, [&] { return "statusForCommand: " + idText(id); });
  ErrorCode status = kCommandNotFinished;
  if (pool_.getPropertyAs<std::int64_t>(kStateKey, id) == kCommandFinished) {
    status = static_cast<ErrorCode>(pool_.getPropertyAs<std::int64_t>(kECodeKey, id).value_or(0));
  }
  audit.finish(0, [&] { return "statusForCommand result: " + std::to_string(status); });
  return status;
}

ObjectRef VTFileManager::resultsForCommand(CommandID id) {
  AuditCall audit(*this, [&] { return "resultsForCommand: " + idText(id); });
  ObjectRef result;
  if (pool_.getPropertyAs<std::int64_t>(kStateKey, id) == kCommandFinished) {
    result = pool_.getPropertyAs<ObjectRef>(kResultKey, id).value_or(nullptr);
  }
  audit.finish(0, [&] { return "resultsForCommand result: " + auditQuoted(result ? "<object>" : "(null)"); });
  return result;
}

std::int64_t VTFileManager::getAndClearDataCopiedCountForCommand(CommandID id) {
  std::lock_guard guard(pool_.threadLock());
  const std::int64_t copied = pool_.getPropertyAs<std::int64_t>(kDCpyKey, id).value_or(0);
  if (copied != 0) pool_.setProperty(kDCpyKey, id, std::int64_t{0});
  return copied;
}

CommandID VTFileManager::waitForCommandCompletion(CommandID id, double timeLimit) {
  AuditCall audit(*this, [&] {
    char limit[32];
    std::snprintf(limit, sizeof limit, "%1.5f", timeLimit);
    return "waitForCommandCompletion: " + idText(id) + " timeLimit:" + limit;
  });
  auto latch = pool_.getPropertyAs<std::shared_ptr<ConditionLock>>(kCondKey, id).value_or(nullptr);
  // A command that is not in the pool has no latch; its tries simply take
  // their full time.
  auto tryLatch = [&] {
    const auto until = Clock::now() + std::chrono::duration_cast<Clock::duration>(kLatchTry);
    if (latch) return latch->lockWhenCondition(kLatchFinished, until);
    std::this_thread::sleep_until(until);
    return false;
  };
  auto finishWith = [&](CommandID result) {
    audit.finish(
        0, [&] { return "waitForCommandCompletion result: " + idText(result); }, false);
    return result;
  };
  if (tryLatch()) {
    if (statusForCommand(id) == 0) id = -id;
    // Condition 0, not 3: a second wait on this command runs to its limit.
    latch->unlockWithCondition(kLatchCollected);
    return finishWith(id);
  }
  const Seconds rest{timeLimit > 1.0 ? timeLimit - 1.0 : timeLimit};
  const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(rest);
  std::shared_ptr<ProgressDelegate> delegate;
  for (;;) {
    if (tryLatch()) {
      const ErrorCode status = statusForCommand(id);
      latch->unlockWithCondition(kLatchCollected);
      if (status != kCommandNotFinished) {
        if (status == 0) id = -id;
        break;
      }
    }
    const auto now = Clock::now();
    if (!delegate) {
      delegate = pool_.getPropertyAs<std::shared_ptr<ProgressDelegate>>(kUIDelKey, id).value_or(nullptr);
      if (now >= deadline) break;
      continue;
    }
    reportProgress(id, *delegate, now);
    if (pool_.getPropertyAs<bool>(kPauseKey, id).value_or(false)) {
      if (delegate->abortFileCopy()) pool_.setProperty(kAbortKey, id, true);
      if (!delegate->pauseFileCopy()) pool_.setProperty(kPauseKey, id, false);
      std::this_thread::sleep_for(kPauseNap);
    }
    if (now >= deadline) break;
  }
  return finishWith(id);
}

void VTFileManager::reportProgress(CommandID id, ProgressDelegate& delegate, PropertyTime now) {
  std::lock_guard guard(pool_.threadLock());
  const auto told = pool_.getPropertyAs<PropertyTime>(kTimeKey, id);
  const std::int64_t copied = pool_.getPropertyAs<std::int64_t>(kDCpyKey, id).value_or(0);
  const bool due = told && now - *told > kReportInterval;
  if (due && copied != 0) {
    if (delegate.completedBlockCopy(copied)) {
      if (delegate.abortFileCopy()) pool_.setProperty(kAbortKey, id, true);
      if (delegate.pauseFileCopy()) pool_.setProperty(kPauseKey, id, true);
    }
    pool_.setProperty(kDCpyKey, id, std::int64_t{0});
  }
  if (!told || (due && copied != 0)) pool_.setProperty(kTimeKey, id, now);
}

CommandID VTFileManager::spoolAndWait(const std::function<std::string()>& entry, std::string_view selector,
                                      void (VTFileManager::*body)(CommandID), ObjectRef arguments,
                                      std::shared_ptr<ProgressDelegate> delegate) {
  AuditCall audit(*this, entry);
  std::weak_ptr<VTFileManager> self = weak_from_this();
  Command command = [self, body](CommandID id) {
    if (auto manager = self.lock()) ((*manager).*body)(id);
  };
  const CommandID id = pool_.runCommand(std::move(command), std::move(arguments), shared_from_this());
  if (delegate) {
    pool_.setProperty(kUIDelKey, id, delegate);
    delegate->willWaitForCommand(id);
  }
  const CommandID finished = waitForCommandCompletion(id, 10.0);
  const auto result = [&] {
    return std::string(selector) + " errcode: " + std::to_string(lastError()) +
           " commandID: " + std::to_string(finished);
  };
  audit.finish(0, result, false);
  return finished;
}

}  // namespace halyard::fileservices

#include "fileservices/condition_lock.h"

namespace halyard::fileservices {

void ConditionLock::lock() {
  std::unique_lock guard(mutex_);
  changed_.wait(guard, [this] { return !held_; });
  held_ = true;
}

void ConditionLock::lockWhenCondition(int condition) {
  std::unique_lock guard(mutex_);
  changed_.wait(guard, [&] { return !held_ && condition_ == condition; });
  held_ = true;
}

bool ConditionLock::lockWhenCondition(int condition, Clock::time_point deadline) {
  std::unique_lock guard(mutex_);
  if (!changed_.wait_until(guard, deadline, [&] { return !held_ && condition_ == condition; })) return false;
  held_ = true;
  return true;
}

void ConditionLock::unlock() {
  {
    std::lock_guard guard(mutex_);
    held_ = false;
  }
  changed_.notify_all();
}

void ConditionLock::unlockWithCondition(int condition) {
  {
    std::lock_guard guard(mutex_);
    held_ = false;
    condition_ = condition;
  }
  changed_.notify_all();
}

int ConditionLock::condition() const {
  std::lock_guard guard(mutex_);
  return condition_;
}

}  // namespace halyard::fileservices

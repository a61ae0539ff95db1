#include "fileservices/condition_lock.h"

namespace halyard::fileservices {

void ConditionLock::lock() {
  std::unique_lock guard(_mutex);
  _changed.wait(guard, [this] { return !_held; });
  _held = true;
}

void ConditionLock::lockWhenCondition(int condition) {
  std::unique_lock guard(_mutex);
  _changed.wait(guard, [&] { return !_held && _condition == condition; });
  _held = true;
}

bool ConditionLock::lockWhenCondition(int condition, Clock::time_point deadline) {
  std::unique_lock guard(_mutex);
  if (!_changed.wait_until(guard, deadline, [&] { return !_held && _condition == condition; })) return false;
  _held = true;
  return true;
}

void ConditionLock::unlock() {
  {
    std::lock_guard guard(_mutex);
    _held = false;
  }
  _changed.notify_all();
}

void ConditionLock::unlockWithCondition(int condition) {
  {
    std::lock_guard guard(_mutex);
    _held = false;
    _condition = condition;
  }
  _changed.notify_all();
}

int ConditionLock::condition() const {
  std::lock_guard guard(_mutex);
  return _condition;
}

}  // namespace halyard::fileservices

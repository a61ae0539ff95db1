#pragma once
// ConditionLock: a lock that carries an integer condition, as the command
// pool's completion latches and its spool need it. `lock` takes the lock
// whatever the condition; `lockWhenCondition` waits until the lock is free
// and holds the wanted condition. Waiting blocks on a condition variable, so
// an idle waiter uses no processor time.

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace halyard::fileservices {

class ConditionLock {
 public:
  using Clock = std::chrono::steady_clock;

  explicit ConditionLock(int condition = 0) : condition_(condition) {}
  ConditionLock(const ConditionLock&) = delete;
  ConditionLock& operator=(const ConditionLock&) = delete;

  void lock();
  void lockWhenCondition(int condition);
  // False when the deadline passed before the lock could be taken at that
  // condition.
  bool lockWhenCondition(int condition, Clock::time_point deadline);
  void unlock();
  void unlockWithCondition(int condition);
  int condition() const;

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  int condition_;
  bool held_ = false;
};

}  // namespace halyard::fileservices

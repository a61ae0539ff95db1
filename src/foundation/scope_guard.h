#pragma once
// ScopeGuard: runs a restore (a file mode put back, a umask, a lock let go)
// when the scope ends, on every path out of it, unless dismissed.
//
//   ::chmod(path, mode | S_IWUSR);
//   ScopeGuard restore([&] { ::chmod(path, mode); });

#include <utility>

namespace halyard {

template <class Restore>
class [[nodiscard]] ScopeGuard {
 public:
  explicit ScopeGuard(Restore restore) : restore_(std::move(restore)) {}
  ~ScopeGuard() {
    if (armed_) restore_();
  }
  ScopeGuard(const ScopeGuard&) = delete;
  ScopeGuard& operator=(const ScopeGuard&) = delete;

  // The restore is no longer wanted (the change is to stay).
  void dismiss() { armed_ = false; }

 private:
  Restore restore_;
  bool armed_ = true;
};

}  // namespace halyard

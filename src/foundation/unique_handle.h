#pragma once
// UniqueHandle: the one owner of a descriptor or a C library object. It
// releases what it holds when it goes, so no path closes by hand and none
// forgets to; `release()` hands ownership on. Traits name the handle type,
// its empty value and how it is let go:
//
//   UniqueFd fd(::open(path, O_RDONLY | O_CLOEXEC));
//   if (!fd) return errno;
//   UniqueHandle<CPointer<DIR, closedir>> folder(::fdopendir(fd.release()));
//
// A descriptor whose close can report a lost write (a file just written) is
// closed with closeChecked(), which answers 0 or the errno.

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace halyard {

template <class Traits>
class UniqueHandle {
 public:
  using Handle = typename Traits::Handle;

  UniqueHandle() = default;
  explicit UniqueHandle(Handle handle) : handle_(handle) {}
  ~UniqueHandle() { reset(); }
  UniqueHandle(UniqueHandle&& other) noexcept : handle_(other.release()) {}
  UniqueHandle& operator=(UniqueHandle&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  UniqueHandle(const UniqueHandle&) = delete;
  UniqueHandle& operator=(const UniqueHandle&) = delete;

  Handle get() const { return handle_; }
  bool valid() const { return handle_ != Traits::empty(); }
  explicit operator bool() const { return valid(); }
  Handle release() { return std::exchange(handle_, Traits::empty()); }
  void reset(Handle handle = Traits::empty()) {
    const Handle old = std::exchange(handle_, handle);
    if (old != Traits::empty()) Traits::free(old);
  }

 private:
  Handle handle_ = Traits::empty();
};

// A file descriptor; -1 is empty.
struct FdTraits {
  using Handle = int;
  static constexpr int empty() { return -1; }
  static void free(int fd) { ::close(fd); }
};
using UniqueFd = UniqueHandle<FdTraits>;

// A C library object behind a pointer, let go by `Free` (closedir,
// plist_free, acl_free, mnt_unref_monitor...); null is empty.
template <class T, auto Free>
struct CPointer {
  using Handle = T*;
  static constexpr T* empty() { return nullptr; }
  static void free(T* object) { Free(object); }
};

// Closes now and tells what close said: 0, or the errno (EIO for a write the
// disk lost). The handle is empty afterwards.
inline int closeChecked(UniqueFd& fd) {
  if (!fd) return 0;
  return ::close(fd.release()) == 0 ? 0 : errno;
}

}  // namespace halyard

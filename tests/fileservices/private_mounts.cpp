#include "fileservices/private_mounts.h"

#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstring>

namespace halyard::fileservices {

PrivateMounts::PrivateMounts() {
  if (unshare(CLONE_NEWNS) != 0) {
    _reason = std::string("cannot make a private mount namespace: ") + std::strerror(errno);
  } else if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    _reason = std::string("cannot make the mounts private: ") + std::strerror(errno);
  }
}

PrivateMounts::~PrivateMounts() {
  for (auto it = _mounted.rbegin(); it != _mounted.rend(); ++it) umount2(it->c_str(), MNT_DETACH);
}

std::string PrivateMounts::mount(const std::string& type, const std::string& folder, const std::string& options) {
  if (!_reason.empty()) return _reason;
  if (::mount(type.c_str(), folder.c_str(), type.c_str(), 0, options.c_str()) != 0) {
    return "cannot mount " + type + " on " + folder + ": " + std::strerror(errno);
  }
  _mounted.push_back(folder);
  return "";
}

}  // namespace halyard::fileservices

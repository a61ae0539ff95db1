#pragma once
// PrivateMounts: a private mount namespace for the calling thread (and the
// processes it starts), with file systems mounted in it for one test and
// unmounted when it goes. Where the machine cannot mount, `unavailable()`
// gives the reason and the test skips.

#include <string>
#include <vector>

namespace halyard::fileservices {

class PrivateMounts {
 public:
  PrivateMounts();
  ~PrivateMounts();
  PrivateMounts(const PrivateMounts&) = delete;
  PrivateMounts& operator=(const PrivateMounts&) = delete;

  // "" when mounts can be made; else why not.
  const std::string& unavailable() const { return _reason; }
  // Mounts a fresh file system of `type` ("tmpfs", "ramfs") on the existing
  // folder, with `options` ("size=16m"); "" or the reason it failed.
  std::string mount(const std::string& type, const std::string& folder, const std::string& options = "");

 private:
  std::string _reason;
  std::vector<std::string> _mounted;
};

}  // namespace halyard::fileservices

#pragma once
// TestFolder: a fresh folder under /tmp for one test, removed (with any lock
// flags cleared first) when the test ends; reading a file whole, an
// extended attribute and the inode flags.

#include <functional>
#include <optional>
#include <string>

namespace halyard::fileservices {

class TestFolder {
 public:
  TestFolder();
  ~TestFolder();
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;

  const std::string& root() const { return root_; }
  std::string path(const std::string& name) const { return root_ + "/" + name; }
  // Writes a file (parent folders made as needed) and answers its path.
  std::string writeFile(const std::string& name, const std::string& contents) const;

 private:
  std::string root_;
};

// The bytes of the file at `path` ("" when it cannot be read).
std::string contentsOf(const std::string& path);

// The value of the extended attribute `name` of `path`, not followed if a
// link; absent where it has none.
std::optional<std::string> extendedAttribute(const std::string& path, const char* name);

// The inode flags (FS_IOC_GETFLAGS) of `path`, not followed if a link; 0
// where it has none.
unsigned inodeFlags(const std::string& path);
// Sets them; false where the file system keeps none or refuses.
bool setInodeFlags(const std::string& path, unsigned flags);

// Runs `body` in a child process that has become the user and group nobody
// (65534) without supplementary groups; the child's exit code, 64 when it
// could not change user, -1 when it did not exit.
int exitCodeAsNobody(const std::function<int()>& body);

}  // namespace halyard::fileservices

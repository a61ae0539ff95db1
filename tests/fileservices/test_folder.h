#pragma once
// TestFolder: a fresh folder under /tmp for one test, removed (with any lock
// flags cleared first) when the test ends; and reading a file whole.

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

}  // namespace halyard::fileservices

#pragma once
// The block-copy engine behind the file manager's inherited copy, move and
// remove operations. A copy goes to a temporary name beside the destination
// and is renamed onto the destination only when complete, so a failed or
// cancelled copy never leaves a partial item under the destination's name.
// Modes, owners (when permitted), times, symbolic links and extended
// attributes are kept.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace halyard::fileservices {

// Told after each block written; answers false when the copy must stop as
// cancelled (-128).
class CopyProgress {
 public:
  virtual ~CopyProgress() = default;
  virtual bool blockCopied(std::int64_t bytes) = 0;
};

struct CopyEngineSetup {
  std::byte* buffer = nullptr;
  std::size_t bufferSize = 0;
  const std::vector<std::string>* excludedAttributes = nullptr;
  CopyProgress* progress = nullptr;  // may be null
};

// Copies the file, link or folder tree at `src` to `dest`, which must not
// exist yet. 0, an errno value, or -128 when cancelled.
int copyItem(const std::string& src, const std::string& dest, const CopyEngineSetup& setup);

// Renames within one file system, else copies and removes the source.
int moveItem(const std::string& src, const std::string& dest, const CopyEngineSetup& setup);

// Removes the item, a folder with all it holds. 0 or an errno value.
int removeItem(const std::string& path);

// The total size of the regular files at or under `path` (links not
// followed), for progress displays.
std::int64_t treeSize(const std::string& path);

}  // namespace halyard::fileservices

#pragma once
// The block-copy engine behind the file manager's inherited copy, move and
// remove operations. A copy goes to a hidden temporary name beside the
// destination, made exclusively, and is renamed onto the destination only
// when complete and flushed to the disk, so neither a failure nor a power
// loss leaves a partial item under the destination's name. A move across
// file systems removes its source only after its copy is durable and has
// been counted against the source. Trees are walked by descriptor and never
// followed out through a symbolic link.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fileservices/error_codes.h"

namespace halyard::fileservices {

// Told after each block written; answers false when the copy must stop as
// cancelled (-128).
class CopyProgress {
 public:
  virtual ~CopyProgress() = default;
  virtual bool blockCopied(std::int64_t bytes) = 0;
};

// The steps of the engine that are watched: the order of flushes, renames
// and removals is what makes a move safe.
enum class EngineStep {
  CreatePartial,    // before making the temporary item (path: its name)
  FlushFile,        // a single copied file, before its rename
  FlushFileSystem,  // every file and folder of a copied tree, before its rename
  Rename,           // the finished copy to its final name
  FlushParent,      // the destination's folder, after the rename
  OpenFolder,       // before a folder of a walk is opened
  Remove,           // before an item is removed
};

// A seam on the engine's steps for tests: answers 0 to go on, or an errno
// value that fails the step as the system call would.
class EngineHooks {
 public:
  virtual ~EngineHooks() = default;
  virtual int before(EngineStep step, const std::string& path) = 0;
};

// What an operation has to tell beyond its code: the failure, naming the
// item it concerns, and each piece of metadata a copy could not keep.
struct EngineReport {
  std::string failure;
  std::vector<std::string> losses;
};

struct CopyEngineSetup {
  std::byte* buffer = nullptr;
  std::size_t bufferSize = 0;
  const std::vector<std::string>* excludedAttributes = nullptr;
  CopyProgress* progress = nullptr;  // may be null
  EngineReport* report = nullptr;    // may be null
  EngineHooks* hooks = nullptr;      // may be null
};

// Copies the file, link or folder tree at `src` to `dest`, which must not
// exist yet. 0, an errno value, -128 when cancelled, or
// kDestinationInsideSourceErr.
int copyItem(const std::string& src, const std::string& dest, const CopyEngineSetup& setup);

// Renames within one file system, else copies and removes the source. A
// destination that already holds everything left of the source (a move whose
// removal failed part-way) only has the source removed.
int moveItem(const std::string& src, const std::string& dest, const CopyEngineSetup& setup);

// Removes the item, a folder with all it holds. 0 or an errno value.
int removeItem(const std::string& path, const CopyEngineSetup& setup);

// The total size of the regular files at or under `path` (links not
// followed), for progress displays.
std::int64_t treeSize(const std::string& path);

}  // namespace halyard::fileservices

#pragma once
// The descriptor-based pieces the copy engine is built from: folders are
// opened relative to their parent's descriptor with O_NOFOLLOW, so a folder
// swapped for a symbolic link is never followed out of the tree, and a
// folder that cannot be read to its end is an error, never a shorter folder.

#include <sys/stat.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "fileservices/copy_engine.h"
#include "foundation/unique_handle.h"

namespace halyard::fileservices {

// The hook's answer for a step, 0 without hooks.
int engineStep(const CopyEngineSetup& setup, EngineStep step, const std::string& path);
// Records the failure text when the setup has a report and none is recorded.
void reportFailure(const CopyEngineSetup& setup, const std::string& text);

std::string joinPath(const std::string& folder, const std::string& name);
std::string parentOf(const std::string& path);
std::string nameOf(const std::string& path);

// Opens a folder of a walk: never through a symbolic link.
int openFolderAt(int parentFd, const std::string& name, UniqueFd& out);
// Opens the folder a path names (the user's path: links in it are followed).
int openFolder(const std::string& path, UniqueFd& out);
// The names in the folder, "." and ".." left out. 0 or the errno value.
int listFolder(int folderFd, std::vector<std::string>& names);

// Items and bytes of regular files at or under an item, counted alike on
// both sides of a move.
struct TreeCount {
  std::int64_t items = 0;
  std::int64_t bytes = 0;
  bool operator==(const TreeCount&) const = default;
};
int countTree(int parentFd, const std::string& name, const std::string& path, const CopyEngineSetup& setup,
              TreeCount& count);

// What tells that an item changed: its kind, size, and modification and
// change times (any write or attribute change moves the change time).
struct ItemState {
  mode_t kind;
  off_t size;
  timespec modified;
  timespec changed;
  static ItemState of(const struct stat& st);
  bool operator==(const ItemState& other) const;
};

// The source items a move has copied, each as it was when it was copied.
// The move removes only these, and each only while it is unchanged, so that
// an item added or changed while the copy ran stays where it is.
class CopiedItems {
 public:
  void add(const struct stat& st);
  // A folder counts by its identity alone: removing what it held changes it.
  bool holds(const struct stat& st) const;
  bool unchanged(const struct stat& st) const;
  void leave(const std::string& path) { left_.push_back(path); }
  const std::vector<std::string>& left() const { return left_; }

 private:
  std::map<std::pair<dev_t, ino_t>, ItemState> items_;
  std::vector<std::string> left_;
};

// Records every item at or under `name` as it is now (0 or the errno
// value), for a removal later that must take only what was there then.
int recordTree(int parentFd, const std::string& name, CopiedItems& record);

// True when everything at `srcName` also stands at `destName`, alike in kind,
// size, modification time and contents: what an earlier move left behind
// after copying it completely. What it compared goes into `covered`.
bool coveredBy(int srcParentFd, const std::string& srcName, int destParentFd, const std::string& destName,
               CopiedItems& covered);

struct RemovalOptions {
  bool clearLocks = false;    // a moved item's flags went with its copy
  bool makeWritable = false;  // our own partial, made with read-only folders
  // A move's source: only these items go; the others are left and listed.
  CopiedItems* only = nullptr;
};
// Removes an item and all it holds, by descriptor; stops at the first item
// that cannot be removed and names it in the report.
int removeEntry(int parentFd, const std::string& name, const std::string& path, const CopyEngineSetup& setup,
                RemovalOptions options);

// Clears the lock (immutable) and append-only flags of an open item, where
// the process may.
void clearLockFlags(int fd);

}  // namespace halyard::fileservices

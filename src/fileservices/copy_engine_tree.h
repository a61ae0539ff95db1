#pragma once
// TreeCopier: copies one item, a folder with everything in it, to a hidden
// partial beside its destination, by descriptor. Data moves in blocks of the
// setup's buffer size with holes kept, hard links inside the tree stay hard
// links, and every item keeps its extended attributes, owner, group, mode,
// times and inode flags; what the destination cannot hold is reported as a
// loss, or fails the copy when losses are not allowed (a move). A file that
// changes while it is copied fails the copy: its copy would be torn.

#include <sys/stat.h>

#include <functional>
#include <map>
#include <string>
#include <utility>

#include "fileservices/copy_engine.h"
#include "fileservices/copy_engine_walk.h"

namespace halyard::fileservices {

// The data of an open regular file (`st` its status) into another, block by
// block, telling the setup's progress after each block. 0, an errno value,
// or -128 when the progress asks to stop.
int copyFileData(int in, int out, const struct stat& st, const CopyEngineSetup& setup);

// The hidden name ".NAME.halyard-partial-" that every partial of a
// destination named NAME starts with; the owner's process id follows it.
// The owner also holds an exclusive flock on the partial (a file or a
// folder): a process id names no process in another PID namespace or on
// another host sharing the folder, a held lock tells the partial is in use
// anywhere.
std::string partialPrefixFor(const std::string& destName);

class TreeCopier {
 public:
  // A move passes the record of what it copies: its losses are failures.
  TreeCopier(const CopyEngineSetup& setup, CopiedItems* moved)
      : setup_(setup), lossIsFailure_(moved != nullptr), moved_(moved) {}

  // Copies the source to a new partial in the destination's folder and
  // flushes it to the disk. The partial's name is chosen afresh when another
  // item holds it already.
  int copyToPartial(int srcParentFd, const std::string& srcPath, int destParentFd, const std::string& destPath);
  // The top item's inode flags, held back until it has its final name: a
  // locked item cannot be renamed.
  int applyTopFlags(int destParentFd, const std::string& destName, const std::string& destPath);

  bool madePartial() const { return madeTop_; }
  const std::string& partialName() const { return partialName_; }
  const TreeCount& count() const { return count_; }

 private:
  struct Item {
    int dirFd;
    std::string name;
    std::string path;
  };
  int copyNode(const Item& src, const Item& dest, const std::string& relative);
  int copyItemAt(const Item& src, const Item& dest, const std::string& relative);
  int created(int rc);
  void holdPartial(int fd);
  int copyFile(const Item& src, const Item& dest, const struct stat& st, const std::string& relative);
  int copyFolder(const Item& src, const Item& dest, const struct stat& st, const std::string& relative);
  int copyOther(const Item& src, const Item& dest, const struct stat& st);
  int applyMetadata(int srcFd, int destFd, const struct stat& st, const std::string& destPath, bool top);
  int copyAttributes(int srcFd, int destFd, const std::string& destPath);
  using Chown = std::function<int(uid_t, gid_t)>;
  int keepOwner(const struct stat& st, const std::string& destPath, const Chown& chownItem);
  int keepFlags(unsigned wanted, int destFd, const std::string& destPath);
  int flushPartial(int destParentFd, const std::string& partialPath, const struct stat& st);
  int loss(const std::string& path, const std::string& what);
  void copied(const struct stat& st) {
    if (moved_) moved_->add(st);
  }

  const CopyEngineSetup& setup_;
  const bool lossIsFailure_;
  CopiedItems* const moved_;
  bool madeTop_ = false;
  std::string partialName_;
  int rootFd_ = -1;       // the partial folder, while its tree is copied
  UniqueFd partialLock_;  // an exclusive flock on the partial while this copy lives
  unsigned topFlags_ = 0;
  TreeCount count_;
  std::map<std::pair<dev_t, ino_t>, std::string> linked_;  // first copy of each hard-linked file
};

}  // namespace halyard::fileservices

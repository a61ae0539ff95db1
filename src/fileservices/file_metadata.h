#pragma once
// File metadata the file manager keeps across copies and moves: the comment
// (the extended attribute "user.xdg.comment"), the locked flag (the
// immutable inode flag), extended attributes and permission bits.

#include <optional>
#include <string>
#include <vector>

namespace halyard::fileservices {

inline constexpr const char* kCommentAttribute = "user.xdg.comment";

// The comment, or nothing when the item has none (or it cannot be read).
std::optional<std::string> readComment(const std::string& path);
// 0 or the errno value.
int writeComment(const std::string& path, const std::string& comment);

int removeComment(const std::string& path);

// Locking needs CAP_LINUX_IMMUTABLE; without it locks are neither set nor
// cleared and the operation goes on.
bool canChangeLock();
bool isLocked(const std::string& path);
// 0 or the errno value.
int setLocked(const std::string& path, bool locked);

// Copies every extended attribute of `from` to `to` (symbolic links
// themselves when `noFollow`), except the excluded names. Attributes the
// target's file system cannot hold are skipped; 0 or the errno value.
int copyExtendedAttributes(const std::string& from, const std::string& to, bool noFollow,
                           const std::vector<std::string>& excluded);

// The permission bits, or nothing when the item cannot be examined.
std::optional<unsigned> permissionBits(const std::string& path);
// Adds owner write permission when this process could not write to the
// item otherwise (never as root); answers the old bits when it changed them.
std::optional<unsigned> raiseToWritable(const std::string& path);
void restorePermissionBits(const std::string& path, std::optional<unsigned> bits);

// Write permission raised for the time of one operation and restored when
// it goes, on every path out.
class RaisedPermissions {
 public:
  explicit RaisedPermissions(std::string path) : path_(std::move(path)), old_(raiseToWritable(path_)) {}
  ~RaisedPermissions() { restorePermissionBits(path_, old_); }
  RaisedPermissions(const RaisedPermissions&) = delete;
  RaisedPermissions& operator=(const RaisedPermissions&) = delete;

 private:
  std::string path_;
  std::optional<unsigned> old_;
};

}  // namespace halyard::fileservices

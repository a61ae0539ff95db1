#pragma once
// Making the privileged copy of the wake tool. The agent runs the installed
// template through pkexec with "--install <folder>/Halyard/WakeToSyncTool";
// running as root for a user it does not trust, the template copies its own
// bytes there, owned by root and set-user-id, and nowhere else.

#include <sys/types.h>

#include <optional>
#include <string>

namespace halyard::wake {

inline constexpr char kInstallOption[] = "--install";

// The error number of a copy refused because its folder lies on a volume
// that ignores ownership: mounted nosuid, or keeping no POSIX owners.
inline constexpr int kVolumeIgnoresOwnership = 5370;

// True when the folder open at `folderFd` lies on such a volume.
bool volumeIgnoresOwnership(int folderFd);

// Copies the bytes readable at `sourceFd` to `toolPath`, which must be an
// absolute path ending in "/Halyard/WakeToSyncTool" with no link, "." or
// ".." on the way, in a folder that `caller` (the user pkexec acts for, when
// known) owns: a folder another user made first, in a shared place such as
// /var/tmp, would hold the copy for them. Returns 0 or an error number:
// EINVAL for any other path, ELOOP or ENOTDIR for a link on the way, EPERM
// for a folder of someone else's, kVolumeIgnoresOwnership, or the error of
// the file operation. The copy appears whole or not at all.
int installPrivilegedCopy(const std::string& toolPath, int sourceFd, std::optional<uid_t> caller);

}  // namespace halyard::wake

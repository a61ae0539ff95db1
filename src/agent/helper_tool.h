#pragma once
// Where the wake tool "WakeToSyncTool" may lie, and the test that a copy
// there is the privileged copy of the installed template: the same bytes,
// owned by root and set-user-id. Nothing here creates or changes a file.
// The copy itself is made by the template, run through pkexec.

#include <optional>
#include <string>
#include <vector>

namespace halyard::agent {

// The installed template: <folder of the running executable>/HALYARD_WAKE_TOOL_TEMPLATE_FROM_BINDIR
// (../libexec/halyard/WakeToSyncToolTemplate), normalised.
std::string installedHelperToolTemplate();
inline constexpr char kHelperToolSubfolder[] = "Halyard";
inline constexpr char kHelperToolName[] = "WakeToSyncTool";
// What runs the template with root's rights to make the copy; tests point
// the agent at a stand-in.
inline constexpr char kPrivilegeLauncherPath[] = "/usr/bin/pkexec";

// The two kinds of folder a copy may be made in.
enum class HelperFolderType { ApplicationSupport, TemporaryItems };

// The folders searched, in order: the application-support folders of the
// user, local and system domains (the network domain has none here), then
// the temporary-items folders of the user and local domains.
struct HelperToolFolders {
  std::vector<std::string> applicationSupport;
  std::vector<std::string> temporaryItems;

  // ~/.local/share (XDG_DATA_HOME), /usr/local/share, /usr/share;
  // $XDG_RUNTIME_DIR, /var/tmp.
  static HelperToolFolders forCurrentUser();
  const std::vector<std::string>& ofType(HelperFolderType type) const {
    return type == HelperFolderType::ApplicationSupport ? applicationSupport : temporaryItems;
  }
};

// <folder>/Halyard/WakeToSyncTool
std::string helperToolPath(const std::string& folder);

// True for a regular file (not a link) owned by root, set-user-id, whose
// bytes equal the template's, in a folder that only this user or root can
// change.
bool isValidHelperTool(const std::string& toolPath, const std::string& templatePath);

// The first valid tool in search order; absent when the template is missing
// or no folder holds a valid copy.
std::optional<std::string> findValidHelperTool(const HelperToolFolders& folders, const std::string& templatePath);
std::optional<std::string> findValidHelperTool(const std::vector<std::string>& folders,
                                               const std::string& templatePath);

// True when `folder` lies on a volume that ignores ownership (mounted nosuid,
// or a file system without POSIX owners), where no privileged copy can live.
bool folderIgnoresOwnership(const std::string& folder);

}  // namespace halyard::agent

#pragma once
// The paths `halyardctl fs` acts on: where an item goes when the destination
// is a folder, a source named through a link with a final "/", and the paths
// `fs remove` refuses.

#include <optional>
#include <string>

namespace halyard::tools {

// `dest`, or `dest`/NAME of the source when `dest` ends in "/" or names an
// existing folder, as cp and mv do.
std::string destinationFor(const std::string& src, const std::string& dest);

// The folder a source named with a final "/" through a symbolic link leads
// to, which cp copies as the link's name ("Docs/" for Docs -> real); nothing
// for any other source.
std::optional<std::string> folderBehindLink(const std::string& src);

// Why the path must not be removed: the root folder, the user's home folder,
// or a last component "." or ".." (which would name a parent or the folder
// being worked in). Nothing when it may be removed.
std::optional<std::string> refusalToRemove(const std::string& path);

}  // namespace halyard::tools

#pragma once
// The paths `halyardctl fs` acts on: where an item goes when the destination
// is a folder, and the paths `fs remove` refuses.

#include <optional>
#include <string>

namespace halyard::tools {

// `dest`, or `dest`/NAME of the source when `dest` ends in "/" or names an
// existing folder, as cp and mv do.
std::string destinationFor(const std::string& src, const std::string& dest);

// Why the path must not be removed: the root folder, the user's home folder,
// or a last component "." or ".." (which would name a parent or the folder
// being worked in). Nothing when it may be removed.
std::optional<std::string> refusalToRemove(const std::string& path);

}  // namespace halyard::tools

#pragma once
// Whole-file reads and atomic whole-file writes, with errors as values.

#include <string>

#include "foundation/expected.h"

namespace halyard {

// The whole file, or an error naming the path and the system's reason.
Expected<std::string> readWholeFile(const std::string& path);

// Writes the file so that a reader sees either the old or the new contents,
// never a part: a temporary file in the same folder, flushed to disk, then
// renamed over the target.
Status writeFileAtomically(const std::string& path, const std::string& contents);

}  // namespace halyard

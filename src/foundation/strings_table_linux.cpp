// Where the resources are: the environment, the installed layout beside the
// executable (/proc/self/exe), or the source tree the program was built from.

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "foundation/strings_table.h"

namespace halyard {

std::string resourceFolder() {
  if (const char* folder = std::getenv("HALYARD_RESOURCE_DIR"); folder && folder[0] != '\0') return folder;
  std::error_code error;
  const auto executable = std::filesystem::read_symlink("/proc/self/exe", error);
  if (!error) {
    const auto installed = executable.parent_path().parent_path() / "share" / "halyard";
    if (std::filesystem::is_directory(installed / "strings", error)) return installed.string();
  }
  return HALYARD_RESOURCE_DIR_FALLBACK;
}

}  // namespace halyard

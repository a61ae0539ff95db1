// `halyardctl dump FILE`: any archive as JSON; a bad file gives the reason
// and the byte offset, and a non-zero exit status.

#include <iostream>

#include "foundation/file_io.h"
#include "foundation/json_writer.h"
#include "foundation/unarchiver.h"
#include "tools/commands.h"
#include "tools/known_classes.h"

namespace halyard::tools {

int runDump(const Arguments& args) {
  if (args.size() != 1) {
    std::cerr << "usage: halyardctl dump FILE\n";
    return 2;
  }
  auto bytes = readWholeFile(args[0]);
  if (!bytes) {
    std::cerr << "halyardctl: " << bytes.error().describe() << "\n";
    return 1;
  }
  auto groups = Unarchiver::unarchiveGroups(*bytes, knownClasses());
  if (!groups) {
    std::cerr << "halyardctl: " << args[0] << ": not a valid archive: " << groups.error().describe() << "\n";
    return 1;
  }
  // An archive of one root object prints as that object.
  const bool singleRoot = groups->size() == 1 && groups->front().types == "@";
  std::cout << (singleRoot ? JsonWriter::describe(std::get<ObjectRef>(groups->front().values.front().value))
                           : JsonWriter::describe(*groups))
            << "\n";
  return 0;
}

}  // namespace halyard::tools

#pragma once
// `halyardctl volumes`: the pieces its two files share — a volume record's
// identity as text and as JSON, and the `check` subcommand.

#include <ostream>

#include "foundation/json_writer.h"
#include "tools/commands.h"
#include "volumes/volume_specifier.h"

namespace halyard::tools::volumes {

// The identity fields on indented lines: name, format and numbers, device
// strings, flags and creation date.
void printIdentity(std::ostream& out, VolumeSpecifier& record, const char* indent);
// The same fields as one JSON object.
void writeIdentity(JsonWriter& json, VolumeSpecifier& record);

// `volumes check N [--file PATH]`.
int runCheck(const Arguments& args);

}  // namespace halyard::tools::volumes

#pragma once
// The one dictionary a class of this program archives as its contents:
// decoded, and anything else in its place an error naming the owner.

#include <memory>
#include <string>

#include "foundation/archived_values.h"
#include "foundation/expected.h"
#include "foundation/unarchiver.h"
#include "foundation/values.h"

namespace halyard {

// `owner` names the object in the message ("a log"). Where `nilAllowed`, a
// nil in the dictionary's place answers null: the owner keeps its defaults.
inline Expected<std::shared_ptr<Dictionary>> decodeArchivedDictionary(Unarchiver& coder, const char* owner,
                                                                      bool nilAllowed = false) {
  const std::size_t at = coder.offset();
  auto object = coder.decodeObject();
  if (!object) return object.error();
  auto archive = objectAs<Dictionary>(*object);
  if (!archive && (*object || !nilAllowed)) {
    return coder.failureAt(at, std::string(owner) + " holds " + archivedClassName(*object) + ", not a dictionary");
  }
  return archive;
}

}  // namespace halyard

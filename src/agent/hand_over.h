#pragma once
// The hand-over payload: the sequential archive of {"AddedItems": items},
// carried as "data" in "VTHalyardAddScheduledItems".

#include <string>
#include <vector>

#include <QVariantMap>

#include "foundation/class_registry.h"
#include "foundation/expected.h"
#include "foundation/object.h"

namespace halyard::agent {

inline constexpr char kAddedItemsKey[] = "AddedItems";

std::string encodeHandOver(const std::vector<ObjectRef>& items);
// The user info of "VTHalyardAddScheduledItems": {"data": the archive}.
QVariantMap handOverUserInfo(const std::vector<ObjectRef>& items);

// The items of a hand-over archive; an error when the bytes are no archive or
// its root is not a dictionary holding an array under "AddedItems".
Expected<std::vector<ObjectRef>> decodeHandOver(const std::string& bytes, const ClassRegistry& registry);

}  // namespace halyard::agent

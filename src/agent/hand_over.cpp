#include "agent/hand_over.h"

#include <QByteArray>

#include "agent/notification_bus.h"

#include "foundation/archiver.h"
#include "foundation/unarchiver.h"
#include "foundation/values.h"

namespace halyard::agent {

std::string encodeHandOver(const std::vector<ObjectRef>& items) {
  auto root = Dictionary::make(false);
  root->set(kAddedItemsKey, Array::make(items, false));
  return Archiver::archivedData(root);
}

QVariantMap handOverUserInfo(const std::vector<ObjectRef>& items) {
  const std::string archive = encodeHandOver(items);
  return {{notifications::kDataKey, QByteArray(archive.data(), static_cast<qsizetype>(archive.size()))}};
}

Expected<std::vector<ObjectRef>> decodeHandOver(const std::string& bytes, const ClassRegistry& registry) {
  auto root = Unarchiver::unarchiveRootObject(bytes, registry);
  if (!root) return root.error();
  auto dictionary = objectAs<Dictionary>(*root);
  if (!dictionary) return makeError("the hand-over archive holds no dictionary");
  auto items = objectAs<Array>(dictionary->get(kAddedItemsKey));
  if (!items) return makeError("the hand-over archive holds no \"AddedItems\" array");
  return items->items;
}

}  // namespace halyard::agent

#pragma once
// The shape the archive fuzz targets share: the bytes are decoded with the
// target's class registry; when they decode to a T, the target exercises
// it, then it is written again and read back, which must give a T again.

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "foundation/archiver.h"
#include "foundation/class_registry.h"
#include "foundation/unarchiver.h"

template <class T, class Exercise>
int fuzzArchivedObject(const std::uint8_t* data, std::size_t size, const halyard::ClassRegistry& registry,
                       Exercise exercise) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  auto root = halyard::Unarchiver::unarchiveRootObject(bytes, registry);
  if (!root) return 0;
  const std::shared_ptr<T> object = halyard::objectAs<T>(*root);
  if (!object) return 0;
  exercise(*object);
  auto again = halyard::Unarchiver::unarchiveRootObject(halyard::Archiver::archivedData(object), registry);
  if (!again || !halyard::objectAs<T>(*again)) std::abort();
  return 0;
}

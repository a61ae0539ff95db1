// Feeds arbitrary bytes to the archive reader with the volume record's
// decoder on a machine described in data (no real volume is touched).
// Whatever decodes as a record is compared with itself and with its copy,
// written again and read again, which must succeed.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "foundation/archiver.h"
#include "foundation/unarchiver.h"
#include "volumes/fake_volume_queries.h"
#include "volumes/volume_specifier.h"

namespace {

const halyard::ClassRegistry& registry() {
  static const halyard::ClassRegistry classes = [] {
    auto manager = halyard::fileservices::VTFileManager::make();
    manager->setVolumeQueries(std::make_shared<halyard::FakeVolumeQueries>());
    halyard::ClassRegistry r = halyard::ClassRegistry::foundation();
    halyard::registerVolumeClasses(r, [manager] { return manager; });
    return r;
  }();
  return classes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  auto root = halyard::Unarchiver::unarchiveRootObject(bytes, registry());
  if (!root) return 0;
  auto record = halyard::objectAs<halyard::VolumeSpecifier>(*root);
  if (!record) return 0;
  auto copy = record->copyWithZone();
  (void)record->isEqual(copy);
  record->setFileFormatToSave(1024);
  auto again = halyard::Unarchiver::unarchiveRootObject(halyard::Archiver::archivedData(record), registry());
  if (!again || !halyard::objectAs<halyard::VolumeSpecifier>(*again)) std::abort();
  return 0;
}

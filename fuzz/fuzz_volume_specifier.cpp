// Feeds arbitrary bytes to the archive reader with the volume record's
// decoder on a machine described in data (no real volume is touched).
// Whatever decodes as a record is compared with itself and with its copy,
// written again and read again, which must succeed.

#include <cstddef>
#include <cstdint>

#include "fuzz_archived_object.h"
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
  return fuzzArchivedObject<halyard::VolumeSpecifier>(data, size, registry(), [](halyard::VolumeSpecifier& record) {
    auto copy = record.copyWithZone();
    (void)record.isEqual(copy);
    record.setFileFormatToSave(1024);
  });
}

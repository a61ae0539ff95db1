// Feeds arbitrary bytes to the archive reader with the log classes'
// decoders. Whatever decodes as a log is read through its accessors,
// copied, written again (its mirror is never on: no file is touched) and
// read again, which must succeed.

#include <cstddef>
#include <cstdint>

#include "fuzz_archived_object.h"
#include "logging/generic_log.h"

namespace {

class EpochClock final : public halyard::LogClock {
 public:
  halyard::TimeInterval now() const override { return 0; }
  cctz::time_zone zone() const override { return cctz::utc_time_zone(); }
};

const halyard::ClassRegistry& registry() {
  static const halyard::ClassRegistry classes = [] {
    halyard::ClassRegistry r = halyard::ClassRegistry::foundation();
    halyard::registerLogClasses(r, {std::make_shared<EpochClock>(), nullptr});
    return r;
  }();
  return classes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzzArchivedObject<halyard::GenericLog>(data, size, registry(), [](halyard::GenericLog& log) {
    log.setMirrorToLogFile(false);
    for (std::size_t i = 0; i < log.logEntryCount() && i < 64; ++i) (void)log.logEntryAtIndex(i);
    auto copy = log.copy();
    copy->addLogMessage("fuzz");
    (void)copy->assertMaxSize();
  });
}

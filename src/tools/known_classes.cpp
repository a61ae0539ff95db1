#include "tools/known_classes.h"

#include "schedule/schedule_file.h"
#include "volumes/volume_specifier.h"

namespace halyard::tools {

const ClassRegistry& knownClasses() {
  static const ClassRegistry registry = [] {
    ClassRegistry r = ClassRegistry::foundation();
    registerScheduleClasses(r, systemCalendarClock());
    registerVolumeClasses(r);
    return r;
  }();
  return registry;
}

}  // namespace halyard::tools

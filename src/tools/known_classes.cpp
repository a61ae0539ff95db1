#include "tools/known_classes.h"

namespace halyard::tools {

const ClassRegistry& knownClasses() {
  static const ClassRegistry registry = [] {
    ClassRegistry r = ClassRegistry::foundation();
    return r;
  }();
  return registry;
}

}  // namespace halyard::tools

#pragma once
// The registry of every archived class this program knows: the Foundation
// classes and the project's own.

#include "foundation/class_registry.h"

namespace halyard::tools {

const ClassRegistry& knownClasses();

}  // namespace halyard::tools

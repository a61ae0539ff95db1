#pragma once
// What the bus commands of halyardctl share: the Qt application they run in,
// and the readable form of notifications and hand-overs.

#include <optional>
#include <string>
#include <vector>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QString>
#include <QVariantMap>

#include "foundation/object.h"

namespace halyard::tools {

// The Qt application a bus command runs its event loop in.
class BusCommandApplication {
 public:
  BusCommandApplication() : app_(argc_, argv_) {}
  int exec() { return app_.exec(); }

 private:
  int argc_ = 1;
  char name_[11] = "halyardctl";
  char* argv_[2] = {name_, nullptr};
  QCoreApplication app_;
};

// The session bus, or absent after saying on standard error that it cannot be reached.
std::optional<QDBusConnection> connectSessionBus();

// Returns once the bus has handled everything sent before: messages leave a
// connection in order, so a call's answer comes after them.
void waitForBus(QDBusConnection& connection);

// One line per item: its description, document and schedule type (or the
// JSON of an element that is no scheduled item).
std::string describeHandOverItems(const std::vector<ObjectRef>& items);

// "NAME key=value ..." with "data" decoded as a hand-over when it is one.
std::string describeNotification(const QString& name, const QVariantMap& userInfo);

// The items carried in a user info's "data"; an error text when it holds none.
struct DecodedHandOver {
  std::vector<ObjectRef> items;
  std::string error;
};
DecodedHandOver decodeHandOverData(const QVariantMap& userInfo);

}  // namespace halyard::tools

#pragma once
// System power notifications from systemd-logind on the system bus:
// PrepareForSleep(true) is "the system will sleep", PrepareForSleep(false)
// "the system has powered on". A delay inhibitor is held while awake, so the
// agent is told before the machine sleeps; letting it go allows the sleep.

#include <functional>

#include <QDBusConnection>
#include <QDBusUnixFileDescriptor>
#include <QObject>

namespace halyard::agent {

enum class PowerMessage { WillSleep, HasPoweredOn };

class LogindPower final : public QObject {
  Q_OBJECT
 public:
  using Callback = std::function<void(PowerMessage)>;
  LogindPower(QDBusConnection system, Callback callback);

  // Subscribes to PrepareForSleep and asks for the delay inhibitor; false when
  // the system bus cannot be reached. A bus without logind is no failure:
  // the signal simply never comes.
  bool registerForSystemPower();
  bool holdsInhibitor() const { return inhibitor_.isValid(); }

 private Q_SLOTS:
  void onPrepareForSleep(bool start);

 private:
  void takeDelayInhibitor();

  QDBusConnection system_;
  Callback callback_;
  QDBusUnixFileDescriptor inhibitor_;
};

}  // namespace halyard::agent

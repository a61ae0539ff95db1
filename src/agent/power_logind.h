#pragma once
// System power notifications from systemd-logind on the system bus:
// PrepareForSleep(true) is "the system will sleep", PrepareForSleep(false)
// "the system has powered on". A delay inhibitor is held while awake, so the
// agent is told before the machine sleeps; letting it go allows the sleep.
//
// The system bus and logind may restart under a running agent: when the bus
// goes, the agent connects again as soon as it is back and subscribes anew;
// whenever logind (re)appears on the bus, the delay inhibitor is taken again.
// Each step is logged.

#include <functional>
#include <memory>

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QDBusUnixFileDescriptor>
#include <QObject>
#include <QTimer>

#include "agent/connection_watch.h"
#include "agent/event_loop_tasks.h"

namespace halyard::agent {

enum class PowerMessage { WillSleep, HasPoweredOn };

class LogindPower final : public QObject {
  Q_OBJECT
 public:
  using Callback = std::function<void(PowerMessage)>;
  // The will-sleep work; the machine sleeps once it calls `allowSleep`.
  using SleepPreparation = std::function<void(std::function<void()> allowSleep)>;
  // Makes a new connection to the system bus (it may fail to connect); the
  // connection is made again after the bus restarts.
  using Connector = std::function<QDBusConnection()>;
  LogindPower(Connector connector, Callback callback);
  ~LogindPower() override;

  // Subscribes to PrepareForSleep and asks for the delay inhibitor; false when
  // the system bus cannot be reached. A bus without logind is no failure:
  // the signal simply never comes.
  bool registerForSystemPower();
  bool holdsInhibitor() const { return inhibitor_.isValid(); }
  void setSleepPreparation(SleepPreparation preparation) { preparation_ = std::move(preparation); }
  // Holds a "block" inhibitor for idle sleep while `veto` is true.
  void setIdleVeto(bool veto);
  bool holdsIdleVeto() const { return idleInhibitor_.isValid(); }
  // How many times the subscription was made after a lost system bus.
  int resubscriptions() const { return resubscriptions_; }

 private Q_SLOTS:
  void onPrepareForSleep(bool start);

 private:
  bool subscribe();
  void takeDelayInhibitor();
  void takeIdleInhibitor();
  void allowSleep(int sleep);
  void systemBusLost();
  void tryToReconnect();

  Connector connector_;
  Callback callback_;
  QDBusConnection system_;
  QDBusUnixFileDescriptor inhibitor_;
  QDBusUnixFileDescriptor idleInhibitor_;
  SleepPreparation preparation_;
  int sleeps_ = 0;  // counts sleeps and wakes, so a late allowSleep finds its sleep over
  bool idleVetoWanted_ = false;
  bool idleInhibitPending_ = false;
  std::unique_ptr<QDBusServiceWatcher> logindWatch_;
  std::unique_ptr<ConnectionWatch> connectionWatch_;
  QTimer reconnectTimer_;
  bool reconnecting_ = false;
  int resubscriptions_ = 0;
  EventLoopTasks background_;
};

}  // namespace halyard::agent

#pragma once
// A daemon in the test process beside a private system bus on which a fake
// logind can run: the agent's power registration connects there.

#include <QDBusArgument>
#include <QDBusMessage>

#include "agent/power_logind.h"
#include "daemon_fixture.h"

namespace halyard::agent::testing {

class SleepTest : public DaemonFixture {
 protected:
  // What the agent's power registration is given: a new connection to the
  // private system bus each time, at its address of the moment.
  LogindPower::Connector connector() {
    return [this] { return system_.connect(QString("power-%1-%2").arg(agentName_).arg(++connections_)); };
  }
  void emitPrepareForSleep(bool start) {
    QDBusMessage call = QDBusMessage::createMethodCall("org.freedesktop.login1", "/org/freedesktop/login1",
                                                       "test.FakeLogind", "EmitPrepareForSleep");
    call << start;
    ASSERT_EQ(callOnSystemBus(call).type(), QDBusMessage::ReplyMessage);
  }
  // How many inhibitors the logind of the moment holds (of that mode, when given).
  int inhibitors(const QString& wantedMode = QString()) {
    const QDBusMessage reply = callOnSystemBus(QDBusMessage::createMethodCall(
        "org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager", "ListInhibitors"));
    if (reply.type() != QDBusMessage::ReplyMessage) return -1;
    const QDBusArgument list = reply.arguments().value(0).value<QDBusArgument>();
    int count = 0;
    list.beginArray();
    while (!list.atEnd()) {
      QString what, who, why, mode;
      uint uid = 0, pid = 0;
      list.beginStructure();
      list >> what >> who >> why >> mode >> uid >> pid;
      list.endStructure();
      if (wantedMode.isEmpty() || mode == wantedMode) ++count;
    }
    list.endArray();
    return count;
  }
  // A call over a connection of its own, so that it works across restarts of the bus.
  QDBusMessage callOnSystemBus(const QDBusMessage& call) {
    const QString name = QString("call-%1-%2").arg(agentName_).arg(++connections_);
    QDBusMessage reply = system_.connect(name).call(call);
    QDBusConnection::disconnectFromBus(name);
    return reply;
  }
  std::unique_ptr<TestProcess> startLogind() { return startFakeLogind(bus_, system_); }
  PrivateBus system_{"system"};
  int connections_ = 0;
};

}  // namespace halyard::agent::testing

// The agent executable on private buses and the real clock, in a named zone,
// against `halyardctl simulate` over the same period and schedule: the
// hand-overs the application receives are the ones the simulation prints,
// at the same beats, in the same modes, with the same items in order.

#include <gtest/gtest.h>

#include <csignal>
#include <regex>
#include <sstream>

#include <QCoreApplication>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QEventLoop>
#include <QTimer>

#include "agent/agent_test_support.h"
#include "agent/daemon_fixture.h"
#include "agent/dbus_notification_bus.h"
#include "agent/hand_over.h"
#include "agent/status_service.h"
#include "foundation/file_io.h"
#include "schedule/schedule_file.h"

namespace halyard::agent::testing {
namespace {

constexpr char kZone[] = "Europe/Berlin";

using Instant = cctz::time_point<std::chrono::microseconds>;

Instant instantNow() {
  return std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now());
}
double unixOf(Instant t) { return std::chrono::duration<double>(t.time_since_epoch()).count(); }
Instant instantOf(double unixSeconds) { return Instant(std::chrono::microseconds(std::llround(unixSeconds * 1e6))); }

// Runs the event loop until `done` holds or the wall clock reaches
// `deadline` (Unix seconds), asking every 100 ms rather than spinning through
// a wait of a minute; answers `done`.
bool runUntil(const std::function<bool()>& done, double deadline) {
  QEventLoop loop;
  QTimer tick;
  QObject::connect(&tick, &QTimer::timeout, [&] {
    if (done() || unixOf(instantNow()) >= deadline) loop.quit();
  });
  tick.start(100);
  loop.exec();
  return done();
}

// One hand-over as both sides can state it: the beat to the whole second
// (wall time in the zone), the check's mode and the item descriptions.
struct HandOver {
  std::string beat;
  std::string mode;
  std::vector<std::string> items;
  bool operator==(const HandOver&) const = default;
};

std::ostream& operator<<(std::ostream& out, const HandOver& h) {
  out << h.beat << " " << h.mode << " [";
  for (const std::string& item : h.items) out << " \"" << item << "\"";
  return out << " ]";
}

// The simulation's JSON lines as hand-overs; the beat keeps its whole second.
std::vector<HandOver> parseSimulation(const std::string& output) {
  static const std::regex line(R"x(\{"beat": "([^".]+)\.\d{3}[^"]*", "mode": "(\w+)", "items": \[(.*)\]\})x");
  static const std::regex item(R"x("([^"]*)")x");
  std::vector<HandOver> handOvers;
  std::istringstream lines(output);
  for (std::string text; std::getline(lines, text);) {
    std::smatch match;
    if (!std::regex_match(text, match, line)) {
      ADD_FAILURE() << "not a hand-over line: " << text;
      continue;
    }
    HandOver handOver{match[1], match[2], {}};
    const std::string items = match[3];
    for (std::sregex_iterator it(items.begin(), items.end(), item), end; it != end; ++it) {
      handOver.items.push_back((*it)[1]);
    }
    handOvers.push_back(std::move(handOver));
  }
  return handOvers;
}

// The schedule in the JSON item form: three kinds of items selecting the
// minute `due`, and items that do not (inactive, another minute, a start
// date still to come).
std::string scheduleJson(const cctz::civil_minute& due, const cctz::time_zone& zone) {
  const auto set = [](int size, int selected) {
    std::string bits(static_cast<std::size_t>(size), selected < 0 ? '1' : '0');
    if (selected >= 0) bits[static_cast<std::size_t>(selected)] = '1';
    return bits;
  };
  const auto start = [&](cctz::civil_day day) {
    return "\"" + cctz::format("%Y-%m-%dT%H:%M:%S%Ez", cctz::convert(cctz::civil_second(day), zone), zone) + "\"";
  };
  const cctz::civil_day today(due);
  struct Item {
    const char* description;
    bool active;
    int type;
    std::string start;
    int minute;
  } items[] = {{"daily", true, 4, start(today - 1), due.minute()},
               {"weekly", true, 5, start(today - 1), due.minute()},
               {"monthly", true, 7, start(today - 1), due.minute()},
               {"inactive", false, 4, start(today - 1), due.minute()},
               {"half an hour later", true, 4, start(today - 1), (due.minute() + 30) % 60},
               {"from yesterday", true, 3, start(today - 1), due.minute()},
               {"from tomorrow", true, 3, start(today + 1), due.minute()}};
  std::string json = "[";
  for (const Item& item : items) {
    if (json.size() > 1) json += ",\n";
    json += std::string("{\"description\": \"") + item.description +
            "\", \"active\": " + (item.active ? "true" : "false") + ", \"scheduleType\": " + std::to_string(item.type) +
            ", \"start\": " + item.start + ", \"months\": \"" + set(12, -1) + "\", \"daysOfMonth\": \"" + set(31, -1) +
            "\", \"daysOfWeek\": \"" + set(7, -1) + "\", \"hours\": \"" + set(24, due.hour()) + "\", \"minutes\": \"" +
            set(60, item.minute) + "\"}";
  }
  return json + "]\n";
}

class LiveAgentTest : public ::testing::Test {
 protected:
  LiveAgentTest() {
    ensureApplication();
    cctz::load_time_zone(kZone, &zone_);
  }
  TestProcess::Environment environment() const {
    return {{"XDG_DATA_HOME", home_.path() + "/data"},
            {"XDG_CONFIG_HOME", home_.path() + "/config"},
            {"XDG_STATE_HOME", home_.path() + "/state"},
            {"TZ", kZone}};
  }
  std::string path(const std::string& relative) const { return home_.path().toStdString() + "/" + relative; }
  std::string iso(Instant t) const { return cctz::format("%Y-%m-%dT%H:%M:%E3S%Ez", t, zone_); }
  std::string wholeSecond(Instant t) const { return cctz::format("%Y-%m-%dT%H:%M:%S", t, zone_); }

  // The running agent's Status() map (empty when it does not answer).
  QVariantMap agentStatus(QDBusConnection& connection) const {
    const QDBusMessage reply = connection.call(
        QDBusMessage::createMethodCall(kAgentBusName, kAgentObjectPath, kAgentInterface, "Status"), QDBus::Block);
    return reply.arguments().isEmpty() ? QVariantMap{} : qdbus_cast<QVariantMap>(reply.arguments().first());
  }
  // The agent's last check, in Unix seconds (0 before its first check).
  double lastCheck(QDBusConnection& connection) const {
    const QVariantMap status = agentStatus(connection);
    return status.contains(status_keys::kLastCheckDate)
               ? toUnixSeconds(status.value(status_keys::kLastCheckDate).toDouble())
               : 0;
  }

  cctz::time_zone zone_;
  QTemporaryDir home_;
  PrivateBus session_;
  PrivateBus system_{"system"};
};

TEST_F(LiveAgentTest, HandOversEqualTheSimulationOfTheSamePeriod) {
  auto logind = startFakeLogind(session_, system_);
  TestProcess app(halyardctlPath(), {"serve-app"}, session_.address());
  ASSERT_TRUE(app.waitForOutput("running as"));

  // The next whole minute at least 5 s away (else the one after), so that
  // the agent beats before it and the period starts in the agent's own second.
  const auto boundaryAfter = [](double unixSeconds) { return std::floor(unixSeconds / 60) * 60 + 60; };
  double due = boundaryAfter(unixOf(instantNow()));
  if (due - unixOf(instantNow()) < 5) {
    const double past = due + 0.5;
    ASSERT_TRUE(runUntil([&] { return unixOf(instantNow()) >= past; }, past + 10));
    due = boundaryAfter(past);
  }
  const cctz::civil_minute dueMinute(cctz::convert(instantOf(due), zone_));

  ASSERT_TRUE(writeFileAtomically(path("schedule.json"), scheduleJson(dueMinute, zone_)));
  TestProcess import(halyardctlPath(), {"schedule", "import", path("schedule.json")}, session_.address(), {},
                     environment());
  ASSERT_TRUE(import.waitForExit());
  ASSERT_EQ(import.process().exitCode(), 0) << import.output();

  // Each hand-over as the application sees it, with the check that made it.
  QDBusConnection connection = session_.connect("live-observer");
  std::vector<HandOver> live;
  std::vector<std::string> arrivals;
  {
    DBusNotificationBus bus(connection);
    const ClassRegistry registry = scheduleClassRegistry(systemCalendarClock());
    bus.observe(&live, notifications::kAddScheduledItems, [&](const QVariantMap& userInfo) {
      const Instant arrival = instantNow();
      const QVariantMap status = agentStatus(connection);
      auto items = decodeHandOver(userInfo.value(notifications::kDataKey).toByteArray().toStdString(), registry);
      ASSERT_TRUE(items) << items.error().describe();
      arrivals.push_back(iso(arrival));
      live.push_back({wholeSecond(instantOf(toUnixSeconds(status.value(status_keys::kLastCheckDate).toDouble()))),
                      status.value(status_keys::kLastCheckMode).toString().toStdString(), descriptions(*items)});
    });

    TestProcess agent(backgrounderPath(), {"--log-stderr"}, session_.address(), system_.address(), environment());
    ASSERT_TRUE(agent.waitForOutput("Halyard Backgrounder v4.0.5 is running."));
    const Instant from = instantNow();

    // Until the agent has checked at or after the due minute, asking it once
    // the second after the minute has begun; a few seconds at most, so that a
    // beat that missed the minute shows in the comparison.
    runUntil([&] { return unixOf(instantNow()) >= due + 1 && lastCheck(connection) >= due; }, due + 5);
    // The status answer came after any hand-over of that check, so the
    // hand-over is queued here: deliver it while the agent still answers.
    QCoreApplication::processEvents();
    const Instant to = instantNow();
    ::kill(static_cast<pid_t>(agent.process().processId()), SIGTERM);
    ASSERT_TRUE(agent.waitForExit());
    EXPECT_EQ(agent.process().exitCode(), 0) << agent.output();

    TestProcess simulate(halyardctlPath(),
                         {"simulate", "--from", iso(from), "--to", iso(to), "--tz", kZone, "--schedule",
                          path("data/Halyard/ScheduleData.sched")},
                         session_.address());
    ASSERT_TRUE(simulate.waitForExit());
    ASSERT_EQ(simulate.process().exitCode(), 0) << simulate.output();
    SCOPED_TRACE("period " + iso(from) + " to " + iso(to) + "; simulated:\n" + simulate.output());

    std::ostringstream arrived;
    for (std::size_t i = 0; i < arrivals.size(); ++i) arrived << live.at(i) << " arrived at " << arrivals[i] << "\n";
    SCOPED_TRACE("live:\n" + arrived.str());
    const std::vector<HandOver> simulated = parseSimulation(simulate.output());
    EXPECT_EQ(live, simulated);
    // Not two empty lists: the minute's items, due-list order.
    const HandOver expected{wholeSecond(instantOf(due)), "new", {"daily", "weekly", "monthly", "from yesterday"}};
    EXPECT_EQ(simulated, std::vector<HandOver>{expected});
  }
  QDBusConnection::disconnectFromBus("live-observer");
}

}  // namespace
}  // namespace halyard::agent::testing

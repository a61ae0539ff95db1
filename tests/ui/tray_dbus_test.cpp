// The status item as a StatusNotifierItem on a private session bus with a
// test watcher (Xvfb gives Qt its display; no tray is drawn): the labels,
// ticks and enabled states of its com.canonical.dbusmenu menu, the commands
// chosen through the menu, and the notifications that remove and restore it.

#include <gtest/gtest.h>

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusVariant>

#include "agent/dbus_notification_bus.h"
#include "agent/hand_over.h"
#include "agent/launch_platform.h"
#include "foundation/file_io.h"
#include "schedule/schedule_file.h"
#include "x11_test_support.h"

namespace halyard::agent::testing {
namespace {

// One entry of the exported menu.
struct MenuNode {
  int id = 0;
  QString label;
  bool enabled = true;
  int toggleState = -1;  // -1: no tick
  std::vector<MenuNode> children;

  const MenuNode* child(const QString& wanted) const {
    for (const MenuNode& node : children) {
      if (node.label == wanted) return &node;
    }
    return nullptr;
  }
  std::vector<std::string> labels() const {
    std::vector<std::string> result;
    for (const MenuNode& node : children) {
      if (!node.label.isEmpty()) result.push_back(node.label.toStdString());
    }
    return result;
  }
};

// A (ia{sv}av) layout of com.canonical.dbusmenu.
MenuNode readLayout(const QDBusArgument& argument) {
  MenuNode node;
  QVariantMap properties;
  argument.beginStructure();
  argument >> node.id >> properties;
  argument.beginArray();
  while (!argument.atEnd()) {
    QDBusVariant child;
    argument >> child;
    node.children.push_back(readLayout(child.variant().value<QDBusArgument>()));
  }
  argument.endArray();
  argument.endStructure();
  node.label = properties.value("label").toString();
  node.enabled = properties.value("enabled", true).toBool();
  if (properties.contains("toggle-state")) node.toggleState = properties.value("toggle-state").toInt();
  return node;
}

class TrayOverTheBusTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string missing = missingPrograms({"Xvfb", "xdotool"});
    if (!missing.empty()) GTEST_SKIP() << "no X server here: " << missing << " missing (scripts/setup installs them)";
    x_ = std::make_unique<XvfbServer>();
    ASSERT_FALSE(x_->display().isEmpty()) << "Xvfb did not start";
    agent_ = std::make_unique<AgentOnBuses>(x_->display(), "xcb");
    watcher_ = agent_->spawn("/usr/bin/python3", {HALYARD_SOURCE_DIR "/tests/ui/fake_sni_watcher.py"});
    ASSERT_TRUE(watcher_->waitForOutput("ready"));
    test_ = agent_->session_.connect("tray-test");
  }
  void TearDown() override { QDBusConnection::disconnectFromBus("tray-test"); }

  std::string scheduleFile() const { return agent_->dataFolder() + "/ScheduleData.sched"; }
  // The agent with the demo schedule, once its item has registered; the schedule's bytes as written.
  std::unique_ptr<TestProcess> startWithDemoSchedule() {
    writeDemoSchedule(agent_->dataFolder());
    demoSchedule_ = readWholeFile(scheduleFile()).value();
    auto agent = agent_->start();
    EXPECT_TRUE(watcher_->waitForOutput("registered")) << agent->output();
    // The item may register before its menu is in place.
    EXPECT_TRUE(waitUntil([&] { return !openMenu().children.empty(); })) << "no menu";
    return agent;
  }

  // The bus name under which the item last registered with the watcher.
  QString itemService() {
    const std::string output = watcher_->output();
    const auto at = output.rfind("registered ");
    if (at == std::string::npos) return {};
    return QString::fromStdString(output.substr(at + 11, output.find('\n', at) - at - 11));
  }
  // A plain call, as a host makes it: no introspected proxy, whose metaobject
  // Qt keeps for the connection's lifetime.
  QDBusMessage callItem(const QString& path, const QString& interface, const QString& method,
                        const QVariantList& arguments) {
    QDBusMessage call = QDBusMessage::createMethodCall(itemService(), path, interface, method);
    call.setArguments(arguments);
    return test_.call(call);
  }
  // The menu as a host sees it when it opens.
  MenuNode openMenu() {
    callItem("/MenuBar", "com.canonical.dbusmenu", "AboutToShow", {0});
    const QDBusMessage reply = callItem("/MenuBar", "com.canonical.dbusmenu", "GetLayout", {0, -1, QStringList()});
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() < 2) return {};
    return readLayout(reply.arguments().at(1).value<QDBusArgument>());
  }
  void clickEntry(int id) {
    callItem("/MenuBar", "com.canonical.dbusmenu", "Event",
             {id, QString("clicked"), QVariant::fromValue(QDBusVariant(0)), 0u});
  }
  // Whether the item's objects are on the bus, where it registered last.
  bool itemRegistered() {
    const QDBusMessage reply = callItem("/", "org.freedesktop.DBus.Introspectable", "Introspect", {});
    return !reply.arguments().isEmpty() && reply.arguments().at(0).toString().contains("\"StatusNotifierItem\"");
  }

  std::unique_ptr<XvfbServer> x_;
  std::unique_ptr<AgentOnBuses> agent_;
  std::unique_ptr<TestProcess> watcher_;
  QDBusConnection test_{QString()};
  std::string demoSchedule_;
};

TEST_F(TrayOverTheBusTest, TheExportedMenuCarriesTheModelItsToggleAndQuit) {
  DBusNotificationBus bus(test_);
  std::vector<bool> broadcast;
  bus.observe(this, notifications::kSchedulerStateChanged,
              [&](const QVariantMap& info) { broadcast.push_back(info.value(notifications::kStateKey).toBool()); });
  auto agent = startWithDemoSchedule();
  MenuNode menu = openMenu();
  EXPECT_EQ(menu.labels(),
            (std::vector<std::string>{"Next Scheduled Run", "Scheduled Documents", "Scheduler Is Active",
                                      "Suspend Scheduler", "Open Halyard", "Quit Halyard Backgrounder"}));
  ASSERT_TRUE(menu.child("Scheduled Documents") && menu.child("Next Scheduled Run"));
  // Ticked when active; a document that is gone is listed but cannot be chosen.
  struct Document {
    const char* label;
    bool enabled;
    int ticked;
  } expected[] = {{"Photos", true, 1}, {"Music", true, 0}, {"Laptop", false, 1}};
  const MenuNode& documents = *menu.child("Scheduled Documents");
  ASSERT_EQ(documents.children.size(), 3u);
  for (std::size_t i = 0; i < 3; ++i) {
    SCOPED_TRACE(expected[i].label);
    EXPECT_EQ(documents.children[i].label, expected[i].label);
    EXPECT_EQ(documents.children[i].enabled, expected[i].enabled);
    EXPECT_EQ(documents.children[i].toggleState, expected[i].ticked);
  }
  const MenuNode& nextRun = *menu.child("Next Scheduled Run");
  ASSERT_EQ(nextRun.children.size(), 2u);
  EXPECT_EQ(nextRun.children[0].label, "Photos");
  EXPECT_FALSE(nextRun.children[0].enabled || nextRun.children[1].enabled);
  EXPECT_FALSE(menu.child("Scheduler Is Active")->enabled);

  // Refilled at each opening, not appended to.
  clickEntry(menu.child("Suspend Scheduler")->id);
  ASSERT_TRUE(waitUntil([&] { return (menu = openMenu()).child("Resume Scheduler") != nullptr; }));
  EXPECT_TRUE(menu.child("Scheduler Is Suspended"));
  EXPECT_EQ(menu.child("Next Scheduled Run")->labels(), std::vector<std::string>{"None"});
  EXPECT_TRUE(waitUntil([&] { return !broadcast.empty() && !broadcast.back(); })) << "the suspension was not told";
  bus.removeObserver(this);

  clickEntry(menu.child("Quit Halyard Backgrounder")->id);
  ASSERT_TRUE(agent->waitForExit());
  EXPECT_EQ(agent->process().exitCode(), 0);
  EXPECT_NE(agent->output().find("has terminated."), std::string::npos);
}

TEST_F(TrayOverTheBusTest, AnAltClickHandsOverAForcedCopyAndLeavesTheScheduleAlone) {
  // The test plays the running main application.
  ASSERT_TRUE(test_.registerService(kApplicationBusName));
  DBusNotificationBus bus(test_);
  std::vector<QVariantMap> handedOver;
  bus.observe(this, notifications::kAddScheduledItems, [&](const QVariantMap& info) { handedOver.push_back(info); });
  auto agent = startWithDemoSchedule();
  const MenuNode menu = openMenu();
  ASSERT_TRUE(menu.child("Scheduled Documents") && menu.child("Scheduled Documents")->child("Photos"));
  x_->run("xdotool", {"keydown", "alt"});
  clickEntry(menu.child("Scheduled Documents")->child("Photos")->id);
  const bool arrived = waitUntil([&] { return !handedOver.empty(); });
  x_->run("xdotool", {"keyup", "alt"});
  ASSERT_TRUE(arrived);
  bus.removeObserver(this);
  const auto items = decodeHandOver(handedOver.front().value(notifications::kDataKey).toByteArray().toStdString(),
                                    scheduleClassRegistry(systemCalendarClock()));
  ASSERT_TRUE(items && items->size() == 1u);
  const auto* item = dynamic_cast<const KSScheduledItem*>(items->front().get());
  ASSERT_TRUE(item);
  EXPECT_EQ(item->description(), "Photos");
  EXPECT_TRUE(item->forceToRun());
  EXPECT_EQ(readWholeFile(scheduleFile()).value(), demoSchedule_) << "the schedule file changed";
}

TEST_F(TrayOverTheBusTest, TheStatusMenuNotificationsAndPreferenceRemoveAndRestoreTheItem) {
  auto agent = agent_->start();
  ASSERT_TRUE(watcher_->waitForOutput("registered"));
  ASSERT_TRUE(waitUntil([&] { return itemRegistered(); }));
  for (const bool show : {false, true, false}) {
    SCOPED_TRACE(show ? "shown" : "removed");
    agent_
        ->spawn(halyardctlPath(),
                {"notify", notifications::kStatusMenuStateChanged, "--state", show ? "true" : "false"})
        ->waitForExit();
    EXPECT_TRUE(waitUntil([&] { return itemRegistered() == show; }));
  }
  agent.reset();
  // The preference was written false by the last notification: the next start makes no item.
  const std::string registrations = watcher_->output();
  auto restarted = agent_->start();
  ASSERT_TRUE(restarted->waitForOutput("is running"));
  EXPECT_EQ(watcher_->output(), registrations);
}

}  // namespace
}  // namespace halyard::agent::testing

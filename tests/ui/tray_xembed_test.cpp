// The agent's status item in a real XEmbed tray (trayer) under Xvfb: it waits
// for the tray, is embedded when the tray starts, opens its menu on a click,
// and shows the suspended image when the scheduler is suspended. The
// screenshots are kept under the build folder (tests/ui/artefacts).

#include <gtest/gtest.h>

#include <utility>

#include <QDir>
#include <QElapsedTimer>
#include <QImage>

#include "agent/notification_bus.h"
#include "x11_test_support.h"

namespace halyard::agent::testing {
namespace {

bool iconSized(const QRect& r) { return r.width() > 4 && r.width() <= 64 && r.height() <= 64; }
bool menuSized(const QRect& r) { return r.width() >= 100 && r.height() >= 60; }
bool popupSized(const QRect& r) { return r.width() > 64 && r.height() >= 20; }

class TrayOnXvfbTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string missing = missingPrograms({"Xvfb", "trayer", "xwininfo", "xdotool", "import"});
    if (!missing.empty()) GTEST_SKIP() << "no tray here: " << missing << " missing (scripts/setup installs them)";
    x_ = std::make_unique<XvfbServer>();
    ASSERT_FALSE(x_->display().isEmpty()) << "Xvfb did not start";
    agent_ = std::make_unique<AgentOnBuses>(x_->display(), "xcb");
    QDir().mkpath(artefacts());
  }
  static QString artefacts() { return HALYARD_BINARY_DIR "/tests/ui/artefacts"; }
  QImage screenshot(const QString& name) const {
    const QString file = artefacts() + "/" + name + ".png";
    x_->run("import", {"-window", "root", file});
    return QImage(file);
  }
  void movePointer(const QPoint& to) const {
    x_->run("xdotool", {"mousemove", QString::number(to.x()), QString::number(to.y())});
  }
  void click(const QPoint& at) const {
    movePointer(at);
    x_->run("xdotool", {"click", "1"});
  }
  // Where the icon is now: the tray may still be moving it while it lays itself out.
  QRect icon() const {
    const std::vector<QRect> icons = x_->agentWindows(iconSized);
    return icons.empty() ? QRect() : icons.front();
  }
  // Clicks the icon until its menu shows: an icon just embedded may not take the first click.
  bool openMenu() const {
    QElapsedTimer sinceClick;
    return waitUntil([&] {
      if (!x_->agentWindows(menuSized).empty()) return true;
      if (!sinceClick.isValid() || sinceClick.hasExpired(1500)) {
        click(icon().center());
        sinceClick.start();
      }
      return false;
    });
  }

  std::unique_ptr<XvfbServer> x_;
  std::unique_ptr<AgentOnBuses> agent_;
};

TEST_F(TrayOnXvfbTest, TheIconWaitsForTheTrayOpensItsMenuAndShowsTheState) {
  writeDemoSchedule(agent_->dataFolder());
  auto agent = agent_->start();
  ASSERT_TRUE(agent->waitForOutput("is running"));
  EXPECT_NE(agent->output().find("No status area is available"), std::string::npos);
  auto trayer =
      agent_->spawn("trayer", {"--edge", "top", "--align", "right", "--widthtype", "request", "--height", "32",
                               "--SetDockType", "true", "--transparent", "false", "--tint", "0xd0d0d0"});
  // Embedded, and in its place: the same position twice in a row.
  QRect iconRect, previous;
  ASSERT_TRUE(waitUntil([&] {
    previous = std::exchange(iconRect, icon());
    return iconRect.isValid() && iconRect == previous;
  })) << "never embedded";

  const QPoint away(100, 400);
  movePointer(away);
  const QImage activeIcon = screenshot("tray_active").copy(iconRect);
  ASSERT_TRUE(openMenu()) << "no menu";
  // Over the second entry, "Scheduled Documents": its submenu opens beside the menu.
  movePointer(x_->agentWindows(menuSized).front().topLeft() + QPoint(40, 36));
  EXPECT_TRUE(waitUntil([&] { return x_->agentWindows(popupSized).size() == 2; })) << "no documents submenu";
  screenshot("tray_menu");
  click(away);  // elsewhere: the menu closes
  ASSERT_TRUE(waitUntil([&] { return x_->agentWindows(menuSized).empty(); }));

  agent_->spawn(halyardctlPath(), {"notify", notifications::kSchedulerStateChanged, "--state", "false"})->waitForExit();
  EXPECT_TRUE(waitUntil([&] { return screenshot("tray_suspended").copy(iconRect) != activeIcon; }))
      << "the image did not change";
  EXPECT_EQ(occurrences(agent->output(), "No status area"), 1u) << "logged more than once";
}

TEST(AgentWithoutADisplay, AnUnreachableDisplayLeavesTheAgentRunningWithoutAStatusItem) {
  AgentOnBuses onNoDisplay(":4095");
  auto agent = onNoDisplay.start();
  ASSERT_TRUE(agent->waitForOutput("is running")) << agent->output();
  EXPECT_NE(agent->output().find("No display: the agent runs without a status item."), std::string::npos);
  EXPECT_EQ(agent->process().state(), QProcess::Running);
}

}  // namespace
}  // namespace halyard::agent::testing

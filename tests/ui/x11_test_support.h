#pragma once
// What the tray tests need of X11: an Xvfb server of their own on a free
// display, the programs that look at it (xwininfo, xdotool, import), and a
// schedule for the agent's menu.

#include <QRect>
#include <QString>
#include <QStringList>
#include <string>
#include <vector>

#include "agent/agent_test_support.h"

namespace halyard::agent::testing {

// The programs of `names` that are not on PATH, space-separated; empty when all are.
std::string missingPrograms(const QStringList& names);

// Xvfb -displayfd on the first free display, 800x600x24; stopped when the object goes.
class XvfbServer {
 public:
  XvfbServer();
  ~XvfbServer();
  const QString& display() const { return display_; }  // ":N", empty when it did not start
  // Runs an X client on this display to its end; its standard output.
  std::string run(const QString& program, const QStringList& args) const;
  // Where the agent's X windows lie on the screen: the viewable windows of
  // class halyard-backgrounder whose size passes `accept`.
  std::vector<QRect> agentWindows(bool (*accept)(const QRect&)) const;

 private:
  QProcess server_;
  QString display_;
};

// In `folder`: ScheduleData.sched with an active "Photos" and an inactive
// "Music", whose documents are there, and "Laptop", whose document is gone
// and which never runs ("Photos" is the next run at any hour).
void writeDemoSchedule(const std::string& folder);

}  // namespace halyard::agent::testing

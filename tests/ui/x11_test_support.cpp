#include "x11_test_support.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QRegularExpression>
#include <QStandardPaths>

namespace halyard::agent::testing {

std::string missingPrograms(const QStringList& names) {
  std::string missing;
  for (const QString& name : names) {
    if (QStandardPaths::findExecutable(name).isEmpty()) missing += (missing.empty() ? "" : " ") + name.toStdString();
  }
  return missing;
}

XvfbServer::XvfbServer() {
  server_.start("Xvfb", {"-displayfd", "1", "-screen", "0", "800x600x24", "-nolisten", "tcp"});
  QDeadlineTimer deadline(std::chrono::seconds(10));
  while (!server_.canReadLine() && !deadline.hasExpired()) server_.waitForReadyRead(100);
  const QString number = QString::fromUtf8(server_.readLine()).trimmed();
  if (!number.isEmpty()) display_ = ":" + number;
}

XvfbServer::~XvfbServer() {
  server_.terminate();
  server_.waitForFinished(5000);
}

std::string XvfbServer::run(const QString& program, const QStringList& args) const {
  QProcess client;
  QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
  env.insert("DISPLAY", display_);
  client.setProcessEnvironment(env);
  client.start(program, args);
  client.waitForFinished(10000);
  return client.readAllStandardOutput().toStdString();
}

std::vector<QRect> XvfbServer::agentWindows(bool (*accept)(const QRect&)) const {
  // A line of `xwininfo -root -tree`: id "name": ("instance" "class")  WxH+x+y  +absX+absY
  static const QRegularExpression line(
      R"((0x[0-9a-f]+) "[^"]*": \("halyard-backgrounder" "halyard-backgrounder"\)\s+(\d+)x(\d+)\S*\s+\+(-?\d+)\+(-?\d+))");
  const QString tree = QString::fromStdString(run("xwininfo", {"-root", "-tree"}));
  std::vector<QRect> windows;
  for (auto it = line.globalMatch(tree); it.hasNext();) {
    const auto m = it.next();
    const QRect rect(m.captured(4).toInt(), m.captured(5).toInt(), m.captured(2).toInt(), m.captured(3).toInt());
    if (!accept(rect)) continue;
    if (run("xwininfo", {"-id", m.captured(1)}).find("IsViewable") != std::string::npos) windows.push_back(rect);
  }
  return windows;
}

void writeDemoSchedule(const std::string& folder) {
  const auto photos = makeItem("Photos", 9, 30), music = makeItem("Music", 22, 0), laptop = makeItem("Laptop", 3, 15);
  music->setActive(false);
  laptop->setScheduledHours(std::string(24, '0'));
  for (const auto& item : {photos, music, laptop}) item->setDocumentPathName(folder + "/" + *item->description());
  for (const auto& item : {photos, music})
    QFile(QString::fromStdString(*item->documentPathName())).open(QIODevice::WriteOnly);
  writeSchedule(folder + "/ScheduleData.sched", {photos, music, laptop});
}

}  // namespace halyard::agent::testing

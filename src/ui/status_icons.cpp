#include "ui/status_icons.h"

#include <QPainter>
#include <QPixmap>
#include <QSvgRenderer>

#include "foundation/log_sink.h"
#include "foundation/strings_table.h"

namespace halyard::ui {

namespace {

// The sizes panels use: 16, 22 and 24 px at scale 1, and their larger cousins.
constexpr int kIconSizes[] = {16, 22, 24, 32, 48, 64};

void addRendered(QIcon& icon, const QString& name, QIcon::Mode mode) {
  QSvgRenderer renderer(statusIconPath(name));
  if (!renderer.isValid()) {
    logLine("<Error:> Cannot read the status image " + statusIconPath(name).toStdString(), LogPriority::Error);
    return;
  }
  for (int size : kIconSizes) {
    QPixmap pixmap(size, size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    renderer.render(&painter);
    painter.end();
    icon.addPixmap(pixmap, mode);
  }
}

}  // namespace

QString statusIconPath(const QString& name) {
  return QString::fromStdString(resourceFolder()) + "/icons/" + name + ".svg";
}

QIcon statusIcon(bool schedulerActive) {
  QIcon icon;
  addRendered(icon, schedulerActive ? "HYStatusBar" : "HYStatusBar_S", QIcon::Normal);
  addRendered(icon, schedulerActive ? "HYStatusBarH" : "HYStatusBar_SH", QIcon::Selected);
  return icon;
}

}  // namespace halyard::ui

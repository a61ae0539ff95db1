#pragma once
// The status item's images, drawn from the SVG files in the resources'
// icons folder at the sizes trays ask for (16 to 64 px). The active scheduler
// shows a hoisted sail, the suspended one pause bars in its place; each state
// has a highlighted variant for the selected (menu open) mode.
//
//   tray.setIcon(statusIcon(schedulerActive));

#include <QIcon>
#include <QString>

namespace halyard::ui {

// "<resources>/icons/<name>.svg".
QString statusIconPath(const QString& name);

// "HYStatusBar" with "HYStatusBarH" selected, or "HYStatusBar_S" with "HYStatusBar_SH".
QIcon statusIcon(bool schedulerActive);

}  // namespace halyard::ui

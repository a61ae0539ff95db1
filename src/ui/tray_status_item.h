#pragma once
// TrayStatusItem: the status item in the desktop's tray (StatusNotifierItem
// with its D-Bus menu where the desktop has a watcher, the XEmbed tray
// elsewhere) and its menu: the next run (101), the scheduled documents (102),
// suspend/resume (104), the state line (105), "open Halyard" and quit. The
// menu is refilled from the daemon's model each time it opens.
//
// With no tray host the item waits, shown, and Qt embeds it when a host
// appears; that no status area is available is logged once.

#include <memory>

#include <QMenu>
#include <QObject>
#include <QSystemTrayIcon>

#include "agent/status_item_host.h"

namespace halyard::ui {

class TrayStatusItem final : public QObject, public agent::StatusItemHost {
  Q_OBJECT
 public:
  TrayStatusItem();
  ~TrayStatusItem() override;

  void setMenuActions(agent::StatusMenuActions actions) { actions_ = std::move(actions); }

  bool isInstalled() const override { return static_cast<bool>(tray_); }
  void installStatusItem(bool schedulerActive) override;
  void removeStatusItem() override;
  void showSchedulerState(bool schedulerActive) override;
  void beep() override;

  // The menu's entry with that tag (101, 102, 104, 105); null for another.
  QAction* entry(int tag) const;
  // Refills the submenus and retitles the entries from the daemon's model.
  void menuNeedsUpdate();

 private:
  void buildMenu();
  void fillSubmenu(QMenu& submenu, const std::vector<agent::StatusMenuEntry>& entries);

  QMenu menu_;
  QMenu nextRunMenu_;
  QMenu documentsMenu_;
  QAction* toggleEntry_ = nullptr;
  QAction* stateEntry_ = nullptr;
  std::unique_ptr<QSystemTrayIcon> tray_;
  agent::StatusMenuActions actions_;
  bool reportedNoStatusArea_ = false;
};

}  // namespace halyard::ui

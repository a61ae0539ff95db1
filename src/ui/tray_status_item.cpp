#include "ui/tray_status_item.h"

#include <QApplication>
#include <QCursor>
#include <QGuiApplication>

#include "foundation/log_sink.h"
#include "foundation/strings_table.h"
#include "ui/status_icons.h"

namespace halyard::ui {

namespace {

QString text(const char* key) { return QString::fromStdString(localizedString(key)); }

bool altHeld() { return QGuiApplication::queryKeyboardModifiers().testFlag(Qt::AltModifier); }

}  // namespace

TrayStatusItem::TrayStatusItem() { buildMenu(); }

TrayStatusItem::~TrayStatusItem() = default;

void TrayStatusItem::buildMenu() {
  using namespace agent::menu_tags;
  nextRunMenu_.setTitle(text("MENU_NEXT_RUN"));
  nextRunMenu_.menuAction()->setData(kNextRun);
  documentsMenu_.setTitle(text("MENU_SCHEDULED_DOCUMENTS"));
  documentsMenu_.menuAction()->setData(kDocuments);
  menu_.addMenu(&nextRunMenu_);
  menu_.addMenu(&documentsMenu_);
  menu_.addSeparator();
  stateEntry_ = menu_.addAction(QString());
  stateEntry_->setData(kSchedulerState);
  stateEntry_->setEnabled(false);
  toggleEntry_ = menu_.addAction(QString(), [this] {
    if (actions_.toggleSchedulerState) actions_.toggleSchedulerState();
  });
  toggleEntry_->setData(kToggleScheduler);
  menu_.addSeparator();
  menu_.addAction(text("MENU_OPEN_HALYARD"), [this] {
    if (actions_.launchHalyard) actions_.launchHalyard();
  });
  menu_.addAction(text("MENU_QUIT"), [this] {
    if (actions_.quit) actions_.quit();
  });
  connect(&menu_, &QMenu::aboutToShow, this, &TrayStatusItem::menuNeedsUpdate);
}

QAction* TrayStatusItem::entry(int tag) const {
  for (QAction* action : menu_.actions()) {
    if (action->data() == tag) return action;
  }
  return nullptr;
}

void TrayStatusItem::menuNeedsUpdate() {
  if (!actions_.menuNeedsUpdate) return;
  const agent::StatusMenuModel model = actions_.menuNeedsUpdate();
  fillSubmenu(nextRunMenu_, model.nextRun);
  fillSubmenu(documentsMenu_, model.documents);
  toggleEntry_->setText(QString::fromStdString(model.toggleTitle));
  stateEntry_->setText(QString::fromStdString(model.stateTitle));
}

void TrayStatusItem::fillSubmenu(QMenu& submenu, const std::vector<agent::StatusMenuEntry>& entries) {
  submenu.clear();
  for (const agent::StatusMenuEntry& entry : entries) {
    QAction* action = submenu.addAction(QString::fromStdString(entry.title));
    action->setEnabled(entry.enabled);
    if (!entry.item) continue;
    action->setCheckable(true);
    action->setChecked(entry.checked);
    // A missing document is listed, greyed, and leads nowhere.
    if (!entry.enabled) continue;
    connect(action, &QAction::triggered, this, [this, item = entry.item] {
      if (actions_.openSyncDocument) actions_.openSyncDocument(*item, altHeld());
    });
  }
}

void TrayStatusItem::installStatusItem(bool schedulerActive) {
  if (!QSystemTrayIcon::isSystemTrayAvailable() && !reportedNoStatusArea_) {
    reportedNoStatusArea_ = true;
    logLine("No status area is available: the status item appears when one starts.");
  }
  tray_ = std::make_unique<QSystemTrayIcon>();
  tray_->setToolTip(text("STATUS_ITEM_TOOLTIP"));
  tray_->setIcon(statusIcon(schedulerActive));
  tray_->setContextMenu(&menu_);
  // A left click opens the menu too, as a status item's click does.
  connect(tray_.get(), &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
    if (reason == QSystemTrayIcon::Trigger && tray_) menu_.popup(QCursor::pos());
  });
  tray_->show();
}

void TrayStatusItem::removeStatusItem() { tray_.reset(); }

void TrayStatusItem::showSchedulerState(bool schedulerActive) {
  if (tray_) tray_->setIcon(statusIcon(schedulerActive));
}

void TrayStatusItem::beep() { QApplication::beep(); }

}  // namespace halyard::ui

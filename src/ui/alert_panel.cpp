#include "ui/alert_panel.h"

#include <QGuiApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>

#include "foundation/strings_table.h"

namespace halyard::ui {

namespace {

QString text(const std::string& value) { return QString::fromStdString(value); }

void centreOnScreen(QMessageBox& panel) {
  panel.adjustSize();
  if (const QScreen* screen = QGuiApplication::primaryScreen()) {
    panel.move(screen->availableGeometry().center() - panel.rect().center());
  }
}

}  // namespace

agent::AlertResponse AlertPanel::runAlertPanel(const agent::AlertRequest& request) {
  QMessageBox panel;
  panel.setWindowTitle(text(request.title));
  panel.setText(text(request.title));
  panel.setInformativeText(text(request.message));
  panel.setWindowFlag(Qt::WindowStaysOnTopHint);
  panel.setWindowModality(Qt::ApplicationModal);
  const std::string okTitle = request.okTitle.empty() ? localizedString("ALERT_OK") : request.okTitle;
  const std::string cancelTitle = request.cancelTitle.empty() ? localizedString("ALERT_CANCEL") : request.cancelTitle;
  QPushButton* ok = panel.addButton(text(okTitle), QMessageBox::AcceptRole);
  QPushButton* cancel = panel.addButton(text(cancelTitle), QMessageBox::RejectRole);
  cancel->setEnabled(request.cancelEnabled);
  panel.setDefaultButton(ok);
  centreOnScreen(panel);
  ok_ = ok;
  cancel_ = cancel;
  panel.exec();
  // Without Cancel, closing the window counts as OK: there is no other choice.
  const bool stopped = panel.clickedButton() == ok || !request.cancelEnabled;
  return stopped ? agent::AlertResponse::Stop : agent::AlertResponse::Abort;
}

namespace {

// Clicks the button while its alert still runs; an alert already ended keeps its choice.
void clickWhileShown(QAbstractButton* button) {
  if (button && button->window()->isVisible()) button->click();
}

}  // namespace

void AlertPanel::okSelected() { clickWhileShown(ok_); }

void AlertPanel::cancelSelected() { clickWhileShown(cancel_); }

}  // namespace halyard::ui

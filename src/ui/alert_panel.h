#pragma once
// AlertPanel: the agent's modal alert, a message box that stays above every
// ordinary window, centred, modal for the whole application. OK ends it with
// stop (okSelected), Cancel with abort (cancelSelected); a request without
// Cancel shows the button disabled, so OK is the only choice.

#include <QAbstractButton>
#include <QObject>
#include <QPointer>

#include "agent/alert_panel_host.h"

namespace halyard::ui {

class AlertPanel final : public QObject, public agent::AlertPanelHost {
  Q_OBJECT
 public:
  agent::AlertResponse runAlertPanel(const agent::AlertRequest& request) override;

  // The buttons' actions, also for whoever ends the alert otherwise; no-ops
  // when no alert runs, when it has already ended, or for a disabled Cancel.
  void okSelected();
  void cancelSelected();

 private:
  // The running alert's buttons; null between alerts.
  QPointer<QAbstractButton> ok_;
  QPointer<QAbstractButton> cancel_;
};

}  // namespace halyard::ui

#pragma once
// AlertPanelHost: the agent's own modal alert, which the ui library shows
// above every ordinary window: a title, a message, OK and Cancel. Without a
// display there is none, and the daemon goes on as if OK had been chosen.

#include <string>

namespace halyard::agent {

struct AlertRequest {
  std::string title;
  std::string message;
  bool cancelEnabled = true;  // false: OK is the only choice
  // The buttons' texts; empty: the panel's usual OK and Cancel.
  std::string okTitle = {};
  std::string cancelTitle = {};
};

// How the modal run ended: OK stops it, Cancel aborts it.
enum class AlertResponse { Stop, Abort };

class AlertPanelHost {
 public:
  virtual ~AlertPanelHost() = default;
  virtual AlertResponse runAlertPanel(const AlertRequest& request) = 0;
};

}  // namespace halyard::agent

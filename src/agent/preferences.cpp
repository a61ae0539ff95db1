#include "agent/preferences.h"

#include <QDir>

namespace halyard::agent {

Preferences::Preferences(const QString& filePath) : settings_(filePath, QSettings::IniFormat) {}

QString Preferences::defaultFilePath() {
  QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
  if (config.isEmpty()) config = QDir::homePath() + "/.config";
  return config + "/vantrel/halyard.conf";
}

std::optional<bool> Preferences::boolValue(const char* key) {
  // Another process may have written the file since it was last read.
  settings_.sync();
  const QVariant value = settings_.value(key);
  if (!value.isValid()) return std::nullopt;
  return value.toBool();
}

void Preferences::setBool(const char* key, bool value) {
  settings_.setValue(key, value);
  settings_.sync();
}

}  // namespace halyard::agent

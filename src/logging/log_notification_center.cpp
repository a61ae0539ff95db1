#include <algorithm>

#include "logging/log_collaborators.h"

namespace halyard {

std::shared_ptr<LogNotificationCenter> LogNotificationCenter::defaultCenter() {
  static const auto center = std::make_shared<LogNotificationCenter>();
  return center;
}

void LogNotificationCenter::addObserver(std::shared_ptr<LogObserver> observer) {
  std::lock_guard guard(mutex_);
  observers_.push_back(std::move(observer));
}

void LogNotificationCenter::removeObserver(const LogObserver* observer) {
  std::lock_guard guard(mutex_);
  std::erase_if(observers_, [&](const auto& held) { return held.get() == observer; });
}

void LogNotificationCenter::post(std::string_view name, const GenericLog& log) const {
  std::vector<std::shared_ptr<LogObserver>> observers;
  {
    std::lock_guard guard(mutex_);
    observers = observers_;
  }
  for (const auto& observer : observers) observer->logNotification(name, log);
}

}  // namespace halyard

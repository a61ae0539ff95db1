#include "agent/rules/background_tasks.h"

namespace halyard::agent {

BackgroundTasks::BackgroundTasks(Poster poster) : inbox_(std::make_shared<Inbox>()) {
  inbox_->poster = std::move(poster);
}

BackgroundTasks::~BackgroundTasks() {
  // Once closed, no delivery is posted; those already posted are the
  // poster's to drop.
  std::lock_guard guard(inbox_->mutex);
  inbox_->poster = nullptr;
}

void BackgroundTasks::Inbox::post(std::function<void()> delivery) {
  std::lock_guard guard(mutex);
  if (poster) poster(std::move(delivery));
}

}  // namespace halyard::agent

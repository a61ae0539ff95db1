#include "agent/background_task.h"

#include <QMetaObject>

namespace halyard::agent {

BackgroundTasks::BackgroundTasks() : inbox_(std::make_shared<Inbox>()) { inbox_->receiver = &receiver_; }

BackgroundTasks::~BackgroundTasks() {
  // Once closed, no delivery is posted; those already posted go with the receiver.
  std::lock_guard guard(inbox_->mutex);
  inbox_->receiver = nullptr;
}

void BackgroundTasks::Inbox::post(std::function<void()> delivery) {
  std::lock_guard guard(mutex);
  if (receiver) QMetaObject::invokeMethod(receiver, std::move(delivery), Qt::QueuedConnection);
}

}  // namespace halyard::agent

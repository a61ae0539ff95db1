#include "agent/event_loop_tasks.h"

#include <QMetaObject>

namespace halyard::agent {

EventLoopTasks::EventLoopTasks()
    : tasks_([receiver = &receiver_](std::function<void()> delivery) {
        QMetaObject::invokeMethod(receiver, std::move(delivery), Qt::QueuedConnection);
      }) {}

}  // namespace halyard::agent

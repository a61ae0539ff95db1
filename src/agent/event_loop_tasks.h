#pragma once
// EventLoopTasks: the agent's background tasks, whose results come back
// through the Qt event loop of the thread that made them. Deliveries still
// queued when it goes are dropped with its receiver.

#include <functional>

#include <QObject>

#include "agent/rules/background_tasks.h"

namespace halyard::agent {

class EventLoopTasks {
 public:
  EventLoopTasks();

  template <class Result>
  void run(std::function<Result()> work, std::function<void(Result)> deliver) {
    tasks_.run<Result>(std::move(work), std::move(deliver));
  }

 private:
  // Declared first: it outlives the tasks, so nothing is posted to it after it goes.
  QObject receiver_;
  BackgroundTasks tasks_;
};

}  // namespace halyard::agent

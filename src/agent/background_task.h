#pragma once
// BackgroundTasks: runs work that may wait on a file system off the event
// loop's thread and delivers its result back on that thread. When the owner
// goes first, results still under way are dropped; the threads finish on
// their own (a probe stuck on a dead mount cannot be interrupted).

#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include <QObject>

namespace halyard::agent {

class BackgroundTasks {
 public:
  BackgroundTasks();
  ~BackgroundTasks();
  BackgroundTasks(const BackgroundTasks&) = delete;
  BackgroundTasks& operator=(const BackgroundTasks&) = delete;

  // Runs `work` on a thread of its own, then `deliver` with its result on
  // this object's thread.
  template <class Result>
  void run(std::function<Result()> work, std::function<void(Result)> deliver) {
    std::thread([inbox = inbox_, work = std::move(work), deliver = std::move(deliver)]() mutable {
      auto result = std::make_shared<Result>(work());
      inbox->post([deliver = std::move(deliver), result] { deliver(std::move(*result)); });
    }).detach();
  }

 private:
  // Where finished work posts its delivery; closed when the owner goes.
  struct Inbox {
    std::mutex mutex;
    QObject* receiver = nullptr;
    void post(std::function<void()> delivery);
  };
  QObject receiver_;
  std::shared_ptr<Inbox> inbox_;
};

}  // namespace halyard::agent

#pragma once
// BackgroundTasks: runs work that may wait on a file system off its owner's
// thread and hands the result to a delivery that the owner's poster queues
// on that thread (the agent's event loop). When the owner goes first,
// results still under way are dropped; the threads finish on their own (a
// probe stuck on a dead mount cannot be interrupted).
//
//   BackgroundTasks tasks(postToMyLoop);
//   tasks.run<ScheduleItems>([=] { return probe(); }, [this](ScheduleItems due) { launch(due); });

#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace halyard::agent {

class BackgroundTasks {
 public:
  // Queues a delivery on the owner's thread; called from the work's thread.
  using Poster = std::function<void(std::function<void()> delivery)>;

  explicit BackgroundTasks(Poster poster);
  ~BackgroundTasks();
  BackgroundTasks(const BackgroundTasks&) = delete;
  BackgroundTasks& operator=(const BackgroundTasks&) = delete;

  // Runs `work` on a thread of its own, then `deliver` with its result on
  // the owner's thread.
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
    Poster poster;
    void post(std::function<void()> delivery);
  };
  std::shared_ptr<Inbox> inbox_;
};

}  // namespace halyard::agent

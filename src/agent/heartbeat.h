#pragma once
// The heartbeat: which check a beat runs, and when the next beat fires so that
// beats fall once per wall-clock second and every minute has its beat at
// second 0, whatever the timer's jitter.

#include <chrono>
#include <functional>

#include <QObject>
#include <QTimer>

#include "agent/clock.h"
#include "agent/rules/heartbeat_rules.h"

namespace halyard::agent {

// What the beat timer does when it fires at `now` while waiting for the whole
// second `target`: beat (or not yet, when it fired early), and how long to
// wait for the next whole second. A clock set back far behind the target
// beats at once and aligns to the new time.
struct BeatPlan {
  bool beatNow = false;
  TimeInterval nextTarget = 0;
  std::chrono::milliseconds wait{0};
};
BeatPlan planBeat(TimeInterval now, TimeInterval target);

// The first whole second after `now`.
TimeInterval nextWholeSecond(TimeInterval now);

// Fires `beat` once per wall-clock second of `clock`, just after the second
// turns, telling how late after that whole second it fired; a late or early
// timer is realigned at every beat.
class HeartbeatTimer final : public QObject {
  Q_OBJECT
 public:
  using Beat = std::function<void(TimeInterval lateness)>;
  HeartbeatTimer(const Clock& clock, Beat beat);
  void start();
  void stop();

 private:
  void fire();

  const Clock& clock_;
  Beat beat_;
  QTimer timer_;
  TimeInterval target_ = 0;
};

}  // namespace halyard::agent

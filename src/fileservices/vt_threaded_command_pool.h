#pragma once
// VTThreadedCommandPool: runs long file-system operations off the caller's
// thread. A caller spools a command (a callable taking the command id, an
// argument dictionary and the target object the callable works on) and gets
// back a command id. One worker thread runs spooled commands one at a time,
// oldest first. While a command runs, its caller, its body and the copy loops
// talk through the command's property dictionary ("STATE", "ECODE", "DCPY",
// "PAUSE", "ABORT", ...).
//
//   auto& pool = VTThreadedCommandPool::sharedCommandPool();
//   CommandID id = pool.runCommand([](CommandID id) { ... }, args, target);
//   pool.getPropertyAs<std::int64_t>(kStateKey, -id);  // same command as id
//
// A negative id names the same command as its absolute value.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <variant>
#include <vector>

#include "fileservices/condition_lock.h"
#include "foundation/object.h"

namespace halyard::fileservices {

using CommandID = std::int64_t;

// A command: the operation to perform, given its own command id.
using Command = std::function<void(CommandID)>;

// The progress delegate stored under "UIDEL": told the bytes copied since it
// was last told, then asked whether the copy should stop or pause.
class ProgressDelegate {
 public:
  virtual ~ProgressDelegate() = default;
  // Answers true when the delegate wants `abortFileCopy` and
  // `pauseFileCopy` consulted now.
  virtual bool completedBlockCopy(std::int64_t bytes) = 0;
  virtual bool abortFileCopy() = 0;
  virtual bool pauseFileCopy() = 0;
  // Told the id of the command it watches as soon as the command is
  // spooled, before any wait begins (an interrupt handler needs the id to
  // set "ABORT" itself).
  virtual void willWaitForCommand(CommandID /*id*/) {}
};

// Life-cycle states under "STATE".
enum CommandState : std::int64_t { kCommandSpooled = 1, kCommandRunning = 2, kCommandFinished = 3 };

// The latch conditions under "COND".
inline constexpr int kLatchWaiting = 2;
inline constexpr int kLatchFinished = 3;
inline constexpr int kLatchCollected = 0;

// The exact property keys.
inline constexpr std::string_view kCondKey = "COND";
inline constexpr std::string_view kIDKey = "ID";
inline constexpr std::string_view kCmdKey = "CMD";
inline constexpr std::string_view kArgsKey = "ARGS";
inline constexpr std::string_view kTargKey = "TARG";
inline constexpr std::string_view kStateKey = "STATE";
inline constexpr std::string_view kProgKey = "PROG";
inline constexpr std::string_view kECodeKey = "ECODE";
inline constexpr std::string_view kENameKey = "ENAME";
inline constexpr std::string_view kEDescKey = "EDESC";
inline constexpr std::string_view kResultKey = "RESULT";
inline constexpr std::string_view kDCpyKey = "DCPY";
inline constexpr std::string_view kTimeKey = "TIME";
inline constexpr std::string_view kUIDelKey = "UIDEL";
inline constexpr std::string_view kPauseKey = "PAUSE";
inline constexpr std::string_view kAbortKey = "ABORT";

// The error code a command gets when its body throws.
inline constexpr std::int32_t kCommandRaisedCode = 4;

// A property value. Integers hold "ID", "STATE", "PROG", "ECODE" and
// "DCPY"; booleans "PAUSE" and "ABORT"; strings "ENAME" and "EDESC"; a
// steady-clock instant "TIME"; objects "ARGS" and "RESULT"; the rest hold
// the latch, the command, its target and the progress delegate.
using PropertyTime = std::chrono::steady_clock::time_point;
using PropertyValue =
    std::variant<std::int64_t, bool, std::string, PropertyTime, ObjectRef, Command, std::shared_ptr<void>,
                 std::shared_ptr<ConditionLock>, std::shared_ptr<ProgressDelegate>>;

class VTThreadedCommandPool {
 public:
  // The process's one pool, made on first use; it lives until exit.
  static VTThreadedCommandPool& sharedCommandPool();

  // Starts the worker thread. Tests make their own pools; the process uses
  // the shared one.
  VTThreadedCommandPool();
  // Stops the worker after the command it is running (if any) and joins it.
  ~VTThreadedCommandPool();
  VTThreadedCommandPool(const VTThreadedCommandPool&) = delete;
  VTThreadedCommandPool& operator=(const VTThreadedCommandPool&) = delete;

  // Taken by code outside the pool to make a read and a write of the same
  // property one step.
  std::recursive_mutex& threadLock() { return _threadLock; }

  static std::string keyForCommandID(CommandID id);

  // The value, or nothing for an unknown command or key.
  std::optional<PropertyValue> getProperty(std::string_view key, CommandID id) const;
  // The value when present and of type T.
  template <class T>
  std::optional<T> getPropertyAs(std::string_view key, CommandID id) const {
    auto value = getProperty(key, id);
    if (!value) return std::nullopt;
    if (const T* typed = std::get_if<T>(&*value)) return *typed;
    return std::nullopt;
  }
  // Stores the value. Nothing (or a null pointer) and unknown commands are
  // ignored: properties are never made for a command not in the pool.
  void setProperty(std::string_view key, CommandID id, std::optional<PropertyValue> value);
  void disposeCommand(CommandID id);

  // Spools a command and answers its id (1, 2, 3, ... in spooling order).
  CommandID runCommand(Command command, ObjectRef arguments, std::shared_ptr<void> target);

  // The command the calling thread is running, when it is this pool's
  // worker running one.
  static std::optional<CommandID> runningCommand();

  // For the copy loops: while "PAUSE" is true, blocks (without the thread
  // lock held by the caller) until it or "ABORT" changes; answers true when
  // the command should stop ("ABORT" true).
  bool waitWhilePausedOrAborted(CommandID id);

  // Whether the worker's loop is running.
  bool isCommandMonitorAlive() const { return _commandMonitorAlive.load(); }

 private:
  using Properties = std::map<std::string, PropertyValue, std::less<>>;

  CommandID nextCommandID();
  void addSpooledCommand(CommandID id);
  std::optional<CommandID> nextSpooledCommand();
  void threadedCommandModitor();
  void runThreadedCommand(CommandID id);
  void notifyPropertyChange();
  bool flagIsSet(std::string_view key, CommandID id) const;

  CommandID _commandCounter = 0;
  mutable std::recursive_mutex _threadLock;
  std::map<std::string, std::shared_ptr<Properties>, std::less<>> _threadStatusDictionary;
  std::vector<CommandID> _spooledCommands;
  ConditionLock _spooledCommandsLock{0};
  std::atomic<bool> _commandMonitorAlive{false};
  std::atomic<bool> _commandMonitorShouldStop{false};
  std::condition_variable_any propertyChanged_;
  std::thread worker_;
};

}  // namespace halyard::fileservices

#include "fileservices/vt_threaded_command_pool.h"

#include <cxxabi.h>

#include <cstdlib>
#include <exception>
#include <typeinfo>

namespace halyard::fileservices {

namespace {

// The command the worker of some pool is running on this thread.
thread_local std::optional<CommandID> tRunningCommand;

std::string demangledName(const std::type_info& type) {
  int status = 0;
  char* name = abi::__cxa_demangle(type.name(), nullptr, nullptr, &status);
  std::string result = (status == 0 && name) ? name : type.name();
  std::free(name);
  return result;
}

bool isNullValue(const PropertyValue& value) {
  return std::visit(
      [](const auto& held) {
        using T = std::decay_t<decltype(held)>;
        if constexpr (std::is_same_v<T, ObjectRef> || std::is_same_v<T, std::shared_ptr<void>> ||
                      std::is_same_v<T, std::shared_ptr<ConditionLock>> ||
                      std::is_same_v<T, std::shared_ptr<ProgressDelegate>>) {
          return held == nullptr;
        } else if constexpr (std::is_same_v<T, Command>) {
          return !held;
        } else {
          return false;
        }
      },
      value);
}

}  // namespace

VTThreadedCommandPool& VTThreadedCommandPool::sharedCommandPool() {
  // Never destroyed, like the shared file manager whose commands it runs:
  // a detached probe may still spool a command while the process exits.
  static auto* pool = new VTThreadedCommandPool;
  return *pool;
}

VTThreadedCommandPool::VTThreadedCommandPool() {
  // The flag is set before the thread starts so that a pool destroyed at once
  // still finds its worker alive and joins it.
  _commandMonitorAlive = true;
  worker_ = std::thread([this] { threadedCommandModitor(); });
}

VTThreadedCommandPool::~VTThreadedCommandPool() {
  // One wake-up is enough: the worker re-tests the stop flag after every
  // pass, and a pass with an empty spool returns at once.
  _commandMonitorShouldStop = true;
  _spooledCommandsLock.lock();
  _spooledCommandsLock.unlockWithCondition(1);
  worker_.join();
}

std::string VTThreadedCommandPool::keyForCommandID(CommandID id) {
  // Written through unsigned arithmetic so that the most negative id has a
  // key too.
  const auto magnitude = id < 0 ? ~static_cast<std::uint64_t>(id) + 1 : static_cast<std::uint64_t>(id);
  return std::to_string(magnitude);
}

std::optional<PropertyValue> VTThreadedCommandPool::getProperty(std::string_view key, CommandID id) const {
  std::lock_guard guard(_threadLock);
  auto command = _threadStatusDictionary.find(keyForCommandID(id));
  if (command == _threadStatusDictionary.end()) return std::nullopt;
  auto property = command->second->find(key);
  if (property == command->second->end()) return std::nullopt;
  return property->second;
}

void VTThreadedCommandPool::setProperty(std::string_view key, CommandID id, std::optional<PropertyValue> value) {
  if (!value || isNullValue(*value)) return;
  {
    std::lock_guard guard(_threadLock);
    auto command = _threadStatusDictionary.find(keyForCommandID(id));
    if (command == _threadStatusDictionary.end()) return;
    command->second->insert_or_assign(std::string(key), std::move(*value));
  }
  notifyPropertyChange();
}

void VTThreadedCommandPool::disposeCommand(CommandID id) {
  {
    std::lock_guard guard(_threadLock);
    auto command = _threadStatusDictionary.find(keyForCommandID(id));
    if (command == _threadStatusDictionary.end()) return;
    _threadStatusDictionary.erase(command);
  }
  notifyPropertyChange();
}

CommandID VTThreadedCommandPool::runCommand(Command command, ObjectRef arguments, std::shared_ptr<void> target) {
  std::lock_guard guard(_threadLock);
  auto properties = std::make_shared<Properties>();
  const CommandID id = nextCommandID();
  properties->emplace(kCondKey, std::make_shared<ConditionLock>(kLatchWaiting));
  properties->emplace(kIDKey, id);
  properties->emplace(kCmdKey, std::move(command));
  if (arguments) properties->emplace(kArgsKey, std::move(arguments));
  if (target) properties->emplace(kTargKey, std::move(target));
  properties->emplace(kStateKey, std::int64_t{kCommandSpooled});
  properties->emplace(kProgKey, std::int64_t{0});
  _threadStatusDictionary.emplace(keyForCommandID(id), std::move(properties));
  addSpooledCommand(id);
  return id;
}

std::optional<CommandID> VTThreadedCommandPool::runningCommand() { return tRunningCommand; }

bool VTThreadedCommandPool::waitWhilePausedOrAborted(CommandID id) {
  // The flags are read and written under the thread lock, and the wait
  // releases it, so no change can fall between the test and the wait. The
  // caller must not hold the thread lock itself.
  std::unique_lock guard(_threadLock);
  propertyChanged_.wait(guard, [&] { return flagIsSet(kAbortKey, id) || !flagIsSet(kPauseKey, id); });
  return flagIsSet(kAbortKey, id);
}

CommandID VTThreadedCommandPool::nextCommandID() { return ++_commandCounter; }

void VTThreadedCommandPool::addSpooledCommand(CommandID id) {
  _spooledCommandsLock.lock();
  _spooledCommands.push_back(id);
  _spooledCommandsLock.unlockWithCondition(1);
}

std::optional<CommandID> VTThreadedCommandPool::nextSpooledCommand() {
  _spooledCommandsLock.lockWhenCondition(1);
  std::optional<CommandID> id;
  if (!_spooledCommands.empty()) {
    id = _spooledCommands.front();
    _spooledCommands.erase(_spooledCommands.begin());
  }
  _spooledCommandsLock.unlockWithCondition(_spooledCommands.empty() ? 0 : 1);
  return id;
}

void VTThreadedCommandPool::threadedCommandModitor() {
  while (!_commandMonitorShouldStop) {
    if (auto id = nextSpooledCommand()) runThreadedCommand(*id);
  }
  _commandMonitorAlive = false;
}

void VTThreadedCommandPool::runThreadedCommand(CommandID id) {
  // Ordinary Linux threads share one scheduling priority, so the worker
  // runs at the process's own.
  std::shared_ptr<ConditionLock> latch;
  Command command;
  {
    std::lock_guard guard(_threadLock);
    latch = getPropertyAs<std::shared_ptr<ConditionLock>>(kCondKey, id).value_or(nullptr);
    command = getPropertyAs<Command>(kCmdKey, id).value_or(nullptr);
    if (latch) latch->lock();
    setProperty(kStateKey, id, std::int64_t{kCommandRunning});
  }
  tRunningCommand = id;
  try {
    if (command) command(id);
  } catch (const std::exception& e) {
    setProperty(kECodeKey, id, std::int64_t{kCommandRaisedCode});
    setProperty(kENameKey, id, demangledName(typeid(e)));
    setProperty(kEDescKey, id, std::string(e.what()));
  } catch (...) {
    setProperty(kECodeKey, id, std::int64_t{kCommandRaisedCode});
    setProperty(kENameKey, id, std::string("unknown exception"));
    setProperty(kEDescKey, id, std::string());
  }
  tRunningCommand.reset();
  setProperty(kStateKey, id, std::int64_t{kCommandFinished});
  if (latch) latch->unlockWithCondition(kLatchFinished);
}

void VTThreadedCommandPool::notifyPropertyChange() { propertyChanged_.notify_all(); }

bool VTThreadedCommandPool::flagIsSet(std::string_view key, CommandID id) const {
  return getPropertyAs<bool>(key, id).value_or(false);
}

}  // namespace halyard::fileservices

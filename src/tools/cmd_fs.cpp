// `halyardctl fs copy|move SRC DST` and `halyardctl fs remove PATH`: the file
// manager's asynchronous families, waited for with a progress display.
// Ctrl-C cancels a copy or move (-128) without leaving a partial item behind
// the destination's name. As with cp and mv, a destination that ends in "/"
// or names an existing folder receives the item inside it. Exit status: 0
// on success, 1 on failure or refusal, 130 when interrupted.

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdio>
#include <iostream>
#include <mutex>
#include <stop_token>
#include <thread>

#include "fileservices/copy_engine.h"
#include "tools/cmd_fs_paths.h"
#include "tools/cmd_fs_progress.h"
#include "tools/commands.h"

namespace halyard::tools {

namespace {

using namespace fileservices;

int interruptPipe[2] = {-1, -1};
constexpr int kCancelling[] = {SIGINT, SIGTERM, SIGHUP};

void onInterrupt(int) {
  const char byte = 1;
  (void)!write(interruptPipe[1], &byte, 1);
}

// Turns SIGINT, SIGTERM and SIGHUP into a call of `progress.interrupt()` on
// a thread of its own (a signal handler may not take the pool's locks), so
// that a plain kill or a closed terminal also leaves nothing half-made and
// gives the source its lock and the destination's folder its mode back. The
// thread ends when the pipe's write end is closed.
class InterruptWatcher {
 public:
  explicit InterruptWatcher(FsProgress& progress) {
    if (pipe2(interruptPipe, O_CLOEXEC) != 0) return;
    thread_ = std::thread([&progress] {
      char byte;
      while (read(interruptPipe[0], &byte, 1) == 1) progress.interrupt();
    });
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    for (const int signal : kCancelling) sigaction(signal, &action, nullptr);
  }
  ~InterruptWatcher() {
    for (const int signal : kCancelling) ::signal(signal, SIG_DFL);
    if (!thread_.joinable()) return;
    close(interruptPipe[1]);
    thread_.join();
    close(interruptPipe[0]);
  }

 private:
  std::thread thread_;
};

int usage() {
  std::cerr << "usage: halyardctl fs copy SRC DST\n"
               "       halyardctl fs move SRC DST\n"
               "       halyardctl fs remove PATH\n";
  return 2;
}

// Waits until the command has finished and answers its status.
ErrorCode finish(VTFileManager& fm, CommandID id) {
  while (id > 0 && fm.statusForCommand(id) == kCommandNotFinished) id = fm.waitForCommandCompletion(id, 10.0);
  const ErrorCode status = id < 0 ? 0 : fm.statusForCommand(id);
  fm.disposeCommand(id);
  return status;
}

// Warnings for the metadata a copy could not keep, then the error, naming
// the item it concerns.
int report(VTFileManager& fm, ErrorCode status, const std::string& what) {
  for (const std::string& warning : fm.takeMetadataWarnings()) std::cerr << "halyardctl: warning: " << warning << "\n";
  if (status == 0) return 0;
  const std::string detail = fm.lastErrorDetail();
  std::cerr << "halyardctl: " << what << ": " << fm.errorMessageForCode(status);
  if (!detail.empty()) std::cerr << " (" << detail << ")";
  std::cerr << "\n";
  return status == kUserCanceledErr ? 130 : 1;
}

int transfer(const std::string& verb, const std::string& named, const std::string& given) {
  const std::string dest = destinationFor(named, given);
  // "LINK/" names the folder behind the link: a copy takes that folder under
  // the link's name, as cp does; a move would have to choose between moving
  // the link and moving the folder out from under it, so it asks.
  std::string src = named;
  if (const auto folder = folderBehindLink(named)) {
    if (verb == "move") {
      std::cerr << "halyardctl: refusing to move " << named << ": it is a link to the folder " << *folder
                << "; name the link without the final \"/\" to move the link, or the folder itself\n";
      return 1;
    }
    src = *folder;
  }
  VTFileManager& fm = VTFileManager::sharedFileManager();
  const bool terminal = isatty(STDOUT_FILENO) == 1;
  auto progress = std::make_shared<FsProgress>(fm, treeSize(src), stdout, terminal);
  ErrorCode status;
  {
    InterruptWatcher watcher(*progress);
    // On a terminal the bar is redrawn four times a second; the waiter's
    // reports come only every two seconds.
    std::jthread ticker;
    if (terminal) {
      ticker = std::jthread([&progress](std::stop_token stop) {
        std::mutex mutex;
        std::condition_variable_any wake;
        std::unique_lock lock(mutex);
        while (!wake.wait_for(lock, stop, std::chrono::milliseconds(250), [] { return false; }) &&
               !stop.stop_requested()) {
          progress->tick();
        }
      });
    }
    const CommandID id =
        verb == "copy" ? fm.asyncCopyPath(src, dest, true, progress) : fm.asyncMovePath(src, dest, true, progress);
    status = finish(fm, id);
  }
  if (status == 0) {
    progress->finish();
  } else if (terminal) {
    std::fputc('\n', stdout);
  }
  return report(fm, status, verb + " " + src + " to " + dest);
}

int removePath(const std::string& path) {
  if (auto reason = refusalToRemove(path)) {
    std::cerr << "halyardctl: refusing to remove " << path << ": " << *reason << "\n";
    return 1;
  }
  VTFileManager& fm = VTFileManager::sharedFileManager();
  return report(fm, finish(fm, fm.asyncRemoveFileAtPath(path)), "remove " + path);
}

}  // namespace

int runFs(const Arguments& args) {
  if (args.size() == 3 && (args[0] == "copy" || args[0] == "move")) return transfer(args[0], args[1], args[2]);
  if (args.size() == 2 && args[0] == "remove") return removePath(args[1]);
  return usage();
}

}  // namespace halyard::tools

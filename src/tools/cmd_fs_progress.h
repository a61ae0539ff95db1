#pragma once
// The progress display of `halyardctl fs`: a delegate that draws bytes done
// of the total, the rate and the time left, redrawn in place on a terminal
// and as plain lines otherwise (one per report of the waiter). An interrupt (Ctrl-C) makes it set "ABORT"
// on the command it watches.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <mutex>

#include "fileservices/vt_file_manager.h"

namespace halyard::tools {

class FsProgress final : public fileservices::ProgressDelegate {
 public:
  FsProgress(fileservices::VTFileManager& fm, std::int64_t totalBytes, std::FILE* out, bool terminal);

  void willWaitForCommand(fileservices::CommandID id) override;
  bool completedBlockCopy(std::int64_t bytes) override;
  bool abortFileCopy() override { return interrupted_.load(); }
  bool pauseFileCopy() override { return false; }

  // Redraws with the bytes copied since the last report counted in (read,
  // not cleared, so the reports stay as they are). For a terminal's ticker.
  void tick();
  // Called from the interrupt watcher thread.
  void interrupt();
  // The last line, at 100 %, after a copy that succeeded.
  void finish();

 private:
  void draw(std::int64_t done);

  std::mutex drawing_;  // the waiter's reports and the ticker

  fileservices::VTFileManager& fm_;
  const std::int64_t total_;
  std::FILE* out_;
  const bool terminal_;
  std::int64_t done_ = 0;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  std::atomic<fileservices::CommandID> id_{0};
  std::atomic<bool> interrupted_{false};
};

// "1.5 GiB", "312.0 MiB", "12 B".
std::string formatBytes(double bytes);
// One progress line, without line ending: bar, bytes done of total, rate and
// time left.
std::string progressLine(std::int64_t done, std::int64_t total, double seconds, int barWidth);

}  // namespace halyard::tools

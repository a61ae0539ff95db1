#include "tools/cmd_fs_progress.h"

#include <cmath>
#include <string>

namespace halyard::tools {

using namespace fileservices;

std::string formatBytes(double bytes) {
  static const char* const kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB"};
  int unit = 0;
  while (bytes >= 1024.0 && unit < 4) {
    bytes /= 1024.0;
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", bytes, kUnits[unit]);
  return text;
}

std::string progressLine(std::int64_t done, std::int64_t total, double seconds, int barWidth) {
  const double fraction = total > 0 ? std::min(1.0, static_cast<double>(done) / static_cast<double>(total)) : 1.0;
  const int filled = static_cast<int>(std::lround(fraction * barWidth));
  std::string line = "[" + std::string(filled, '#') + std::string(barWidth - filled, '-') + "] ";
  line += formatBytes(static_cast<double>(done)) + " of " + formatBytes(static_cast<double>(total));
  const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0;
  line += "  " + formatBytes(rate) + "/s";
  if (rate > 0 && done < total) {
    const auto left = static_cast<long long>(std::ceil(static_cast<double>(total - done) / rate));
    char text[32];
    std::snprintf(text, sizeof text, "  %lld:%02lld left", left / 60, left % 60);
    line += text;
  }
  return line;
}

FsProgress::FsProgress(VTFileManager& fm, std::int64_t totalBytes, std::FILE* out, bool terminal)
    : fm_(fm), total_(totalBytes), out_(out), terminal_(terminal) {}

void FsProgress::willWaitForCommand(CommandID id) {
  id_ = id;
  // An interrupt that came before the id was known takes effect now.
  if (interrupted_) fm_.setProperty(kAbortKey, id, true);
  draw(0);
}

bool FsProgress::completedBlockCopy(std::int64_t bytes) {
  std::lock_guard guard(drawing_);
  done_ += bytes;
  draw(done_);
  return true;
}

void FsProgress::tick() {
  const CommandID id = id_.load();
  if (id == 0) return;
  const auto pending = fm_.commandPool().getPropertyAs<std::int64_t>(kDCpyKey, id).value_or(0);
  std::lock_guard guard(drawing_);
  draw(done_ + pending);
}

void FsProgress::interrupt() {
  interrupted_ = true;
  // Straight to the copy loop, which stops after the block it is writing:
  // the waiter would pass the request on only at its next report.
  if (CommandID id = id_.load()) fm_.setProperty(kAbortKey, id, true);
}

void FsProgress::finish() {
  std::lock_guard guard(drawing_);
  draw(total_);
  if (terminal_) std::fputc('\n', out_);
  std::fflush(out_);
}

void FsProgress::draw(std::int64_t done) {
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  const std::string line = progressLine(done, total_, seconds, 30);
  if (terminal_) {
    std::fprintf(out_, "\r%s\x1b[K", line.c_str());
  } else {
    std::fprintf(out_, "%s\n", line.c_str());
  }
  std::fflush(out_);
}

}  // namespace halyard::tools

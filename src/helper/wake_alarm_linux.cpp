#include "helper/wake_alarm.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <string_view>

#include "foundation/unique_handle.h"

namespace halyard::wake {
namespace {

constexpr std::size_t kMaxNumberText = 32;

// Reads at most a short decimal number; links are never followed.
int readSmallText(const std::string& path, bool requireOwnRecord, std::string& text) {
  const UniqueFd fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (!fd) return errno;
  struct stat info {};
  if (::fstat(fd.get(), &info) != 0) return errno;
  if (requireOwnRecord && (!S_ISREG(info.st_mode) || info.st_uid != ::geteuid())) return EPERM;
  char buffer[kMaxNumberText];
  const ssize_t got = ::read(fd.get(), buffer, sizeof buffer);
  if (got < 0) return errno;
  text.assign(buffer, static_cast<std::size_t>(got));
  return 0;
}

std::optional<std::int64_t> parseSeconds(std::string_view text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.remove_suffix(1);
  std::int64_t value = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || ec != std::errc{} || end != text.data() + text.size() || value <= 0) return std::nullopt;
  return value;
}

int writeText(int fd, const std::string& text) {
  const ssize_t put = ::write(fd, text.data(), text.size());
  return put == static_cast<ssize_t>(text.size()) ? 0 : (put < 0 ? errno : EIO);
}

}  // namespace

AlarmRead readAlarm(const std::string& path) {
  std::string text;
  if (int error = readSmallText(path, false, text)) return {error, std::nullopt};
  return {0, parseSeconds(text)};
}

int writeAlarm(const std::string& path, std::int64_t unixSeconds) {
  // The alarm file must already exist: the tool never creates files there.
  UniqueFd fd(::open(path.c_str(), O_WRONLY | O_TRUNC | O_NOFOLLOW | O_CLOEXEC));
  if (!fd) return errno;
  const int error = writeText(fd.get(), std::to_string(unixSeconds) + "\n");
  const int closed = closeChecked(fd);
  return error ? error : closed;
}

std::optional<std::int64_t> readOwnedAlarm(const std::string& recordPath) {
  std::string text;
  if (readSmallText(recordPath, true, text) != 0) return std::nullopt;
  return parseSeconds(text);
}

int writeOwnedAlarm(const std::string& recordPath, std::int64_t unixSeconds) {
  // Written beside the record and renamed over it, so a half-written record
  // never stands for an alarm.
  const std::string fresh = recordPath + ".new";
  ::unlink(fresh.c_str());
  UniqueFd fd(::open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
  if (!fd) return errno;
  int error = writeText(fd.get(), std::to_string(unixSeconds) + "\n");
  if (!error && ::fsync(fd.get()) != 0) error = errno;
  if (const int closed = closeChecked(fd); closed && !error) error = closed;
  if (!error && ::rename(fresh.c_str(), recordPath.c_str()) != 0) error = errno;
  if (error) ::unlink(fresh.c_str());
  return error;
}

void forgetOwnedAlarm(const std::string& recordPath) { ::unlink(recordPath.c_str()); }

std::string userRecordPath(const std::string& recordPath, unsigned uid) {
  return recordPath + "." + std::to_string(uid);
}

std::vector<std::int64_t> recordedWakes(const std::string& recordPath) {
  std::vector<std::int64_t> wakes;
  if (auto old = readOwnedAlarm(recordPath)) wakes.push_back(*old);
  const std::string::size_type slash = recordPath.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : recordPath.substr(0, slash);
  const std::string prefix = recordPath.substr(slash == std::string::npos ? 0 : slash + 1) + ".";
  UniqueHandle<CPointer<DIR, closedir>> dir(::opendir(folder.c_str()));
  if (!dir) return wakes;
  while (const dirent* entry = ::readdir(dir.get())) {
    const std::string_view name(entry->d_name);
    if (!name.starts_with(prefix)) continue;
    const std::string_view uid = name.substr(prefix.size());
    if (uid.empty() || uid.find_first_not_of("0123456789") != std::string_view::npos) continue;
    if (auto wake = readOwnedAlarm(folder + "/" + std::string(name))) wakes.push_back(*wake);
  }
  return wakes;
}

AlarmLock::AlarmLock(const std::string& recordPath)
    : fd_(::open((recordPath + ".lock").c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600)) {
  if (!fd_) {
    error_ = errno;
    return;
  }
  while (::flock(fd_.get(), LOCK_EX) != 0) {
    if (errno != EINTR) {
      error_ = errno;
      return;
    }
  }
}

}  // namespace halyard::wake

#include "agent/saved_check.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "foundation/file_io.h"
#include "foundation/log_sink.h"

namespace halyard::agent {
namespace {

template <class T>
std::optional<T> valueAfter(const std::string& text, const std::string& key) {
  const std::size_t at = text.find(key + " ");
  if (at == std::string::npos) return std::nullopt;
  const char* begin = text.data() + at + key.size() + 1;
  const char* end = text.data() + text.size();
  T value{};
  const auto [stop, ec] = std::from_chars(begin, end, value);
  if (ec != std::errc() || (stop != end && *stop != '\n')) return std::nullopt;
  return value;
}

}  // namespace

std::string savedCheckPath() {
  const char* state = std::getenv("XDG_STATE_HOME");
  const char* home = std::getenv("HOME");
  const std::string folder = state && *state ? state : std::string(home ? home : "") + "/.local/state";
  return folder + "/halyard/last-check";
}

std::optional<SavedCheck> readSavedCheck(const std::string& path) {
  std::error_code error;
  if (!std::filesystem::exists(path, error)) return std::nullopt;
  auto text = readWholeFile(path);
  if (!text || text->size() > 4096) {
    logLine("<Error:> " + path + ": the saved last check cannot be read; nothing is caught up", LogPriority::Error);
    return std::nullopt;
  }
  const auto last = valueAfter<double>(*text, "lastCheck");
  if (!last || !std::isfinite(*last)) {
    logLine("<Error:> " + path + ": no last check in it; nothing is caught up", LogPriority::Error);
    return std::nullopt;
  }
  return SavedCheck{*last, valueAfter<CivilMinute>(*text, "coveredMinute")};
}

Status writeSavedCheck(const std::string& path, const SavedCheck& saved) {
  std::error_code error;
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  std::filesystem::create_directories(folder, error);
  if (error) return makeError(folder.string() + ": cannot create the folder: " + error.message());
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.17g", saved.lastCheckDate);
  std::string text = std::string("lastCheck ") + buffer + "\n";
  if (saved.coveredMinute) text += "coveredMinute " + std::to_string(*saved.coveredMinute) + "\n";
  return writeFileAtomically(path, text);
}

}  // namespace halyard::agent

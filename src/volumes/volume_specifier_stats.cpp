// VolumeSpecifier: size statistics of the volume, as text and as percent
// full. Each is computed at most every 2.5 seconds; failures are cached too.

#include <cstdio>

#include "foundation/strings_table.h"
#include "volumes/volume_specifier.h"

namespace halyard {
namespace {

constexpr TimeInterval kStatisticsLifetime = 2.5;

bool isFresh(const std::optional<TimeInterval>& last, TimeInterval now) {
  return last && *last - now >= -kStatisticsLifetime;
}

// A byte count for people: "512 bytes", "1.5 KB", "20.0 GB".
std::string fileSizeString(std::uint64_t bytes) {
  static constexpr const char* kUnits[] = {"KB", "MB", "GB", "TB", "PB"};
  if (bytes < 1024) return std::to_string(bytes) + " bytes";
  double value = static_cast<double>(bytes) / 1024.0;
  std::size_t unit = 0;
  while (value >= 1024.0 && unit + 1 < std::size(kUnits)) {
    value /= 1024.0;
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.1f %s", value, kUnits[unit]);
  return text;
}

std::string oneDigitFloatString(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", value);
  return text;
}

// The format's "%@" taken in order by the arguments, "%%" as "%".
std::string formatWithObjects(const std::string& format, std::initializer_list<std::string> arguments) {
  std::string out;
  auto next = arguments.begin();
  for (std::size_t i = 0; i < format.size(); ++i) {
    if (format[i] == '%' && i + 1 < format.size() && format[i + 1] == '@') {
      if (next != arguments.end()) out += *next++;
      ++i;
    } else if (format[i] == '%' && i + 1 < format.size() && format[i + 1] == '%') {
      out += '%';
      ++i;
    } else {
      out += format[i];
    }
  }
  return out;
}

std::optional<double> percentUsed(const VolumeInfo& info) {
  if (info.totalBytes == 0) return std::nullopt;
  return static_cast<double>(info.totalBytes - info.freeBytes) / static_cast<double>(info.totalBytes) * 100.0;
}

}  // namespace

std::string VolumeSpecifier::volumeSizeStats(TimeInterval now) {
  if (isFresh(_lastVolumeStatsRequest, now) && _volumeStatsStr) return *_volumeStatsStr;
  std::string text = localizedString("VOLUME_CANT_DETERMINE_SIZE");
  if (auto info = getInfoForVolume(*queries(), _volumeRootPath.value_or(""))) {
    if (auto percent = percentUsed(*info)) {
      text = formatWithObjects(
          localizedString("VOLUME_SIZE_FORMAT"),
          {fileSizeString(info->totalBytes), fileSizeString(info->freeBytes), oneDigitFloatString(*percent)});
    }
  }
  _volumeStatsStr = text;
  _lastVolumeStatsRequest = now;
  return text;
}

std::string VolumeSpecifier::volumeSizeStatsForced(TimeInterval now) {
  _lastVolumeStatsRequest.reset();
  return volumeSizeStats(now);
}

float VolumeSpecifier::volumePercentFull(TimeInterval now) {
  if (isFresh(_lastVolumePercentRequest, now)) return _volumePercentFull;
  const auto info = getInfoForVolume(*queries(), _volumeRootPath.value_or(""));
  const auto percent = info ? percentUsed(*info) : std::nullopt;
  _volumePercentFull = percent ? static_cast<float>(*percent) : -1.0f;
  _lastVolumePercentRequest = now;
  return _volumePercentFull;
}

float VolumeSpecifier::volumePercentFullForced(TimeInterval now) {
  _lastVolumePercentRequest.reset();
  return volumePercentFull(now);
}

}  // namespace halyard

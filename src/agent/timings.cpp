#include "agent/timings.h"

#include <algorithm>
#include <vector>

namespace halyard::agent {

namespace {
std::vector<TimeInterval> valuesSince(const std::deque<std::pair<TimeInterval, TimeInterval>>& samples,
                                      TimeInterval since) {
  std::vector<TimeInterval> values;
  for (const auto& [at, seconds] : samples) {
    if (at >= since) values.push_back(seconds);
  }
  return values;
}
}  // namespace

void TimingSeries::record(TimeInterval at, TimeInterval seconds) {
  samples_.emplace_back(at, seconds);
  // Samples leave once an hour old; a clock set back keeps at most an hour of beats.
  while (!samples_.empty() && (samples_.front().first < at - kWindow || samples_.size() > kWindow + 1)) {
    samples_.pop_front();
  }
}

std::optional<TimeInterval> TimingSeries::worst(TimeInterval now) const {
  const auto values = valuesSince(samples_, now - kWindow);
  if (values.empty()) return std::nullopt;
  return *std::max_element(values.begin(), values.end());
}

std::optional<TimeInterval> TimingSeries::median(TimeInterval now) const {
  auto values = valuesSince(samples_, now - kWindow);
  if (values.empty()) return std::nullopt;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

}  // namespace halyard::agent

#pragma once
// The candidates of a run-date walk are computed in double arithmetic, one
// addition of ±60 s at a time. Most additions are exact; one that lands in a
// coarser binade rounds, and changes the candidate's fraction of a second (or
// even its second). The walk's candidates are therefore runs of exact
// arithmetic progressions, separated by such rounding steps; this finds
// their lengths so that whole runs can be skipped without replaying them.

#include <cstdint>

namespace halyard {

inline constexpr double kWalkStep = 60.0;

// How many of the walk's candidates from `first` on, stepping in `direction`
// (+1 forward, -1 backward), equal first + direction * 60 * j exactly: j in
// [0, count) are exact, and candidate `count` is the rounded sum
// fl(candidate[count - 1] + direction * 60). Always at least 1; `first` must
// be finite.
std::int64_t exactWalkSteps(double first, int direction);

}  // namespace halyard

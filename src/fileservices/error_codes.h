#pragma once
// The numeric outcome codes of the file services, named once. An operation's
// outcome is 0 for success, an errno value, or one of these negative codes
// that callers (halyardctl, the main application) compare against.

#include <cstdint>

namespace halyard::fileservices {

using ErrorCode = std::int32_t;

// The user (or a progress callback answering "stop") cancelled the operation.
inline constexpr ErrorCode kUserCanceledErr = -128;
// A destination at or below the item being copied or moved.
inline constexpr ErrorCode kDestinationInsideSourceErr = -1304;

}  // namespace halyard::fileservices

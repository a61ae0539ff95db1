#pragma once
// The wake tool's request and response: small XML property lists that cross
// the pipe between the agent and the privileged tool. The reader is written
// for input from an untrusted caller: it accepts only a flat dictionary with
// exactly the keys of one of the two commands, in XML, of bounded size.

#include <cstdint>
#include <string>
#include <string_view>

#include "foundation/expected.h"

namespace halyard::wake {

inline constexpr std::size_t kMaxRequestBytes = 64 * 1024;
// The earliest and latest wake dates the tool accepts, counted from now.
inline constexpr std::int64_t kMinLeadSeconds = 30;
inline constexpr std::int64_t kMaxLeadSeconds = 366 * 24 * 3600;

inline constexpr char kCommandNameKey[] = "CommandName";
inline constexpr char kPowerEventDateKey[] = "PowerEventDate";
inline constexpr char kErrorNumberKey[] = "ErrorNumber";
inline constexpr char kCancelCommand[] = "CancelMultipleScheduledPowerEvents";
inline constexpr char kScheduleCommand[] = "SchedulePowerEvent";

enum class Command { CancelOwnEvents, SchedulePowerOn };

// One accepted request; `powerOnUnixSeconds` is meaningful for SchedulePowerOn.
struct WakeRequest {
  Command command = Command::CancelOwnEvents;
  std::int64_t powerOnUnixSeconds = 0;
};

// Parses a request; anything but an XML dictionary of one known command with
// exactly its keys is an error naming what was wrong.
Expected<WakeRequest> readWakeRequest(std::string_view bytes);

// Refuses wake dates closer than kMinLeadSeconds or further than
// kMaxLeadSeconds from `nowUnixSeconds`.
Status checkWakeDate(std::int64_t powerOnUnixSeconds, std::int64_t nowUnixSeconds);

// Builds the request the agent sends; the date is used only for scheduling.
std::string writeWakeRequest(const WakeRequest& request);

// The answer to every request: a dictionary holding the error number.
std::string writeWakeResponse(int errorNumber);

// Reads the error number back from an answer; an unreadable answer is an error.
Expected<int> readWakeResponse(std::string_view bytes);

}  // namespace halyard::wake

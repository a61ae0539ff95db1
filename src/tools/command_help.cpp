// The pages are kept beside each other so that they read alike; the man page
// halyardctl(1) says the same at more length.

#include "tools/command_help.h"

#include <array>
#include <utility>

namespace halyard::tools {
namespace {

constexpr std::array<std::pair<std::string_view, std::string_view>, 11> kPages{{
    {"dump",
     "usage: halyardctl dump FILE\n\n"
     "Prints any archive (a schedule file, a hand-over, a log) as JSON: class\n"
     "names, versions and values. A damaged archive gives the reason and the\n"
     "byte offset where it stops making sense, and exit status 1.\n\n"
     "examples:\n"
     "  halyardctl dump ~/.local/share/Halyard/ScheduleData.sched\n"
     "  halyardctl dump saved-handover.archive > handover.json\n"},
    {"fs",
     "usage: halyardctl fs copy SRC DST\n"
     "       halyardctl fs move SRC DST\n"
     "       halyardctl fs remove PATH\n\n"
     "Copies, moves or removes a file or a folder tree with the agent's file\n"
     "manager, showing progress. A DST that names a folder, or ends in \"/\",\n"
     "receives the item inside it, as cp and mv do. Links are copied as links;\n"
     "a SRC that names a link with a final \"/\" is copied as the folder it\n"
     "leads to. A move across file systems removes only what it copied, as it\n"
     "was copied: what changes meanwhile stays, and the move says so. Ctrl-C\n"
     "(or a kill, or a closed terminal) cancels and leaves nothing half-made.\n"
     "Exit status: 0 done, 1 failed, 130 cancelled.\n\n"
     "examples:\n"
     "  halyardctl fs copy ~/Documents /media/$USER/Backup/\n"
     "  halyardctl fs move photos.tar /srv/archive/photos.tar\n"},
    {"serve-app",
     "usage: halyardctl serve-app\n\n"
     "Acts as the main application on the session bus: owns its name, announces\n"
     "VTHalyardSchedulerDidStart and prints each item the agent hands over.\n"
     "Useful to see the agent at work without the application.\n\n"
     "example:\n"
     "  halyardctl serve-app\n"},
    {"watch",
     "usage: halyardctl watch [--count N]\n\n"
     "Prints every notification on the session bus, hand-overs decoded, and\n"
     "stops after N of them when --count is given.\n\n"
     "examples:\n"
     "  halyardctl watch\n"
     "  halyardctl watch --count 1\n"},
    {"schedule",
     "usage: halyardctl schedule list|show N|add|edit N|remove N|enable N|disable N [options]\n"
     "       halyardctl schedule next [N] [--count K] [--json]\n"
     "       halyardctl schedule import FILE.json | export --json\n\n"
     "Reads and edits the schedule file (default ~/.local/share/Halyard/\n"
     "ScheduleData.sched, or $XDG_DATA_HOME/Halyard); items are numbered from 1.\n\n"
     "options:\n"
     "  --file PATH        another schedule file\n"
     "  --json             output for scripts\n"
     "  --description TEXT --document PATH --type 3-7\n"
     "  --start-date 'YYYY-MM-DD HH:MM[:SS]'  --active | --inactive\n"
     "  --months jan-mar --days-of-month 1,15 --days-of-week mon-fri\n"
     "  --hours 9-17 --minutes 0,30   (or each set as its raw string of 0 and 1)\n\n"
     "examples:\n"
     "  halyardctl schedule add --description 'Nightly' --document ~/Backup.hsync \\\n"
     "      --type 4 --hours 2 --minutes 30\n"
     "  halyardctl schedule list\n"
     "  halyardctl schedule next 1 --count 5\n\n"
     "`next` lists the minutes at which the agent's minute check will hand the\n"
     "items over (\"never\" only when no minute can ever be selected), a minute\n"
     "that autumn repeats once in the exactly-once mode; for one item it adds\n"
     "whether a sleep across those runs is caught up, and why not.\n"
     "`export --json` writes the items as a JSON list of {\"description\",\n"
     "\"active\", \"scheduleType\", \"start\", \"months\", \"daysOfMonth\",\n"
     "\"daysOfWeek\", \"hours\", \"minutes\"}; `import` adds such items at the end\n"
     "of the schedule. A bad item names the item and the field (exit status 2).\n"},
    {"notify",
     "usage: halyardctl notify NAME [--state true|false]\n\n"
     "Posts one notification on the session bus, as the main application does.\n\n"
     "examples:\n"
     "  halyardctl notify VTHalyardBackgrounderShouldQuit\n"
     "  halyardctl notify com.vantrel.halyard.scheduler_state_changed --state false\n"},
    {"volumes",
     "usage: halyardctl volumes [--json]\n"
     "       halyardctl volumes check N [--file PATH]\n\n"
     "Lists every mounted volume with the identity fields the mount check\n"
     "compares; `check N` tells, for item N, where each target volume is mounted\n"
     "now, or which identity check the nearest mounted volume fails.\n\n"
     "examples:\n"
     "  halyardctl volumes\n"
     "  halyardctl volumes check 2\n"},
    {"status",
     "usage: halyardctl status\n\n"
     "Asks the running agent over the session bus for its state: version,\n"
     "uptime, scheduler state, schedule file and item count, the last check,\n"
     "how late its beats and how long its checks were over the last hour, and\n"
     "whether wake-to-sync is on, or off because the RTC cannot wake the machine.\n\n"
     "example:\n"
     "  halyardctl status\n"},
    {"why",
     "usage: halyardctl why N [--at ISO] [--file PATH]\n\n"
     "For item N: its last and next hand-over by the agent's minute check, and\n"
     "whether the agent hands it over at a moment (now, or --at, a local time\n"
     "such as 2026-03-08T02:30), naming the rule that decides: the scheduler\n"
     "suspended, the item inactive, its type, its start date, a set with\n"
     "nothing or not that value selected, a minute that daylight saving time\n"
     "skips or repeats (as the exactly-once mode treats it when it is on), or\n"
     "a volume-mount item's target volumes.\n\n"
     "examples:\n"
     "  halyardctl why 1\n"
     "  halyardctl why 2 --at 2026-11-01T01:30\n"},
    {"simulate",
     "usage: halyardctl simulate --from ISO --to ISO --tz ZONE\n"
     "           (--schedule FILE.sched | --schedule-json FILE.json) [--events FILE.jsonl]\n"
     "           [--beat-fraction S] [--check-cost S] [--all-checks] [--exactly-once] [--catch-up]\n\n"
     "Replays the agent's own heartbeat and checks over the period on a\n"
     "simulated clock in ZONE and prints one JSON line per hand-over:\n"
     "{\"beat\", \"mode\": \"new\"|\"missed\", \"items\": [descriptions]}; with\n"
     "--all-checks also the checks that found nothing. Beats fall once a second,\n"
     "S (default 0.05) after it; a check's last-check date is its beat plus the\n"
     "check cost (default 0.002). Events, one JSON object a line:\n"
     "  {\"at\": ISO, \"event\": \"sleep\", \"until\": ISO}   {\"at\": ISO, \"event\": \"clock\", \"to\": ISO}\n"
     "  {\"at\": ISO, \"event\": \"suspend\"}   {\"at\": ISO, \"event\": \"resume\"}\n"
     "  {\"at\": ISO, \"event\": \"restart\", \"until\": ISO}  (the agent stopped until then;\n"
     "  with --catch-up it keeps its last check)\n"
     "A time without an offset is wall time in ZONE. A year takes about a second.\n\n"
     "example:\n"
     "  halyardctl schedule export --json > items.json\n"
     "  halyardctl simulate --from 2026-01-01T00:00 --to 2027-01-01T00:00 \\\n"
     "      --tz Europe/Berlin --schedule-json items.json --exactly-once\n"},
    {"config",
     "usage: halyardctl config [exactly-once on|off] [catch-up on|off]\n\n"
     "Shows or sets the agent's opt-in scheduling (both off by default):\n"
     "exactly-once (\"ExactlyOnceSchedulingPrefKey\") hands every selected local\n"
     "minute over once: a sleep or a clock moved on is caught up once per item,\n"
     "an hour that daylight saving time repeats runs once, a skipped hour right\n"
     "after the change, and a clock set back repeats nothing. catch-up\n"
     "(\"CatchUpMissedRunsPrefKey\") keeps the last check in\n"
     "$XDG_STATE_HOME/halyard/last-check and catches up, once per item, what\n"
     "passed while the agent was not running.\n\n"
     "examples:\n"
     "  halyardctl config\n"
     "  halyardctl config exactly-once on\n"},
}};

}  // namespace

std::optional<std::string_view> commandHelp(std::string_view command) {
  for (const auto& [name, page] : kPages) {
    if (name == command) return page;
  }
  return std::nullopt;
}

}  // namespace halyard::tools

// The pages are kept beside each other so that they read alike; the man page
// halyardctl(1) says the same at more length.

#include "tools/command_help.h"

#include <array>
#include <utility>

namespace halyard::tools {
namespace {

constexpr std::array<std::pair<std::string_view, std::string_view>, 8> kPages{{
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
     "receives the item inside it, as cp and mv do. Ctrl-C cancels and leaves\n"
     "nothing half-made. Exit status: 0 done, 1 failed, 130 cancelled.\n\n"
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
     "       halyardctl schedule next [N] [--count K] [--json]\n\n"
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
     "  halyardctl schedule next 1 --count 5\n"},
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
}};

}  // namespace

std::optional<std::string_view> commandHelp(std::string_view command) {
  for (const auto& [name, page] : kPages) {
    if (name == command) return page;
  }
  return std::nullopt;
}

}  // namespace halyard::tools

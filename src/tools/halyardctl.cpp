// halyardctl: the command-line companion of the Halyard Backgrounder.

#include <cstdio>
#include <cstring>
#include <string_view>

#include "tools/commands.h"

namespace {

struct Command {
  std::string_view name;
  int (*run)(const halyard::tools::Arguments&);
  std::string_view summary;
};

constexpr Command kCommands[] = {
    {"dump", halyard::tools::runDump, "dump FILE                 print an archive as JSON"},
    {"fs", halyard::tools::runFs, "fs copy|move SRC DST      copy or move with a progress bar; fs remove PATH"},
    {"serve-app", halyard::tools::runServeApp, "serve-app                 act as the main application on the session bus"},
    {"watch", halyard::tools::runWatch, "watch [--count N]         print the notifications on the session bus"},
    {"schedule", halyard::tools::runSchedule, "schedule ACTION [N] [...]  list|show|add|edit|remove|enable|disable|next items"},
    {"notify", halyard::tools::runNotify, "notify NAME [--state B]   post a notification (B: true or false)"},
    {"volumes", halyard::tools::runVolumes, "volumes [--json]          mounted volumes; volumes check N: item N's targets"},
    {"status", halyard::tools::runStatus, "status                    the running agent's state and timing"},
};

void printUsage(std::FILE* to) {
  std::fprintf(to, "usage: halyardctl COMMAND [ARGS]\n\ncommands:\n");
  for (const Command& command : kCommands) {
    std::fprintf(to, "  %.*s\n", static_cast<int>(command.summary.size()), command.summary.data());
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "help") == 0) {
    printUsage(argc < 2 ? stderr : stdout);
    return argc < 2 ? 2 : 0;
  }
  halyard::tools::Arguments args(argv + 2, argv + argc);
  for (const Command& command : kCommands) {
    if (command.name == argv[1]) return command.run(args);
  }
  std::fprintf(stderr, "halyardctl: unknown command '%s'\n", argv[1]);
  printUsage(stderr);
  return 2;
}

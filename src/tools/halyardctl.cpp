// halyardctl: the command-line companion of the Halyard Backgrounder.

#include <cstdio>
#include <string_view>

#include "tools/command_help.h"
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
    {"serve-app", halyard::tools::runServeApp,
     "serve-app                 act as the main application on the session bus"},
    {"watch", halyard::tools::runWatch, "watch [--count N]         print the notifications on the session bus"},
    {"schedule", halyard::tools::runSchedule,
     "schedule ACTION [N] [...]  list|show|add|edit|remove|enable|disable|next items"},
    {"notify", halyard::tools::runNotify, "notify NAME [--state B]   post a notification (B: true or false)"},
    {"volumes", halyard::tools::runVolumes,
     "volumes [--json]          mounted volumes; volumes check N: item N's targets"},
    {"status", halyard::tools::runStatus, "status                    the running agent's state and timing"},
    {"why", halyard::tools::runWhy, "why N [--at ISO]          whether and why the agent hands item N over"},
    {"config", halyard::tools::runConfig, "config [NAME on|off]      exactly-once and catch-up scheduling"},
    {"simulate", halyard::tools::runSimulate, "simulate --from --to --tz replay the agent's heartbeat over a period"},
};

void printUsage(std::FILE* to) {
  std::fprintf(to, "usage: halyardctl COMMAND [ARGS]\n       halyardctl help COMMAND | --version\n\ncommands:\n");
  for (const Command& command : kCommands) {
    std::fprintf(to, "  %.*s\n", static_cast<int>(command.summary.size()), command.summary.data());
  }
}

bool isHelpWord(std::string_view word) { return word == "--help" || word == "-h" || word == "help"; }

// `halyardctl help COMMAND` and `halyardctl COMMAND --help`.
int printCommandHelp(std::string_view command) {
  const auto page = halyard::tools::commandHelp(command);
  if (!page) {
    std::fprintf(stderr, "halyardctl: unknown command '%.*s'\n", static_cast<int>(command.size()), command.data());
    return 2;
  }
  std::fwrite(page->data(), 1, page->size(), stdout);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    printUsage(stderr);
    return 2;
  }
  const std::string_view first = argv[1];
  if (first == "--version") {
    std::printf("halyardctl %s\n", HALYARD_VERSION);
    return 0;
  }
  if (isHelpWord(first)) {
    if (argc > 2) return printCommandHelp(argv[2]);
    printUsage(stdout);
    return 0;
  }
  halyard::tools::Arguments args(argv + 2, argv + argc);
  if (!args.empty() && (args[0] == "--help" || args[0] == "-h")) return printCommandHelp(first);
  for (const Command& command : kCommands) {
    if (command.name == first) return command.run(args);
  }
  std::fprintf(stderr, "halyardctl: unknown command '%s'\n", argv[1]);
  printUsage(stderr);
  return 2;
}

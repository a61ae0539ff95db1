#pragma once
// Runs a command-line tool as a child process and waits for it to exit:
// standard input and output on /dev/null (the tools' output is not read),
// in a given working folder, with the environment variables that would
// add options to the archive tools ("ZIPOPT", "UNZIP", ...) left out.

#include <string>
#include <vector>

namespace halyard::fileservices {

struct ToolExit {
  int spawnError = 0;  // errno when the tool could not be started, else 0
  int status = 0;      // its exit status (128 + signal number when killed)
};

ToolExit runTool(const std::string& tool, const std::vector<std::string>& arguments, const std::string& workingFolder);

}  // namespace halyard::fileservices

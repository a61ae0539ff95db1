// The desktop-entry lookup that stands for the workspace's search by name.

#include <gtest/gtest.h>

#include <QTemporaryDir>

#include "agent/desktop_entry.h"
#include "foundation/file_io.h"

namespace halyard::agent {
namespace {

TEST(DesktopEntry, ExecLineBecomesArguments) {
  using Args = std::vector<std::string>;
  struct Case {
    const char* name;
    const char* text;
    std::optional<Args> expected;
  } cases[] = {
      {"plain", "[Desktop Entry]\nName=Halyard\nExec=/opt/halyard/bin/halyard\n", Args{"/opt/halyard/bin/halyard"}},
      {"field codes dropped", "[Desktop Entry]\nExec=halyard --background %U\n", Args{"halyard", "--background"}},
      {"quoted with escapes", "[Desktop Entry]\nExec=\"/opt/my apps/halyard\" \"a \\\"b\\\"\"\n",
       Args{"/opt/my apps/halyard", "a \"b\""}},
      {"percent kept", "[Desktop Entry]\nExec=halyard --rate=50%%\n", Args{"halyard", "--rate=50%"}},
      {"CRLF lines", "[Desktop Entry]\r\nExec=halyard\r\n", Args{"halyard"}},
      {"Exec of another group ignored", "[Desktop Action New]\nExec=other\n[Desktop Entry]\nExec=halyard\n",
       Args{"halyard"}},
      {"no Exec", "[Desktop Entry]\nName=Halyard\n", std::nullopt},
      {"empty Exec", "[Desktop Entry]\nExec=\n", std::nullopt},
      {"only a field code", "[Desktop Entry]\nExec=%f\n", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(parseDesktopEntryExec(c.text), c.expected);
  }
}

TEST(DesktopEntry, FirstDataFolderWithTheEntryWins) {
  QTemporaryDir home, system;
  const std::string user = home.path().toStdString(), shared = system.path().toStdString();
  ASSERT_TRUE(QDir(system.path()).mkpath("applications"));
  ASSERT_TRUE(writeFileAtomically(shared + "/applications/halyard.desktop", "[Desktop Entry]\nExec=/usr/bin/b\n").ok());
  EXPECT_EQ(findDesktopEntryCommand({user, shared}), std::vector<std::string>{"/usr/bin/b"});
  ASSERT_TRUE(QDir(home.path()).mkpath("applications"));
  ASSERT_TRUE(writeFileAtomically(user + "/applications/halyard.desktop", "[Desktop Entry]\nExec=/home/a\n").ok());
  EXPECT_EQ(findDesktopEntryCommand({user, shared}), std::vector<std::string>{"/home/a"});
  EXPECT_EQ(findDesktopEntryCommand({user + "/none"}), std::nullopt);
}

}  // namespace
}  // namespace halyard::agent

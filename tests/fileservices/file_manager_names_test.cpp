// Unique file names and folder names.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "fileservices/test_folder.h"
#include "fileservices/vt_file_manager.h"

namespace halyard::fileservices {
namespace {

TEST(UniqueFileName, ReportTxtCases) {
  TestFolder folder;
  folder.writeFile("Report.txt", "x");
  folder.writeFile("Taken.txt", "x");
  folder.writeFile("Taken 1.txt", "x");
  const std::string longStem(251, 'a');
  folder.writeFile(longStem + ".txt", "x");  // 255 characters
  std::string accented;
  for (int i = 0; i < 125; ++i) accented += "\u00e9";
  folder.writeFile(accented + ".txt", "x");  // 129 characters, 254 bytes
  auto fm = VTFileManager::make();
  struct Case {
    const char* what;
    std::string name;
    std::uint32_t max;
    bool extension;
    std::uint32_t seedIn;
    std::string expected;
    std::uint32_t seedOut;
  };
  const Case cases[] = {
      {"free name unchanged", "Free.txt", 0, true, 0, "Free.txt", 0},
      {"taken: seed 1", "Report.txt", 0, true, 0, "Report 1.txt", 1},
      {"next seed when taken", "Taken.txt", 0, true, 0, "Taken 2.txt", 2},
      {"without extension handling", "Report.txt", 0, false, 0, "Report.txt 1", 1},
      {"seed given: first candidate from it", "Free.txt", 0, true, 5, "Free 5.txt", 5},
      {"max 10: stem cut, extension whole", "Report.txt", 10, true, 0, "Repo 1.txt", 1},
      {"max 6: extension cut to fit suffix", "Report.txt", 6, true, 0, "R 1.tx", 1},
      {"max 4: extension dropped", "Report.txt", 4, true, 0, "Re 1", 1},
      {"max 0 is 255", longStem + ".txt", 0, true, 0, std::string(249, 'a') + " 1.txt", 1},
      {"multibyte name kept within 255 bytes", accented + ".txt", 0, true, 0,
       accented.substr(0, accented.size() - 2) + " 1.txt", 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    std::uint32_t seed = c.seedIn;
    EXPECT_EQ(fm->uniqueFileName(c.name, folder.root(), c.max, c.extension, &seed), c.expected);
    EXPECT_EQ(seed, c.seedOut);
  }
  EXPECT_EQ(fm->uniqueFileName("Report.txt", folder.root(), 0, true, nullptr), "Report 1.txt");
}

TEST(LocateFolderName, OnlyNonFoldersBlockTheName) {
  TestFolder folder;
  mkdir(folder.path("Data").c_str(), 0755);
  folder.writeFile("Notes", "x");
  folder.writeFile("Notes 1", "x");
  auto fm = VTFileManager::make();
  struct Case {
    const char* name;
    std::uint32_t max;
    std::string expected;
    std::uint32_t seedOut;
  };
  const Case cases[] = {
      {"Data", 0, "Data", 0},
      {"Fresh", 0, "Fresh", 0},
      {"Notes", 0, "Notes 2", 2},
      {"Notes", 6, "Note 1", 1},  // the stem is cut, and "Note 1" is free
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.name) + " max " + std::to_string(c.max));
    std::uint32_t seed = 0;
    EXPECT_EQ(fm->locateFolderName(c.name, folder.root(), c.max, &seed), c.expected);
    EXPECT_EQ(seed, c.seedOut);
  }
}

}  // namespace
}  // namespace halyard::fileservices

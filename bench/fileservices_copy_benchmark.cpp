// The file manager's copy family against `cp -a` on the same data in the
// same run: one large file (256 MiB) and a folder of 10,000 small files
// (4 KiB each). Each iteration copies to a fresh destination, removed
// outside the timed region. Both sides read from the same warm page cache
// (the data is written once before the runs), so the ratio compares the
// copy loops, not the disk. The closing note prints copyPath / cp -a.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "fileservices/vt_file_manager.h"

namespace {

namespace fs = std::filesystem;
using halyard::fileservices::VTFileManager;

const std::string& dataFolder() {
  static const std::string folder = [] {
    char pattern[] = "/tmp/halyard-copy-bench.XXXXXX";
    std::string root = mkdtemp(pattern);
    std::vector<char> block(1 << 20);
    std::uint64_t x = 88172645463325252ull;
    for (char& c : block) c = static_cast<char>((x ^= x << 13, x ^= x >> 7, x ^= x << 17));
    std::ofstream large(root + "/large.bin", std::ios::binary);
    for (int i = 0; i < 256; ++i) {
      block[0] = static_cast<char>(i);
      large.write(block.data(), static_cast<std::streamsize>(block.size()));
    }
    fs::create_directories(root + "/small");
    for (int i = 0; i < 10000; ++i) {
      std::ofstream(root + "/small/f" + std::to_string(i), std::ios::binary)
          .write(block.data() + i, 4096);
    }
    return root;
  }();
  return folder;
}

void copyWithManager(benchmark::State& state, const std::string& item) {
  auto& fm = VTFileManager::sharedFileManager();
  const std::string src = dataFolder() + "/" + item;
  const std::string dest = dataFolder() + "/out";
  for (auto _ : state) {
    if (fm.copyPath(src, dest, true) != 0) state.SkipWithError("copyPath failed");
    state.PauseTiming();
    fs::remove_all(dest);
    state.ResumeTiming();
  }
}

void copyWithCp(benchmark::State& state, const std::string& item) {
  const std::string command = "cp -a '" + dataFolder() + "/" + item + "' '" + dataFolder() + "/out'";
  for (auto _ : state) {
    if (std::system(command.c_str()) != 0) state.SkipWithError("cp -a failed");
    state.PauseTiming();
    fs::remove_all(dataFolder() + "/out");
    state.ResumeTiming();
  }
}

BENCHMARK_CAPTURE(copyWithManager, large_file, std::string("large.bin"))->Unit(benchmark::kMillisecond)->Iterations(8);
BENCHMARK_CAPTURE(copyWithCp, large_file, std::string("large.bin"))->Unit(benchmark::kMillisecond)->Iterations(8);
BENCHMARK_CAPTURE(copyWithManager, small_files, std::string("small"))->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK_CAPTURE(copyWithCp, small_files, std::string("small"))->Unit(benchmark::kMillisecond)->Iterations(5);

// Keeps each run's real time per iteration, for the ratios.
class RatioReporter final : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) times[run.benchmark_name()] = run.GetAdjustedRealTime();
  }
  std::map<std::string, double> times;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  dataFolder();
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  for (const char* data : {"large_file", "small_files"}) {
    const double ours = reporter.times["copyWithManager/" + std::string(data) + "/iterations:" + (data[0] == 'l' ? "8" : "5")];
    const double cp = reporter.times["copyWithCp/" + std::string(data) + "/iterations:" + (data[0] == 'l' ? "8" : "5")];
    if (ours > 0 && cp > 0) std::printf("%s: copyPath / cp -a = %.2f\n", data, ours / cp);
  }
  fs::remove_all(dataFolder());
  benchmark::Shutdown();
  return 0;
}

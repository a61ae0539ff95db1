// The file manager's copy family against `cp -a` on the same data in the
// same run: one 1 GiB file, a folder of 10,000 files of 4 KiB, and a sparse
// 1 GiB file holding 4 KiB of data. cp runs as a child of this binary, both
// plain and followed by a syncfs of the destination (a copy as durable as
// ours, which flushes before its rename). Each iteration copies to a fresh
// destination, removed outside the timed region; both sides read from the
// same warm page cache. The closing notes print copyPath / cp -a for each.
// Data goes under $HALYARD_BENCH_DIR, else /tmp.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "fileservices/vt_file_manager.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;
using halyard::fileservices::VTFileManager;

const std::string& dataFolder() {
  static const std::string folder = [] {
    const char* base = std::getenv("HALYARD_BENCH_DIR");
    std::string pattern = std::string(base ? base : "/tmp") + "/halyard-copy-bench.XXXXXX";
    std::string root = mkdtemp(pattern.data());
    std::vector<char> block(1 << 20);
    std::uint64_t x = 88172645463325252ull;
    for (char& c : block) c = static_cast<char>((x ^= x << 13, x ^= x >> 7, x ^= x << 17));
    std::ofstream large(root + "/large.bin", std::ios::binary);
    for (int i = 0; i < 1024; ++i) {
      block[0] = static_cast<char>(i);
      large.write(block.data(), static_cast<std::streamsize>(block.size()));
    }
    fs::create_directories(root + "/small");
    for (int i = 0; i < 10000; ++i) {
      std::ofstream(root + "/small/f" + std::to_string(i), std::ios::binary).write(block.data() + i, 4096);
    }
    std::ofstream sparse(root + "/sparse.img", std::ios::binary);
    sparse.seekp(512 << 20);
    sparse.write(block.data(), 4096);
    sparse.close();
    truncate((root + "/sparse.img").c_str(), std::int64_t{1} << 30);
    sync();
    return root;
  }();
  return folder;
}

std::string destination() { return dataFolder() + "/out"; }

// Bytes the file system allocated for the copy: a sparse copy must stay
// near its 4 KiB of data.
double allocated(const std::string& path) {
  struct stat st {};
  return lstat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) ? static_cast<double>(st.st_blocks) * 512 : 0;
}

void copyWithManager(benchmark::State& state, const std::string& item) {
  auto& fm = VTFileManager::sharedFileManager();
  const std::string src = dataFolder() + "/" + item;
  double bytes = 0;
  for (auto _ : state) {
    if (fm.copyPath(src, destination(), true) != 0) state.SkipWithError("copyPath failed");
    state.PauseTiming();
    bytes = allocated(destination());
    fs::remove_all(destination());
    state.ResumeTiming();
  }
  state.counters["allocated"] = bytes;
}

bool runChild(const std::vector<std::string>& args) {
  std::vector<char*> argv;
  for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  pid_t child = 0;
  if (posix_spawn(&child, argv[0], nullptr, nullptr, argv.data(), environ) != 0) return false;
  int status = 0;
  return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void copyWithCp(benchmark::State& state, const std::string& item, bool durable) {
  const std::string src = dataFolder() + "/" + item;
  double bytes = 0;
  for (auto _ : state) {
    if (!runChild({"/bin/cp", "-a", src, destination()})) state.SkipWithError("cp -a failed");
    if (durable) {
      const int fd = open(destination().c_str(), O_RDONLY | O_CLOEXEC);
      if (fd < 0 || syncfs(fd) != 0) state.SkipWithError("syncfs failed");
      if (fd >= 0) close(fd);
    }
    state.PauseTiming();
    bytes = allocated(destination());
    fs::remove_all(destination());
    state.ResumeTiming();
  }
  state.counters["allocated"] = bytes;
}

struct CopyCase {
  const char* name;
  const char* item;
  int iterations;
};
constexpr CopyCase kCases[] = {
    {"large_file", "large.bin", 5}, {"small_files", "small", 5}, {"sparse_file", "sparse.img", 10}};

void registerCases() {
  for (const CopyCase& c : kCases) {
    const std::string item = c.item;
    const std::string name = c.name;
    benchmark::RegisterBenchmark(("copyWithManager/" + name).c_str(),
                                 [item](benchmark::State& state) { copyWithManager(state, item); })
        ->Unit(benchmark::kMillisecond)
        ->Iterations(c.iterations);
    benchmark::RegisterBenchmark(("copyWithCpPlain/" + name).c_str(),
                                 [item](benchmark::State& state) { copyWithCp(state, item, false); })
        ->Unit(benchmark::kMillisecond)
        ->Iterations(c.iterations);
    benchmark::RegisterBenchmark(("copyWithCpSynced/" + name).c_str(),
                                 [item](benchmark::State& state) { copyWithCp(state, item, true); })
        ->Unit(benchmark::kMillisecond)
        ->Iterations(c.iterations);
  }
}

// Keeps each run's real time per iteration, by function and case, for the
// ratios.
class RatioReporter final : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      const std::string name = run.benchmark_name();
      times[name.substr(0, name.find("/iterations"))] = run.GetAdjustedRealTime();
    }
  }
  std::map<std::string, double> times;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  registerCases();
  dataFolder();
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  for (const CopyCase& c : kCases) {
    const std::string data = c.name;
    const double ours = reporter.times["copyWithManager/" + data];
    const double cp = reporter.times["copyWithCpPlain/" + data];
    const double synced = reporter.times["copyWithCpSynced/" + data];
    if (ours > 0 && cp > 0 && synced > 0) {
      std::printf("%s: copyPath / cp -a = %.2f, copyPath / (cp -a + syncfs) = %.2f\n", data.c_str(), ours / cp,
                  ours / synced);
    }
  }
  fs::remove_all(dataFolder());
  benchmark::Shutdown();
  return 0;
}

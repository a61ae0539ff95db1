// The cost of the mount check. isMounted reads the mount table once, reads
// each volume's statistics and device facts, and makes a full record only of
// the volumes whose type, block size and name agree with the wanted one. The
// baseline in the same run, BM_IsMountedByEveryRecord, is the check as it was
// first built: a full record of every mounted volume, each tested for
// identity. isMountedCoalesced answers from its one-second memory. Figures
// are checks per second on machines of 1 to 64 volumes described in data,
// and record creation on this machine's root volume (real statfs, statx,
// mountinfo, blkid and sysfs reads) as one platform round.

#include <benchmark/benchmark.h>

#include "volumes/fake_volume_queries.h"
#include "volumes/volume_mounts.h"
#include "volumes/volume_specifier.h"

namespace {

using namespace halyard;

std::shared_ptr<FakeVolumeQueries> machineOf(int volumes) {
  auto machine = std::make_shared<FakeVolumeQueries>();
  for (int i = 0; i < volumes; ++i) {
    FakeVolume v;
    const std::string name = "Volume" + std::to_string(i);
    v.mount = {.source = "/dev/sd" + std::to_string(i),
               .mountPoint = "/media/u/" + name,
               .fsType = "ext4",
               .options = "rw",
               .root = "/",
               .device = static_cast<std::uint64_t>(i + 1),
               .sourceIsBlockDevice = true};
    v.stats.type = 0xEF53;
    v.stats.blockSize = 4096;
    v.birth = KernelTime{1600000000 + i, 0};
    v.device.label = name;
    v.device.uuid = "uuid-" + name;
    machine->volumes.push_back(v);
  }
  return machine;
}

bool isMountedByEveryRecord(VolumeSpecifier& wanted) {
  const auto machine = wanted.fileManager()->volumeQueries();
  for (const std::string& path : mountedLocalVolumePaths(*machine)) {
    auto candidate = VolumeSpecifier::volumeSpecifierWithPath(path, wanted.fileManager());
    if (candidate && wanted.isEqual(candidate.get())) return true;
  }
  return false;
}

// The wanted volume is the last one listed: the check walks them all.
template <bool (*check)(VolumeSpecifier&)>
void BM_Check(benchmark::State& state) {
  const int volumes = static_cast<int>(state.range(0));
  auto manager = fileservices::VTFileManager::make();
  manager->setVolumeQueries(machineOf(volumes));
  auto wanted = VolumeSpecifier::volumeSpecifierWithPath("/media/u/Volume" + std::to_string(volumes - 1), manager);
  for (auto _ : state) benchmark::DoNotOptimize(check(*wanted));
  state.SetItemsProcessed(state.iterations());
}

bool isMounted(VolumeSpecifier& wanted) { return wanted.isMounted(0.0); }
BENCHMARK(BM_Check<isMounted>)->Name("BM_IsMounted")->Arg(1)->Arg(8)->Arg(64);
BENCHMARK(BM_Check<isMountedByEveryRecord>)->Name("BM_IsMountedByEveryRecord")->Arg(1)->Arg(8)->Arg(64);

void BM_IsMountedCoalesced(benchmark::State& state) {
  auto manager = fileservices::VTFileManager::make();
  manager->setVolumeQueries(machineOf(64));
  auto wanted = VolumeSpecifier::volumeSpecifierWithPath("/media/u/Volume63", manager);
  wanted->isMounted(0.0);
  for (auto _ : state) benchmark::DoNotOptimize(wanted->isMountedCoalesced(0.5));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_IsMountedCoalesced);

void BM_RecordOfTheRootVolume(benchmark::State& state) {
  auto manager = fileservices::VTFileManager::make();
  for (auto _ : state) benchmark::DoNotOptimize(VolumeSpecifier::volumeSpecifierWithPath("/", manager));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RecordOfTheRootVolume);

// The check of the root volume against this machine's own mount table.
void BM_IsMountedOnThisMachine(benchmark::State& state) {
  auto wanted = VolumeSpecifier::volumeSpecifierWithPath("/", fileservices::VTFileManager::make());
  for (auto _ : state) benchmark::DoNotOptimize(wanted->isMounted(0.0));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_IsMountedOnThisMachine);

}  // namespace

BENCHMARK_MAIN();

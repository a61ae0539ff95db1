// `halyardctl volumes check N`: for scheduled item N, whether each target
// volume is mounted now and where; if not, each mounted volume with the
// first identity check it fails, and the identity of the one that comes
// nearest (passes the most checks), so that a user can see why a mount did
// not start a run.

#include <iostream>

#include "schedule/schedule_file.h"
#include "tools/cmd_volumes.h"
#include "volumes/volume_mounts.h"

namespace halyard::tools::volumes {
namespace {

struct Candidate {
  std::string path;
  std::shared_ptr<VolumeSpecifier> record;
  IdentityMismatch mismatch = IdentityMismatch::None;
};

// Each candidate with the first check it fails, in the table's order.
std::vector<Candidate> candidatesFor(VolumeSpecifier& wanted) {
  std::vector<Candidate> candidates;
  for (const std::string& path : mountedLocalVolumePaths(*linuxVolumeQueries())) {
    auto record = VolumeSpecifier::volumeSpecifierWithPath(path, wanted.fileManager());
    if (record) candidates.push_back(Candidate{path, record, wanted.identityMismatch(*record)});
  }
  return candidates;
}

// Checks run in order, so a later failed check means more checks passed.
const Candidate* nearestOf(const std::vector<Candidate>& candidates) {
  const Candidate* nearest = nullptr;
  for (const Candidate& candidate : candidates) {
    if (!nearest || candidate.mismatch > nearest->mismatch) nearest = &candidate;
  }
  return nearest;
}

void reportSide(const char* side, const ObjectRef& object, bool triggers, TimeInterval now) {
  std::cout << side << " target";
  auto wanted = objectAs<VolumeSpecifier>(object);
  if (!wanted) {
    std::cout << ": none\n";
    return;
  }
  std::cout << (triggers ? " (a mount starts a run)" : " (a mount does not start a run)") << ":\n";
  printIdentity(std::cout, *wanted, "    ");
  if (wanted->isMounted(now)) {
    std::cout << "  mounted at " << wanted->volumePath().value_or("") << "\n";
    return;
  }
  const auto candidates = candidatesFor(*wanted);
  const Candidate* nearest = nearestOf(candidates);
  if (!nearest) {
    std::cout << "  not mounted; no volume is mounted\n";
    return;
  }
  std::cout << "  not mounted; the first identity check each mounted volume fails:\n";
  for (const Candidate& candidate : candidates) {
    std::cout << "    " << candidate.path << ": " << describeIdentityMismatch(candidate.mismatch) << "\n";
  }
  std::cout << "  nearest volume: " << nearest->path << "\n";
  printIdentity(std::cout, *nearest->record, "    ");
}

}  // namespace

int runCheck(const Arguments& args) {
  std::optional<std::string> file;
  std::vector<std::string> operands;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--file" && i + 1 < args.size()) file = args[++i];
    else operands.push_back(args[i]);
  }
  std::size_t number = 0;
  if (operands.size() != 1 || operands[0].find_first_not_of("0123456789") != std::string::npos ||
      operands[0].size() > 6 || (number = std::stoul(operands[0])) == 0) {
    std::cerr << "usage: halyardctl volumes check N [--file PATH]\n";
    return 2;
  }
  const std::string path = file.value_or(scheduleFilePath());
  const auto items = readScheduleItems(path);
  if (!items || number > items->size()) {
    std::cerr << "halyardctl: volumes check: " << path << " has no item " << number << "\n";
    return 1;
  }
  const KSScheduledItem& item = *(*items)[number - 1];
  std::cout << "item " << number << " \"" << item.description().value_or("") << "\", type " << item.scheduleType()
            << (item.type() == ScheduleType::OnVolumeMount ? " (runs when a target volume is mounted)" : "") << "\n";
  // The clock is read here, at the tool's edge.
  const TimeInterval now = systemNow();
  reportSide("left", item.leftTargetVolumeSpecifier(), item.scheduledLeftTargetMounts() != 0, now);
  reportSide("right", item.rightTargetVolumeSpecifier(), item.scheduledRightTargetMounts() != 0, now);
  return 0;
}

}  // namespace halyard::tools::volumes

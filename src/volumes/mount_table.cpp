#include "volumes/mount_table.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <unordered_map>

namespace halyard {
namespace {

// A table with more lines than this is not the kernel's; the rest is dropped.
constexpr std::size_t kMaxMounts = 1 << 16;
// Mounts stacked deeper than this are not followed further up.
constexpr std::size_t kMaxMountDepth = 256;

std::vector<std::string_view> splitFields(std::string_view line) {
  std::vector<std::string_view> fields;
  std::size_t pos = 0;
  while (pos < line.size()) {
    const std::size_t start = line.find_first_not_of(' ', pos);
    if (start == std::string_view::npos) break;
    const std::size_t end = std::min(line.find(' ', start), line.size());
    fields.push_back(line.substr(start, end - start));
    pos = end;
  }
  return fields;
}

template <class Number>
bool parseNumber(std::string_view text, Number& value) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size();
}

// "major:minor" as the kernel's dev_t encoding (glibc's makedev).
bool parseDevice(std::string_view field, std::uint64_t& device) {
  const std::size_t colon = field.find(':');
  std::uint32_t major = 0, minor = 0;
  if (colon == std::string_view::npos || !parseNumber(field.substr(0, colon), major) ||
      !parseNumber(field.substr(colon + 1), minor)) {
    return false;
  }
  device = (std::uint64_t{major & 0xFFFFF000u} << 32) | (std::uint64_t{major & 0xFFFu} << 8) |
           (std::uint64_t{minor & 0xFFFFFF00u} << 12) | (minor & 0xFFu);
  return true;
}

// id parent major:minor root mount-point options [optional fields] - type source super-options
std::optional<MountEntry> parseLine(std::string_view line) {
  const auto fields = splitFields(line);
  std::size_t dash = 6;
  while (dash < fields.size() && fields[dash] != "-") ++dash;
  if (dash + 2 >= fields.size()) return std::nullopt;
  MountEntry entry;
  if (!parseNumber(fields[0], entry.mountID) || !parseNumber(fields[1], entry.parentID) ||
      !parseDevice(fields[2], entry.device)) {
    return std::nullopt;
  }
  entry.root = unescapeMountField(fields[3]);
  entry.mountPoint = unescapeMountField(fields[4]);
  entry.fsType = unescapeMountField(fields[dash + 1]);
  entry.source = unescapeMountField(fields[dash + 2]);
  entry.options = unescapeMountField(fields[5]);
  if (dash + 3 < fields.size()) entry.options += "," + unescapeMountField(fields[dash + 3]);
  if (entry.root.empty() || entry.root[0] != '/' || entry.mountPoint.empty() || entry.mountPoint[0] != '/') {
    return std::nullopt;
  }
  return entry;
}

using MountsByID = std::unordered_map<std::uint64_t, const MountEntry*>;
// The IDs of the mounts made on a mount (its ID) at a mount point.
using MountsOn = std::map<std::pair<std::uint64_t, std::string_view>, std::vector<std::uint64_t>>;

// The IDs of `mount` and of the mounts it was mounted on, up to a parent
// the table does not show (the root's); an ID met twice ends the walk.
std::vector<std::uint64_t> ancestryOf(const MountsByID& byID, const MountEntry& mount) {
  std::vector<std::uint64_t> ancestry{mount.mountID};
  for (auto parent = byID.find(mount.parentID); parent != byID.end() && ancestry.size() < kMaxMountDepth;
       parent = byID.find(parent->second->parentID)) {
    if (std::find(ancestry.begin(), ancestry.end(), parent->first) != ancestry.end()) break;
    ancestry.push_back(parent->first);
  }
  return ancestry;
}

// "/", "/a" and "/a/b" for "/a/b": the folders whose mounts cover it.
std::vector<std::string_view> foldersHolding(std::string_view path) {
  std::vector<std::string_view> folders{"/"};
  for (std::size_t slash = path.find('/', 1); slash != std::string_view::npos; slash = path.find('/', slash + 1)) {
    folders.push_back(path.substr(0, slash));
  }
  if (path.size() > 1) folders.push_back(path);
  return folders;
}

// Covered: a mount made on the mount or on one of its ancestors, at its
// mount point or a folder above, that is not itself one of its ancestors.
bool isCovered(const MountsByID& byID, const MountsOn& mountsOn, const MountEntry& mount) {
  const auto ancestry = ancestryOf(byID, mount);
  const auto isAncestor = [&](std::uint64_t id) {
    return std::find(ancestry.begin(), ancestry.end(), id) != ancestry.end();
  };
  const auto folders = foldersHolding(mount.mountPoint);
  for (std::uint64_t ancestor : ancestry) {
    for (std::string_view folder : folders) {
      const auto made = mountsOn.find({ancestor, folder});
      if (made != mountsOn.end() && !std::all_of(made->second.begin(), made->second.end(), isAncestor)) return true;
    }
  }
  return false;
}

}  // namespace

std::vector<MountEntry> mountsInReach(const std::vector<MountEntry>& table) {
  MountsByID byID;
  MountsOn mountsOn;
  for (const MountEntry& entry : table) {
    byID.emplace(entry.mountID, &entry);
    mountsOn[{entry.parentID, entry.mountPoint}].push_back(entry.mountID);
  }
  std::vector<MountEntry> reachable;
  for (const MountEntry& entry : table) {
    if (!isCovered(byID, mountsOn, entry)) reachable.push_back(entry);
  }
  return reachable;
}

std::string unescapeMountField(std::string_view field) {
  std::string out;
  for (std::size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && i + 3 < field.size()) {
      const std::string_view digits = field.substr(i + 1, 3);
      if (digits.find_first_not_of("01234567") == std::string_view::npos && digits[0] <= '3') {
        out.push_back(static_cast<char>(((digits[0] - '0') << 6) | ((digits[1] - '0') << 3) | (digits[2] - '0')));
        i += 3;
        continue;
      }
    }
    out.push_back(field[i]);
  }
  return out;
}

std::vector<MountEntry> parseMountTable(std::string_view text) {
  std::vector<MountEntry> entries;
  while (!text.empty() && entries.size() < kMaxMounts) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    if (auto entry = parseLine(text.substr(0, end))) entries.push_back(std::move(*entry));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return entries;
}

bool isWithinFolder(std::string_view path, std::string_view folder) {
  if (folder == "/") return !path.empty() && path.front() == '/';
  return path.substr(0, folder.size()) == folder && (path.size() == folder.size() || path[folder.size()] == '/');
}

// A mount point can be mounted over; the later line is the one on top.
const MountEntry* mountHolding(const std::vector<MountEntry>& table, const PathPlace& place) {
  if (place.mountID) {
    for (const MountEntry& entry : table) {
      if (entry.mountID == *place.mountID) return &entry;
    }
  }
  const MountEntry* holder = nullptr;
  for (const MountEntry& entry : table) {
    if (!isWithinFolder(place.resolvedPath, entry.mountPoint)) continue;
    if (!holder || entry.mountPoint.size() >= holder->mountPoint.size()) holder = &entry;
  }
  return holder;
}

}  // namespace halyard

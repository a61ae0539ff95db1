// VTUserGroupMapper: the tables built by name, the lookups, the names and
// UUIDs of ids, and the ACL text mapping.

#include "fileservices/vt_user_group_mapper.h"

#include <charconv>
#include <cstdio>
#include <map>
#include <set>

namespace halyard::fileservices {

namespace {

// The keys of one kind of list entry.
struct ListKeys {
  const char* id;
  const char* name;
};
constexpr ListKeys kUserKeys{"uid", "uname"};
constexpr ListKeys kGroupKeys{"gid", "group"};

std::uint32_t idOf(const Dictionary& entry, const char* key) {
  auto number = objectAs<Number>(entry.get(key));
  return number ? static_cast<std::uint32_t>(number->int64Value()) : 0;
}

std::optional<std::string> textOf(const Dictionary& entry, const char* key) {
  auto text = objectAs<String>(entry.get(key));
  return text ? std::optional(text->text) : std::nullopt;
}

template <class Visit>
void forEachEntry(const std::shared_ptr<Array>& list, Visit visit) {
  if (!list) return;
  for (const auto& item : list->items) {
    if (auto entry = objectAs<Dictionary>(item)) visit(*entry);
  }
}

// "www" is also tried as "_www", and "_www" as "www"; a lone "_" has no
// other form.
std::optional<std::string> alternativeName(const std::string& name) {
  if (name.empty() || name[0] != '_') return "_" + name;
  if (name.size() < 2) return std::nullopt;
  return name.substr(1);
}

MappingTable buildTableByName(const std::shared_ptr<Array>& from, const std::shared_ptr<Array>& to, ListKeys keys) {
  std::map<std::string, std::uint32_t> idsByName;
  std::set<std::uint32_t> ids;
  forEachEntry(to, [&](const Dictionary& entry) {
    const std::uint32_t id = idOf(entry, keys.id);
    ids.insert(id);
    if (auto name = textOf(entry, keys.name)) idsByName[*name] = id;
  });
  MappingTable table;
  forEachEntry(from, [&](const Dictionary& entry) {
    MappingEntry mapping;
    mapping.id = idOf(entry, keys.id);
    const auto name = textOf(entry, keys.name);
    const auto alternative = name ? alternativeName(*name) : std::nullopt;
    if (auto found = name ? idsByName.find(*name) : idsByName.end(); found != idsByName.end()) {
      mapping.map_id = found->second;
    } else if (auto other = alternative ? idsByName.find(*alternative) : idsByName.end(); other != idsByName.end()) {
      mapping.map_id = other->second;
    } else if (ids.contains(mapping.id)) {
      mapping.map_id = mapping.id;
    } else {
      mapping.has_alt = 1;
      mapping.alt_map_id = kNoMapping;
    }
    table.push_back(mapping);
  });
  return table;
}

const Dictionary* entryForID(const std::shared_ptr<Array>& list, const char* idKey, std::uint32_t id) {
  const Dictionary* found = nullptr;
  forEachEntry(list, [&](const Dictionary& entry) {
    if (!found && objectAs<Number>(entry.get(idKey)) && idOf(entry, idKey) == id) found = &entry;
  });
  return found;
}

std::optional<std::string> nameForID(const std::shared_ptr<Array>& list, ListKeys keys, std::uint32_t id) {
  const Dictionary* entry = entryForID(list, keys.id, id);
  return entry ? textOf(*entry, keys.name) : std::nullopt;
}

std::string uuidForID(const std::shared_ptr<Array>& list, ListKeys keys, std::uint32_t id, const char* synthetic) {
  const Dictionary* entry = entryForID(list, keys.id, id);
  if (auto uuid = entry ? textOf(*entry, "uuid") : std::nullopt) return *uuid;
  char text[40];
  std::snprintf(text, sizeof text, synthetic, id);
  return text;
}

constexpr const char* kSyntheticUserUUID = "FFFFEEEE-DDDD-CCCC-BBBB-AAAA%08X";
constexpr const char* kSyntheticGroupUUID = "AAAABBBB-CCCC-DDDD-EEEE-FFFF%08X";

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  for (std::size_t at; (at = text.find(separator, start)) != std::string::npos; start = at + 1) {
    parts.push_back(text.substr(start, at - start));
  }
  parts.push_back(text.substr(start));
  return parts;
}

std::string join(const std::vector<std::string>& parts, char separator) {
  std::string text;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i) text += separator;
    text += parts[i];
  }
  return text;
}

std::optional<std::uint32_t> decimalID(const std::string& text) {
  std::uint32_t id = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
  if (error != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
  return id;
}

}  // namespace

VTUserGroupMapper::VTUserGroupMapper(std::shared_ptr<Array> serverUsers, std::shared_ptr<Array> serverGroups,
                                     std::shared_ptr<Array> clientUsers, std::shared_ptr<Array> clientGroups)
    : _clientUserList(std::move(clientUsers)),
      _clientGroupList(std::move(clientGroups)),
      _serverUserList(std::move(serverUsers)),
      _serverGroupList(std::move(serverGroups)),
      _clientToServerUserMappings(buildTableByName(_clientUserList, _serverUserList, kUserKeys)),
      _clientToServerGroupMappings(buildTableByName(_clientGroupList, _serverGroupList, kGroupKeys)),
      _serverToClientUserMappings(buildTableByName(_serverUserList, _clientUserList, kUserKeys)),
      _serverToClientGroupMappings(buildTableByName(_serverGroupList, _clientGroupList, kGroupKeys)) {}

std::uint32_t VTUserGroupMapper::mapID(std::uint32_t id, std::span<const MappingEntry> table,
                                       bool* mappingPerformed) const {
  bool performed = false;
  std::uint32_t mapped = id;
  if (_mappingEnabled) {
    for (const MappingEntry& entry : table) {
      if (entry.id != id) continue;
      const std::uint32_t effective = entry.has_alt ? entry.alt_map_id : entry.map_id;
      if (effective != kNoMapping) {
        mapped = effective;
        performed = true;
      }
      break;
    }
  }
  if (mappingPerformed) *mappingPerformed = performed;
  return mapped;
}

std::uint32_t VTUserGroupMapper::mapClientUserToServerID(std::uint32_t id, bool* performed) const {
  return mapID(id, _clientToServerUserMappings, performed);
}
std::uint32_t VTUserGroupMapper::mapClientGroupToServerID(std::uint32_t id, bool* performed) const {
  return mapID(id, _clientToServerGroupMappings, performed);
}
std::uint32_t VTUserGroupMapper::mapServerUserToClientID(std::uint32_t id, bool* performed) const {
  return mapID(id, _serverToClientUserMappings, performed);
}
std::uint32_t VTUserGroupMapper::mapServerGroupToClientID(std::uint32_t id, bool* performed) const {
  return mapID(id, _serverToClientGroupMappings, performed);
}

std::optional<std::string> VTUserGroupMapper::clientUserNameForID(std::uint32_t id) const {
  return nameForID(_clientUserList, kUserKeys, id);
}
std::optional<std::string> VTUserGroupMapper::clientGroupNameForID(std::uint32_t id) const {
  return nameForID(_clientGroupList, kGroupKeys, id);
}
std::optional<std::string> VTUserGroupMapper::serverUserNameForID(std::uint32_t id) const {
  return nameForID(_serverUserList, kUserKeys, id);
}
std::optional<std::string> VTUserGroupMapper::serverGroupNameForID(std::uint32_t id) const {
  return nameForID(_serverGroupList, kGroupKeys, id);
}

std::string VTUserGroupMapper::clientUserUUIDForID(std::uint32_t id) const {
  return uuidForID(_clientUserList, kUserKeys, id, kSyntheticUserUUID);
}
std::string VTUserGroupMapper::clientGroupUUIDForID(std::uint32_t id) const {
  return uuidForID(_clientGroupList, kGroupKeys, id, kSyntheticGroupUUID);
}
std::string VTUserGroupMapper::serverUserUUIDForID(std::uint32_t id) const {
  return uuidForID(_serverUserList, kUserKeys, id, kSyntheticUserUUID);
}
std::string VTUserGroupMapper::serverGroupUUIDForID(std::uint32_t id) const {
  return uuidForID(_serverGroupList, kGroupKeys, id, kSyntheticGroupUUID);
}

std::string VTUserGroupMapper::mapClientToServerACLString(const std::string& text) const {
  return mapACLString(text, true);
}

std::string VTUserGroupMapper::mapServerToClientACLString(const std::string& text) const {
  return mapACLString(text, false);
}

// Entry lines read "kind:uuid:name:id:...". A line whose id is not a
// decimal number is left as it stands.
std::string VTUserGroupMapper::mapACLString(const std::string& text, bool clientToServer) const {
  // The lookups of one direction and kind: the table's, then the names and
  // UUIDs of the side the ids are mapped to.
  struct Lookups {
    std::uint32_t (VTUserGroupMapper::*map)(std::uint32_t, bool*) const;
    std::string (VTUserGroupMapper::*uuid)(std::uint32_t) const;
    std::optional<std::string> (VTUserGroupMapper::*name)(std::uint32_t) const;
  };
  using M = VTUserGroupMapper;
  const Lookups users = clientToServer
                            ? Lookups{&M::mapClientUserToServerID, &M::serverUserUUIDForID, &M::serverUserNameForID}
                            : Lookups{&M::mapServerUserToClientID, &M::clientUserUUIDForID, &M::clientUserNameForID};
  const Lookups groups =
      clientToServer ? Lookups{&M::mapClientGroupToServerID, &M::serverGroupUUIDForID, &M::serverGroupNameForID}
                     : Lookups{&M::mapServerGroupToClientID, &M::clientGroupUUIDForID, &M::clientGroupNameForID};

  std::vector<std::string> lines = split(text, '\n');
  if (lines.size() < 2 || lines[0] != "!#acl 1") return text;
  bool changed = false;
  for (std::size_t i = 1; i < lines.size(); ++i) {
    std::vector<std::string> fields = split(lines[i], ':');
    const Lookups* lookups = fields[0] == "user" ? &users : fields[0] == "group" ? &groups : nullptr;
    const auto id = lookups && fields.size() >= 4 ? decimalID(fields[3]) : std::nullopt;
    if (!id) continue;
    bool performed = false;
    const std::uint32_t mapped = (this->*lookups->map)(*id, &performed);
    if (!performed) continue;
    fields[1] = (this->*lookups->uuid)(mapped);
    fields[2] = (this->*lookups->name)(mapped).value_or("");
    fields[3] = std::to_string(mapped);
    lines[i] = join(fields, ':');
    changed = true;
  }
  return changed ? join(lines, '\n') : text;
}

}  // namespace halyard::fileservices

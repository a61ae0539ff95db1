#pragma once
// VTUserGroupMapper: translates user and group ids between a "client" (the
// machine on the other side of a transfer) and the "server" (this machine),
// by name, and rewrites the user and group references of an ACL text. It
// holds both sides' user and group lists (arrays of dictionaries: "uid" or
// "gid", "uname" or "group", optional "uuid") and four tables built from
// them. An id without a mapping keeps its value and the lookup says that no
// mapping was performed.
//
//   VTUserGroupMapper mapper(serverUsers, serverGroups, clientUsers, clientGroups);
//   bool performed = false;
//   std::uint32_t uid = mapper.mapClientUserToServerID(501, &performed);

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "foundation/class_registry.h"
#include "foundation/values.h"

namespace halyard::fileservices {

// One table entry, 16 bytes as stored: the id, its mapped id, and an
// alternative mapped id that overrides it when `has_alt` is set.
struct MappingEntry {
  std::uint32_t id = 0;
  std::uint32_t map_id = 0;
  std::uint8_t has_alt = 0;
  std::array<std::uint8_t, 3> alignment{};  // never read, always zero
  std::uint32_t alt_map_id = 0;
  bool operator==(const MappingEntry&) const = default;
};
static_assert(sizeof(MappingEntry) == 16);

using MappingTable = std::vector<MappingEntry>;

// The effective mapped id that marks an id without a mapping.
inline constexpr std::uint32_t kNoMapping = static_cast<std::uint32_t>(-99999);

class VTUserGroupMapper final : public Object {
 public:
  static constexpr const char* kClassName = "VTUserGroupMapper";

  // A mapper starts with mapping switched off (every id maps to itself)
  // until `setMappingEnabled`.
  VTUserGroupMapper() = default;
  // Builds the four tables by name from the four lists.
  VTUserGroupMapper(std::shared_ptr<Array> serverUsers, std::shared_ptr<Array> serverGroups,
                    std::shared_ptr<Array> clientUsers, std::shared_ptr<Array> clientGroups);

  // `copyWithZone:`: copies of the lists and of the tables.
  std::shared_ptr<VTUserGroupMapper> copy() const;

  bool mappingEnabled() const { return _mappingEnabled; }
  void setMappingEnabled(bool enabled) { _mappingEnabled = enabled; }
  const std::shared_ptr<Array>& clientUserList() const { return _clientUserList; }
  void setClientUserList(std::shared_ptr<Array> list) { _clientUserList = std::move(list); }
  const std::shared_ptr<Array>& clientGroupList() const { return _clientGroupList; }
  void setClientGroupList(std::shared_ptr<Array> list) { _clientGroupList = std::move(list); }
  const std::shared_ptr<Array>& serverUserList() const { return _serverUserList; }
  void setServerUserList(std::shared_ptr<Array> list) { _serverUserList = std::move(list); }
  const std::shared_ptr<Array>& serverGroupList() const { return _serverGroupList; }
  void setServerGroupList(std::shared_ptr<Array> list) { _serverGroupList = std::move(list); }

  // The id through the table; `mappingPerformed` (may be null) tells whether
  // a mapping applied.
  std::uint32_t mapID(std::uint32_t id, std::span<const MappingEntry> table, bool* mappingPerformed = nullptr) const;
  std::uint32_t mapClientUserToServerID(std::uint32_t id, bool* performed = nullptr) const;
  std::uint32_t mapClientGroupToServerID(std::uint32_t id, bool* performed = nullptr) const;
  std::uint32_t mapServerUserToClientID(std::uint32_t id, bool* performed = nullptr) const;
  std::uint32_t mapServerGroupToClientID(std::uint32_t id, bool* performed = nullptr) const;

  // An ACL text ("!#acl 1" and entry lines) with its user and group entries
  // mapped; any other text comes back unchanged.
  std::string mapClientToServerACLString(const std::string& text) const;
  std::string mapServerToClientACLString(const std::string& text) const;

  std::optional<std::string> clientUserNameForID(std::uint32_t id) const;
  std::optional<std::string> clientGroupNameForID(std::uint32_t id) const;
  std::optional<std::string> serverUserNameForID(std::uint32_t id) const;
  std::optional<std::string> serverGroupNameForID(std::uint32_t id) const;
  // The list entry's "uuid", or one made from the id.
  std::string clientUserUUIDForID(std::uint32_t id) const;
  std::string clientGroupUUIDForID(std::uint32_t id) const;
  std::string serverUserUUIDForID(std::uint32_t id) const;
  std::string serverGroupUUIDForID(std::uint32_t id) const;

  // The tables as arrays of entry dictionaries ("id", "map_id", and
  // "alt_map_id" when set): read, replace, or update the entries whose id
  // matches.
  std::shared_ptr<Array> clientToServerUserMappings() const { return contentsOfTable(_clientToServerUserMappings); }
  void setClientToServerUserMappings(const Array& entries) {
    _clientToServerUserMappings = createMappingTable(entries);
  }
  void updateClientToServerUserMappings(const Array& entries) {
    updateMappingTable(_clientToServerUserMappings, entries);
  }
  std::shared_ptr<Array> clientToServerGroupMappings() const { return contentsOfTable(_clientToServerGroupMappings); }
  void setClientToServerGroupMappings(const Array& entries) {
    _clientToServerGroupMappings = createMappingTable(entries);
  }
  void updateClientToServerGroupMappings(const Array& entries) {
    updateMappingTable(_clientToServerGroupMappings, entries);
  }
  std::shared_ptr<Array> serverToClientUserMappings() const { return contentsOfTable(_serverToClientUserMappings); }
  void setServerToClientUserMappings(const Array& entries) {
    _serverToClientUserMappings = createMappingTable(entries);
  }
  void updateServerToClientUserMappings(const Array& entries) {
    updateMappingTable(_serverToClientUserMappings, entries);
  }
  std::shared_ptr<Array> serverToClientGroupMappings() const { return contentsOfTable(_serverToClientGroupMappings); }
  void setServerToClientGroupMappings(const Array& entries) {
    _serverToClientGroupMappings = createMappingTable(entries);
  }
  void updateServerToClientGroupMappings(const Array& entries) {
    updateMappingTable(_serverToClientGroupMappings, entries);
  }

  static MappingTable createMappingTable(const Array& entries);
  static std::shared_ptr<Array> contentsOfTable(std::span<const MappingEntry> table);
  static void updateMappingTable(MappingTable& table, const Array& entries);

  // Reverses the bytes of the three 32-bit fields of every entry of the four
  // tables (for a client of the other byte order).
  void swapMappingTablesByteOrder();

  ClassChain archiveClassChain() const override;
  void encodeWithCoder(Archiver& coder) const override;
  void writeJson(JsonWriter& json) const override;
  static Expected<ObjectRef> initWithCoder(Unarchiver& coder);

 private:
  std::string mapACLString(const std::string& text, bool clientToServer) const;
  std::shared_ptr<Dictionary> archiveDictionary() const;
  void applyArchiveDictionary(const Dictionary& archive);

  bool _mappingEnabled = false;
  std::shared_ptr<Array> _clientUserList;
  std::shared_ptr<Array> _clientGroupList;
  std::shared_ptr<Array> _serverUserList;
  std::shared_ptr<Array> _serverGroupList;
  MappingTable _clientToServerUserMappings;
  MappingTable _clientToServerGroupMappings;
  MappingTable _serverToClientUserMappings;
  MappingTable _serverToClientGroupMappings;
};

// Adds the decoder of VTUserGroupMapper.
void registerUserGroupMapperClass(ClassRegistry& registry);

}  // namespace halyard::fileservices

// VTUserGroupMapper: tables by name (the underscore rule, the self-mapping,
// the no-mapping marker), ACL texts, UUIDs, table accessors, the archive
// and the byte swap.

#include <gtest/gtest.h>

#include "fileservices/vt_user_group_mapper.h"
#include "foundation/archiver.h"
#include "foundation/unarchiver.h"

namespace halyard::fileservices {
namespace {

std::shared_ptr<Array> list(const char* idKey, const char* nameKey,
                            std::vector<std::tuple<std::uint32_t, std::string, std::string>> rows) {
  auto array = Array::make();
  for (const auto& [id, name, uuid] : rows) {
    auto entry = Dictionary::make();
    entry->set(idKey, std::make_shared<Number>('I', std::uint64_t{id}));
    entry->set(nameKey, String::make(name));
    if (!uuid.empty()) entry->set("uuid", String::make(uuid));
    array->items.push_back(entry);
  }
  return array;
}

// Client: www 70, _x 80, _ 90, alice 501, carol 777. Server: _www 71, x 81,
// alice 502, 777 belongs to nobody by name ("dave").
VTUserGroupMapper makeMapper() {
  VTUserGroupMapper mapper(
      list("uid", "uname", {{71, "_www", ""}, {81, "x", ""}, {502, "alice", "SERVER-ALICE"}, {777, "dave", ""}}),
      list("gid", "group", {{20, "staff", ""}, {80, "admin", ""}}),
      list("uid", "uname", {{70, "www", ""}, {80, "_x", ""}, {90, "_", ""}, {501, "alice", ""}, {777, "carol", ""}}),
      list("gid", "group", {{20, "staff", ""}, {12, "everyone", ""}}));
  mapper.setMappingEnabled(true);
  return mapper;
}

TEST(VTUserGroupMapper, ClientUsersMapByNameUnderscoreAndId) {
  const VTUserGroupMapper mapper = makeMapper();
  struct Case {
    const char* name;
    std::uint32_t id;
    std::uint32_t mapped;
    bool performed;
  } cases[] = {
      {"same name", 501, 502, true},
      {"www finds _www", 70, 71, true},
      {"_x finds x", 80, 81, true},
      {"a lone _ tries nothing and 90 is no server uid", 90, 90, false},
      {"no name match but the uid exists on the server", 777, 777, true},
      {"not in the table at all", 12345, 12345, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    bool performed = !c.performed;
    EXPECT_EQ(mapper.mapClientUserToServerID(c.id, &performed), c.mapped);
    EXPECT_EQ(performed, c.performed);
  }
  bool performed = true;
  EXPECT_EQ(mapper.mapClientGroupToServerID(12, &performed), 12u) << "group with the no-mapping marker";
  EXPECT_FALSE(performed);
  EXPECT_EQ(mapper.mapServerUserToClientID(502), 501u);
  EXPECT_EQ(mapper.mapServerGroupToClientID(80, &performed), 80u);
  EXPECT_FALSE(performed);
}

TEST(VTUserGroupMapper, DisabledMappingMapsEveryIdToItself) {
  VTUserGroupMapper mapper = makeMapper();
  mapper.setMappingEnabled(false);
  for (std::uint32_t id : {501u, 70u, 777u}) {
    bool performed = true;
    EXPECT_EQ(mapper.mapClientUserToServerID(id, &performed), id);
    EXPECT_FALSE(performed);
  }
}

TEST(VTUserGroupMapper, ACLTexts) {
  const VTUserGroupMapper mapper = makeMapper();
  struct Case {
    const char* name;
    std::string text;
    std::string clientToServer;
  } cases[] = {
      {"no header line: unchanged", "user::rw-\nuser:501:rw-\n", "user::rw-\nuser:501:rw-\n"},
      {"header only", "!#acl 1", "!#acl 1"},
      {"user and group entries", "!#acl 1\nuser:C-UUID:alice:501:allow:read\ngroup:G:staff:20:deny:write\n",
       "!#acl 1\nuser:SERVER-ALICE:alice:502:allow:read\ngroup:AAAABBBB-CCCC-DDDD-EEEE-FFFF00000014:staff:20:deny:"
       "write\n"},
      {"unmapped and malformed lines stay",
       "!#acl 1\nuser:U:nobody:12345:allow:read\nuser:U:x:abc:allow:read\nother:1:2:3\nuser:short",
       "!#acl 1\nuser:U:nobody:12345:allow:read\nuser:U:x:abc:allow:read\nother:1:2:3\nuser:short"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(mapper.mapClientToServerACLString(c.text), c.clientToServer);
  }
  EXPECT_EQ(mapper.mapServerToClientACLString("!#acl 1\nuser:X:alice:502:allow:read"),
            "!#acl 1\nuser:FFFFEEEE-DDDD-CCCC-BBBB-AAAA000001F5:alice:501:allow:read");
}

TEST(VTUserGroupMapper, TableAccessorsReadReplaceAndUpdate) {
  VTUserGroupMapper mapper = makeMapper();
  auto entries = mapper.clientToServerGroupMappings();
  ASSERT_EQ(entries->items.size(), 2u);
  auto marker = objectAs<Dictionary>(entries->items[1]);
  EXPECT_EQ(objectAs<Number>(marker->get("alt_map_id"))->int64Value(), kNoMapping);
  EXPECT_EQ(objectAs<Dictionary>(entries->items[0])->get("alt_map_id"), nullptr);

  auto update = Array::make();
  auto changed = Dictionary::make();
  changed->set("id", std::make_shared<Number>('I', std::uint64_t{12}));
  changed->set("map_id", std::make_shared<Number>('I', std::uint64_t{80}));
  update->items = {changed, String::make("ignored")};
  mapper.updateClientToServerGroupMappings(*update);
  EXPECT_EQ(mapper.mapClientGroupToServerID(12), 80u) << "has_alt cleared by an entry without alt_map_id";
  mapper.setClientToServerGroupMappings(*update);
  EXPECT_EQ(mapper.clientToServerGroupMappings()->items.size(), 2u);
  EXPECT_EQ(VTUserGroupMapper::createMappingTable(Array()).size(), 0u);
}

TEST(VTUserGroupMapper, ArchiveCopyAndTwoByteSwapsRoundTrip) {
  VTUserGroupMapper original = makeMapper();
  // The four tables, archived, as one comparable text.
  auto tables = [](const VTUserGroupMapper& m) {
    std::string all;
    for (const auto& table : {m.clientToServerUserMappings(), m.clientToServerGroupMappings(),
                              m.serverToClientUserMappings(), m.serverToClientGroupMappings()}) {
      all += Archiver::archivedData(table);
    }
    return all;
  };
  ClassRegistry registry = ClassRegistry::foundation();
  registerUserGroupMapperClass(registry);
  auto holder = std::make_shared<VTUserGroupMapper>(original);
  auto decoded = Unarchiver::unarchiveRootObject(Archiver::archivedData(holder), registry);
  ASSERT_TRUE(decoded.ok()) << decoded.error().describe();
  auto mapper = objectAs<VTUserGroupMapper>(*decoded);
  ASSERT_TRUE(mapper);
  EXPECT_TRUE(mapper->mappingEnabled());
  EXPECT_EQ(tables(*mapper), tables(original));
  EXPECT_EQ(mapper->serverUserUUIDForID(502), "SERVER-ALICE");

  auto copied = original.copy();
  copied->swapMappingTablesByteOrder();
  EXPECT_EQ(copied->mapServerUserToClientID(__builtin_bswap32(502)), __builtin_bswap32(501));
  EXPECT_NE(tables(*copied), tables(original));
  copied->swapMappingTablesByteOrder();
  EXPECT_EQ(tables(*copied), tables(original));
}

}  // namespace
}  // namespace halyard::fileservices

// VTUserGroupMapper: entry dictionaries, the archived form (the tables as
// their raw 16-byte entries, little-endian as on Intel), copying and the
// byte swap.

#include <algorithm>
#include <bit>

#include "fileservices/vt_user_group_mapper.h"
#include "foundation/archived_dictionary.h"
#include "foundation/archived_values.h"
#include "foundation/archiver.h"
#include "foundation/json_writer.h"
#include "foundation/unarchiver.h"

namespace halyard::fileservices {

namespace {

constexpr std::size_t kEntrySize = sizeof(MappingEntry);

// The archive keys of the four tables; the count goes under key + "#".
constexpr const char* kClientToServerUsers = "csum";
constexpr const char* kClientToServerGroups = "csgm";
constexpr const char* kServerToClientUsers = "scum";
constexpr const char* kServerToClientGroups = "scgm";

ObjectRef unsignedNumber(std::uint32_t v) { return std::make_shared<Number>('I', std::uint64_t{v}); }

std::optional<std::uint32_t> unsignedOf(const Dictionary& entry, const char* key) {
  auto number = objectAs<Number>(entry.get(key));
  if (!number) return std::nullopt;
  return static_cast<std::uint32_t>(number->int64Value());
}

void putWord(std::string& out, std::uint32_t v) {
  for (int shift = 0; shift < 32; shift += 8) out.push_back(static_cast<char>((v >> shift) & 0xFF));
}

std::uint32_t wordAt(std::string_view bytes, std::size_t at) {
  std::uint32_t v = 0;
  for (int i = 3; i >= 0; --i) v = (v << 8) | static_cast<unsigned char>(bytes[at + static_cast<std::size_t>(i)]);
  return v;
}

std::string rawTable(const MappingTable& table) {
  std::string bytes;
  bytes.reserve(table.size() * kEntrySize);
  for (const MappingEntry& entry : table) {
    putWord(bytes, entry.id);
    putWord(bytes, entry.map_id);
    bytes.push_back(static_cast<char>(entry.has_alt));
    bytes.append(3, '\0');
    putWord(bytes, entry.alt_map_id);
  }
  return bytes;
}

// At most as many entries as the bytes hold, whatever the count says.
MappingTable tableFromRaw(std::string_view bytes, std::optional<std::int64_t> count) {
  const std::size_t held = bytes.size() / kEntrySize;
  const std::size_t wanted = count ? static_cast<std::size_t>(std::clamp<std::int64_t>(*count, 0, held)) : held;
  MappingTable table(wanted);
  for (std::size_t i = 0; i < wanted; ++i) {
    const std::size_t at = i * kEntrySize;
    table[i].id = wordAt(bytes, at);
    table[i].map_id = wordAt(bytes, at + 4);
    table[i].has_alt = static_cast<std::uint8_t>(bytes[at + 8]);
    table[i].alt_map_id = wordAt(bytes, at + 12);
  }
  return table;
}

std::shared_ptr<Array> copyOfList(const std::shared_ptr<Array>& list) {
  return list ? std::make_shared<Array>(*list) : nullptr;
}

void swapTable(MappingTable& table) {
  for (MappingEntry& entry : table) {
    entry.id = __builtin_bswap32(entry.id);
    entry.map_id = __builtin_bswap32(entry.map_id);
    entry.alt_map_id = __builtin_bswap32(entry.alt_map_id);
  }
}

}  // namespace

MappingTable VTUserGroupMapper::createMappingTable(const Array& entries) {
  MappingTable table;
  for (const auto& item : entries.items) {
    auto dictionary = objectAs<Dictionary>(item);
    MappingEntry entry;
    if (dictionary) {
      entry.id = unsignedOf(*dictionary, "id").value_or(0);
      entry.map_id = unsignedOf(*dictionary, "map_id").value_or(0);
      if (auto alternative = unsignedOf(*dictionary, "alt_map_id")) {
        entry.has_alt = 1;
        entry.alt_map_id = *alternative;
      }
    }
    table.push_back(entry);
  }
  return table;
}

std::shared_ptr<Array> VTUserGroupMapper::contentsOfTable(std::span<const MappingEntry> table) {
  auto entries = Array::make({}, true);
  for (const MappingEntry& entry : table) {
    auto dictionary = Dictionary::make(true);
    dictionary->set("id", unsignedNumber(entry.id));
    dictionary->set("map_id", unsignedNumber(entry.map_id));
    if (entry.has_alt) dictionary->set("alt_map_id", unsignedNumber(entry.alt_map_id));
    entries->items.push_back(dictionary);
  }
  return entries;
}

void VTUserGroupMapper::updateMappingTable(MappingTable& table, const Array& entries) {
  for (const auto& item : entries.items) {
    auto dictionary = objectAs<Dictionary>(item);
    const auto id = dictionary ? unsignedOf(*dictionary, "id") : std::nullopt;
    if (!id) continue;
    auto found = std::find_if(table.begin(), table.end(), [&](const MappingEntry& e) { return e.id == *id; });
    if (found == table.end()) continue;
    found->map_id = unsignedOf(*dictionary, "map_id").value_or(0);
    const auto alternative = unsignedOf(*dictionary, "alt_map_id");
    found->has_alt = alternative ? 1 : 0;
    found->alt_map_id = alternative.value_or(0);
  }
}

void VTUserGroupMapper::swapMappingTablesByteOrder() {
  swapTable(_clientToServerUserMappings);
  swapTable(_clientToServerGroupMappings);
  swapTable(_serverToClientUserMappings);
  swapTable(_serverToClientGroupMappings);
}

std::shared_ptr<VTUserGroupMapper> VTUserGroupMapper::copy() const {
  auto copied = std::make_shared<VTUserGroupMapper>(*this);
  copied->_clientUserList = copyOfList(_clientUserList);
  copied->_clientGroupList = copyOfList(_clientGroupList);
  copied->_serverUserList = copyOfList(_serverUserList);
  copied->_serverGroupList = copyOfList(_serverGroupList);
  return copied;
}

ClassChain VTUserGroupMapper::archiveClassChain() const { return rootedChain({{kClassName, 0}}); }

std::shared_ptr<Dictionary> VTUserGroupMapper::archiveDictionary() const {
  auto archive = Dictionary::make(true);
  archive->set("en", Number::fromBool(_mappingEnabled));
  const std::pair<const char*, const std::shared_ptr<Array>*> lists[] = {
      {"cul", &_clientUserList}, {"cgl", &_clientGroupList}, {"sul", &_serverUserList}, {"sgl", &_serverGroupList}};
  for (const auto& [key, list] : lists) archive->set(key, *list ? *list : Array::make());
  const std::pair<const char*, const MappingTable*> tables[] = {{kClientToServerUsers, &_clientToServerUserMappings},
                                                                {kClientToServerGroups, &_clientToServerGroupMappings},
                                                                {kServerToClientUsers, &_serverToClientUserMappings},
                                                                {kServerToClientGroups, &_serverToClientGroupMappings}};
  for (const auto& [key, table] : tables) {
    archive->set(key, Data::make(rawTable(*table)));
    archive->set(std::string(key) + "#", Number::fromInt32(static_cast<std::int32_t>(table->size())));
  }
  return archive;
}

void VTUserGroupMapper::encodeWithCoder(Archiver& coder) const { coder.encodeObject(archiveDictionary()); }

void VTUserGroupMapper::writeJson(JsonWriter& json) const {
  json.key("entries");
  json.object(archiveDictionary());
}

void VTUserGroupMapper::applyArchiveDictionary(const Dictionary& archive) {
  const ArchivedValues values(archive, "a user and group mapper");
  _mappingEnabled = values.boolOf("en").value_or(false);
  _clientUserList = values.objectOf<Array>("cul", "an array");
  _clientGroupList = values.objectOf<Array>("cgl", "an array");
  _serverUserList = values.objectOf<Array>("sul", "an array");
  _serverGroupList = values.objectOf<Array>("sgl", "an array");
  auto table = [&](const char* key) {
    auto data = values.objectOf<Data>(key, "data");
    return tableFromRaw(data ? std::string_view(data->bytes) : std::string_view(),
                        values.int64Of((std::string(key) + "#").c_str()));
  };
  _clientToServerUserMappings = table(kClientToServerUsers);
  _clientToServerGroupMappings = table(kClientToServerGroups);
  _serverToClientUserMappings = table(kServerToClientUsers);
  _serverToClientGroupMappings = table(kServerToClientGroups);
}

Expected<ObjectRef> VTUserGroupMapper::initWithCoder(Unarchiver& coder) {
  auto archive = decodeArchivedDictionary(coder, "a user and group mapper");
  if (!archive) return archive.error();
  auto mapper = std::make_shared<VTUserGroupMapper>();
  mapper->applyArchiveDictionary(**archive);
  return ObjectRef{mapper};
}

void registerUserGroupMapperClass(ClassRegistry& registry) {
  registry.add(VTUserGroupMapper::kClassName,
               [](Unarchiver& coder, const ClassChain&) { return VTUserGroupMapper::initWithCoder(coder); });
}

}  // namespace halyard::fileservices

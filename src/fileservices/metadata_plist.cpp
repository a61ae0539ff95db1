// ItemMetadata to and from an XML property list, through libplist.

#include <plist/plist.h>

#include <cmath>
#include <cstdlib>
#include <memory>

#include "fileservices/item_metadata.h"
#include "foundation/unique_handle.h"

namespace halyard::fileservices {

namespace {

constexpr const char* kPermissions = "NSFilePosixPermissions";
constexpr const char* kOwnerID = "NSFileOwnerAccountID";
constexpr const char* kGroupID = "NSFileGroupOwnerAccountID";
constexpr const char* kOwnerName = "NSFileOwnerAccountName";
constexpr const char* kGroupName = "NSFileGroupOwnerAccountName";
constexpr const char* kModificationDate = "NSFileModificationDate";
constexpr const char* kCreationDate = "NSFileCreationDate";
constexpr const char* kAppendOnly = "NSFileAppendOnly";
constexpr const char* kCatalogInfo = "VTFM_CatalogInfo";
constexpr const char* kBSDStatus = "VTFM_BSDStatus";
constexpr const char* kExtendedAttributes = "VTFM_ExtendedAttribs";
constexpr const char* kFinderComment = "VTFM_FinderComment";
constexpr const char* kACL = "VTFM_ACL";

// Bounds for a plist from outside: the metadata of one item is small.
constexpr std::size_t kMaxPlistBytes = 16 * 1024 * 1024;
constexpr int kMaxNesting = 16;
constexpr std::uint32_t kMaxAttributes = 4096;
constexpr std::size_t kMaxAttributeName = 255;
constexpr std::size_t kMaxAttributeValue = 65536;

using Plist = UniqueHandle<CPointer<void, plist_free>>;
using MallocText = UniqueHandle<CPointer<char, ::free>>;

// ---- writing ----

void setItem(plist_t dict, const char* key, plist_t value) { plist_dict_set_item(dict, key, value); }

void setData(plist_t dict, const char* key, const std::optional<std::string>& bytes) {
  if (bytes) setItem(dict, key, plist_new_data(bytes->data(), bytes->size()));
}

void setUnsigned(plist_t dict, const char* key, const std::optional<std::uint64_t>& value) {
  if (value) setItem(dict, key, plist_new_uint(*value));
}

void setText(plist_t dict, const char* key, const std::optional<std::string>& text) {
  if (text) setItem(dict, key, plist_new_string(text->c_str()));
}

// Plist dates are whole seconds and microseconds since 2001 in 32 bits.
void setDate(plist_t dict, const char* key, const std::optional<TimeInterval>& date) {
  if (!date || !std::isfinite(*date) || std::fabs(*date) >= 2147483647.0) return;
  const double whole = std::floor(*date);
  setItem(dict, key,
          plist_new_date(static_cast<std::int32_t>(whole), static_cast<std::int32_t>((*date - whole) * 1e6)));
}

void writeAttributes(plist_t dict, const FileAttributes& a) {
  setUnsigned(dict, kPermissions, a.posixPermissions);
  setUnsigned(dict, kOwnerID, a.ownerAccountID);
  setUnsigned(dict, kGroupID, a.groupOwnerAccountID);
  setText(dict, kOwnerName, a.ownerAccountName);
  setText(dict, kGroupName, a.groupOwnerAccountName);
  setDate(dict, kModificationDate, a.modificationDate);
  setDate(dict, kCreationDate, a.creationDate);
  if (a.appendOnly) setItem(dict, kAppendOnly, plist_new_bool(*a.appendOnly));
}

// ---- reading ----

plist_t itemOfType(plist_t dict, const char* key, plist_type type) {
  plist_t node = plist_dict_get_item(dict, key);
  return node && plist_get_node_type(node) == type ? node : nullptr;
}

std::optional<std::uint64_t> unsignedAt(plist_t dict, const char* key) {
  plist_t node = itemOfType(dict, key, PLIST_UINT);
  if (!node) return std::nullopt;
  std::uint64_t value = 0;
  plist_get_uint_val(node, &value);
  return value;
}

std::optional<std::string> textAt(plist_t dict, const char* key) {
  plist_t node = itemOfType(dict, key, PLIST_STRING);
  if (!node) return std::nullopt;
  // By pointer and length: a string may hold a zero byte, which libplist's
  // copying getter refuses by assertion.
  std::uint64_t length = 0;
  const char* text = plist_get_string_ptr(node, &length);
  return text ? std::optional<std::string>(std::string(text, length)) : std::nullopt;
}

std::optional<std::string> dataOf(plist_t node) {
  if (!node || plist_get_node_type(node) != PLIST_DATA) return std::nullopt;
  char* raw = nullptr;
  std::uint64_t length = 0;
  plist_get_data_val(node, &raw, &length);
  MallocText bytes(raw);
  return bytes ? std::string(bytes.get(), length) : std::string();
}

std::optional<TimeInterval> dateAt(plist_t dict, const char* key) {
  plist_t node = itemOfType(dict, key, PLIST_DATE);
  if (!node) return std::nullopt;
  std::int32_t seconds = 0, micro = 0;
  plist_get_date_val(node, &seconds, &micro);
  return seconds + micro / 1e6;
}

FileAttributes readAttributes(plist_t dict) {
  FileAttributes a;
  a.posixPermissions = unsignedAt(dict, kPermissions);
  a.ownerAccountID = unsignedAt(dict, kOwnerID);
  a.groupOwnerAccountID = unsignedAt(dict, kGroupID);
  a.ownerAccountName = textAt(dict, kOwnerName);
  a.groupOwnerAccountName = textAt(dict, kGroupName);
  a.modificationDate = dateAt(dict, kModificationDate);
  a.creationDate = dateAt(dict, kCreationDate);
  if (plist_t node = itemOfType(dict, kAppendOnly, PLIST_BOOLEAN)) {
    std::uint8_t value = 0;
    plist_get_bool_val(node, &value);
    a.appendOnly = value != 0;
  }
  return a;
}

Expected<std::vector<std::pair<std::string, std::string>>> readExtendedAttributes(plist_t dict) {
  std::vector<std::pair<std::string, std::string>> attributes;
  plist_t node = itemOfType(dict, kExtendedAttributes, PLIST_DICT);
  if (!node) return attributes;
  if (plist_dict_get_size(node) > kMaxAttributes) return makeError("metadata.plist holds too many extended attributes");
  plist_dict_iter raw = nullptr;
  plist_dict_new_iter(node, &raw);
  const UniqueHandle<CPointer<void, ::free>> iter(raw);
  for (;;) {
    char* rawKey = nullptr;
    plist_t value = nullptr;
    plist_dict_next_item(node, iter.get(), &rawKey, &value);
    MallocText key(rawKey);
    if (!key) break;
    auto bytes = dataOf(value);
    const std::string name = key.get();
    if (!bytes || name.empty() || name.size() > kMaxAttributeName || bytes->size() > kMaxAttributeValue) {
      return makeError("metadata.plist holds an unusable extended attribute \"" + name.substr(0, 64) + "\"");
    }
    attributes.emplace_back(name, std::move(*bytes));
  }
  return attributes;
}

// The deepest nesting of dict and array elements, counted before libplist
// (whose parser and destructor recurse) sees the text.
bool nestingWithinLimit(std::string_view xml) {
  int depth = 0;
  for (std::size_t at = xml.find('<'); at != std::string_view::npos; at = xml.find('<', at + 1)) {
    const std::size_t end = xml.find_first_of(" \t\r\n/>", at + 2);
    const std::string_view name = xml.substr(at + 1, end == std::string_view::npos ? 0 : end - at - 1);
    const std::size_t close = xml.find('>', at);
    const bool selfClosing = close != std::string_view::npos && close > at && xml[close - 1] == '/';
    if ((name == "dict" || name == "array") && !selfClosing && ++depth > kMaxNesting) return false;
    if (name == "/dict" || name == "/array") --depth;
  }
  return true;
}

}  // namespace

std::string metadataPlistXML(const ItemMetadata& metadata) {
  Plist root(plist_new_dict());
  writeAttributes(root.get(), metadata.attributes);
  setData(root.get(), kCatalogInfo, metadata.catalogInfo);
  setData(root.get(), kBSDStatus, metadata.bsdStatus);
  if (!metadata.extendedAttributes.empty()) {
    plist_t attributes = plist_new_dict();
    for (const auto& [name, value] : metadata.extendedAttributes) setData(attributes, name.c_str(), value);
    setItem(root.get(), kExtendedAttributes, attributes);
  }
  setText(root.get(), kFinderComment, metadata.finderComment);
  setData(root.get(), kACL, metadata.acl);
  char* raw = nullptr;
  std::uint32_t length = 0;
  plist_to_xml(root.get(), &raw, &length);
  MallocText xml(raw);
  return xml ? std::string(xml.get(), length) : std::string();
}

Expected<ItemMetadata> parseMetadataPlist(std::string_view xml) {
  if (xml.size() > kMaxPlistBytes) return makeError("metadata.plist is larger than 16 MiB");
  if (xml.starts_with("bplist")) return makeError("metadata.plist is not an XML property list");
  if (!nestingWithinLimit(xml)) return makeError("metadata.plist nests deeper than 16 levels");
  plist_t raw = nullptr;
  plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &raw);
  Plist root(raw);
  if (!root) return makeError("metadata.plist is not a readable property list");
  if (plist_get_node_type(root.get()) != PLIST_DICT) return makeError("metadata.plist does not hold a dictionary");
  ItemMetadata metadata;
  metadata.attributes = readAttributes(root.get());
  metadata.catalogInfo = dataOf(plist_dict_get_item(root.get(), kCatalogInfo));
  metadata.bsdStatus = dataOf(plist_dict_get_item(root.get(), kBSDStatus));
  auto attributes = readExtendedAttributes(root.get());
  if (!attributes) return attributes.error();
  metadata.extendedAttributes = std::move(*attributes);
  metadata.finderComment = textAt(root.get(), kFinderComment);
  metadata.acl = dataOf(plist_dict_get_item(root.get(), kACL));
  return metadata;
}

}  // namespace halyard::fileservices

// metadata.plist: every member round-trips through the XML property list,
// and hostile plists are refused with a message, never a crash.

#include <gtest/gtest.h>

#include "fileservices/item_metadata.h"

namespace halyard::fileservices {
namespace {

TEST(MetadataPlist, EveryMemberRoundTrips) {
  ItemMetadata metadata;
  metadata.attributes = {0750, 1000, 100, "alice", "staff", 123456789.0, -978307200.0, false};
  metadata.catalogInfo = std::string("\0\x01\xFF statx", 9);
  metadata.bsdStatus = std::string(144, '\x7F');
  metadata.extendedAttributes = {{"user.a", std::string("\0bin", 4)}, {"user.b", ""}};
  metadata.finderComment = "a <comment> & more";
  // XML dates hold whole seconds; the raw records keep the nanoseconds.
  metadata.acl = std::string("user::rwx\ngroup::r-x\nother::---\n\0", 33);
  const std::string xml = metadataPlistXML(metadata);
  EXPECT_NE(xml.find("<key>VTFM_ExtendedAttribs</key>"), std::string::npos);
  auto parsed = parseMetadataPlist(xml);
  ASSERT_TRUE(parsed.ok()) << parsed.error().describe();
  EXPECT_EQ(*parsed, metadata);

  const auto empty = parseMetadataPlist(metadataPlistXML(ItemMetadata{}));
  ASSERT_TRUE(empty.ok());
  EXPECT_EQ(*empty, ItemMetadata{});
}

TEST(MetadataPlist, HostilePlistsAreErrors) {
  std::string deep = "<plist><dict>";
  for (int i = 0; i < 20; ++i) deep += "<key>k</key><dict>";
  struct Case {
    const char* name;
    std::string xml;
  } cases[] = {
      {"not a plist", "garbage"},
      {"a binary plist", "bplist00\x01\x02"},
      {"an array root", "<plist version=\"1.0\"><array/></plist>"},
      {"nested deeper than 16", deep},
      {"an attribute that is not data",
       "<plist><dict><key>VTFM_ExtendedAttribs</key><dict><key>user.x</key><string>s</string></dict></dict></plist>"},
      {"an attribute with an empty name",
       "<plist><dict><key>VTFM_ExtendedAttribs</key><dict><key></key><data></data></dict></dict></plist>"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto parsed = parseMetadataPlist(c.xml);
    ASSERT_FALSE(parsed.ok());
    EXPECT_NE(parsed.error().message.find("metadata.plist"), std::string::npos);
  }
  auto wrongTypes = parseMetadataPlist(
      "<plist><dict><key>NSFilePosixPermissions</key><string>777</string><key>VTFM_ACL</key><integer>1</integer>"
      "</dict></plist>");
  ASSERT_TRUE(wrongTypes.ok()) << "values of the wrong type are ignored";
  EXPECT_EQ(*wrongTypes, ItemMetadata{});
}

}  // namespace
}  // namespace halyard::fileservices

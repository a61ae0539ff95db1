// The archive of a volume record: big-endian binary fields, the cut-off of
// the ordered keys, the format rule of the file manager, the defaults of
// absent keys, and copying.

#include <gtest/gtest.h>

#include <cstring>

#include "foundation/archive_test_support.h"
#include "foundation/archiver.h"
#include "foundation/unarchiver.h"
#include "volume_test_support.h"
#include "volumes/volume_byte_order.h"
#include "volumes/volume_mounts.h"

namespace halyard {
namespace {

using testing::dict;
using testing::diskVolume;
using testing::joined;
using testing::kNSObjectRootClass;
using testing::kRootObjectOpening;
using testing::managerFor;
using namespace std::literals;

struct Fixture {
  std::shared_ptr<FakeVolumeQueries> machine = std::make_shared<FakeVolumeQueries>();
  std::shared_ptr<fileservices::VTFileManager> fm = managerFor(machine);
  int managersMade = 0;
  ClassRegistry registry = ClassRegistry::foundation();

  Fixture() {
    machine->volumes = {diskVolume("/media/u/Backup", 2)};
    registerVolumeClasses(registry, [this] {
      ++managersMade;
      return fm;
    });
  }
  std::shared_ptr<VolumeSpecifier> record() { return VolumeSpecifier::volumeSpecifierWithPath("/media/u/Backup", fm); }
  std::shared_ptr<VolumeSpecifier> roundTrip(const ObjectRef& object) {
    auto decoded = Unarchiver::unarchiveRootObject(Archiver::archivedData(object), registry);
    EXPECT_TRUE(decoded.ok()) << (decoded.ok() ? "" : decoded.error().describe());
    return decoded.ok() ? objectAs<VolumeSpecifier>(*decoded) : nullptr;
  }
  std::shared_ptr<VolumeSpecifier> fromDictionary(const std::shared_ptr<Dictionary>& archive) {
    auto record = std::make_shared<VolumeSpecifier>(fm);
    record->applyArchiveDictionary(*archive);
    return record;
  }
};

std::vector<std::string> keysOf(const Dictionary& archive) {
  std::vector<std::string> keys;
  for (const auto& [key, value] : archive.entries) keys.push_back(objectAs<String>(key)->text);
  return keys;
}

// An 'afpm' block as a big-endian machine keeps it: header, then ten words.
std::string bigEndianAppleShareBlock() {
  std::string block = {0x00, 0x28, 'a', 'f', 'p', 'm', 0x00, 0x01, 0x7F, 0x7F};
  for (char word = 1; word <= 10; ++word) block += std::string{0x00, word};
  block += "zone";
  return block;
}

TEST(VolumeArchive, BinaryFieldsAreBigEndian) {
  const UTCDateTime date{0x0102, 0x03040506, 0x0708};
  EXPECT_EQ(creationDateToBigEndian(date), std::string("\x01\x02\x03\x04\x05\x06\x07\x08", 8));
  EXPECT_FALSE(creationDateFromBigEndian("short"));
  const std::string host = mountInfoToHost(bigEndianAppleShareBlock());
  std::uint16_t word;
  std::memcpy(&word, host.data() + 28, 2);
  EXPECT_EQ(word, 10);
  EXPECT_EQ(host.substr(8, 2), "\x7F\x7F") << "bytes outside the converted fields are kept";
  // Another media type converts only its header.
  std::string nfs = bigEndianAppleShareBlock();
  nfs.replace(2, 4, "nfs ");
  EXPECT_EQ(mountInfoToHost(nfs).substr(10), nfs.substr(10));
  EXPECT_EQ(mountInfoToHost("\x01"), "\x01") << "a block too short keeps its bytes";
}

TEST(VolumeArchive, ARecordFromTheOtherByteOrderKeepsDateMediaAndWords) {
  Fixture f;
  auto archive = f.record()->archiveDictionary();
  archive->set("vs02", Data::make(bigEndianAppleShareBlock(), true));
  archive->set("vs08", Data::make(std::string("\x00\x00\xE1\x2B\x3C\x4D\x80\x00", 8)));
  archive->set("vs15", Number::fromInt32(static_cast<std::int32_t>(fourCharCode("afpm"))));
  auto restored = f.roundTrip(f.fromDictionary(archive));
  ASSERT_TRUE(restored);
  EXPECT_EQ(restored->creationDate(), (UTCDateTime{0, 0xE12B3C4D, 0x8000}));
  EXPECT_EQ(restored->serverMedia(), fourCharCode("afpm"));
  EXPECT_EQ(mountInfoMedia(*restored->serverMountInfo()), fourCharCode("afpm"));
  const auto written = restored->archiveDictionary();
  EXPECT_EQ(objectAs<Data>(written->get("vs02"))->bytes, bigEndianAppleShareBlock());
  EXPECT_EQ(objectAs<Data>(written->get("vs08"))->bytes, std::string("\x00\x00\xE1\x2B\x3C\x4D\x80\x00", 8));
}

TEST(VolumeArchive, RoundTripKeepsTheIdentity) {
  Fixture f;
  auto original = f.record();
  auto restored = f.roundTrip(original);
  ASSERT_TRUE(restored);
  EXPECT_EQ(restored->volumePath(), "/media/u/Backup");
  EXPECT_EQ(restored->deviceGUID(), "1111-2222");
  EXPECT_TRUE(restored->strictVolumeIdentification());
  EXPECT_TRUE(restored->isEqual(original));
  EXPECT_TRUE(original->isEqual(restored));
  EXPECT_EQ(keysOf(*original->archiveDictionary()),
            (std::vector<std::string>{"vs00", "vs01", "vs03", "vs04", "vs05", "vs06", "vs18", "vs23",
                                      "vs19", "vs20", "vs22", "vs07", "vs08", "vs09", "vs10", "vs11",
                                      "vs16", "vs21", "vs24", "vs25", "vs26", "vs27", "vs02", "vs15"}));
}

// Each value of a record's archive, archived alone, as the format's writers
// write it: the root object's opening, the class chain, then the type code
// and value. S = string table entry, O = object table entry.

// NSNumber (O1, S1) → NSValue (O2, S2) → NSObject (O3, S3); group "*" (S4):
// new C string O4 with new body S5 (the code); group S5 (0x97): the value.
std::string numberAlone(char code, std::string_view value) {
  return joined({kRootObjectOpening, "\x84\x84\x08NSNumber\x00"sv, "\x84\x84\x07NSValue\x00"sv, kNSObjectRootClass,
                 "\x84\x01*\x84\x84\x01"sv, std::string(1, code), "\x97"sv, value, "\x86"sv});
}

// NSString version 1 → NSObject; group "+": byte count, bytes.
std::string stringAlone(std::string_view text) {
  return joined({kRootObjectOpening, "\x84\x84\x08NSString\x01"sv, kNSObjectRootClass, "\x84\x01+"sv,
                 std::string(1, static_cast<char>(text.size())), text, "\x86"sv});
}

// NSMutableData → NSData → NSObject, or NSData → NSObject; group "i": the
// count; group "[Nc]": the bytes.
std::string dataAlone(bool mutableData, std::string_view bytes) {
  const std::string code = "[" + std::to_string(bytes.size()) + "c]";
  return joined({kRootObjectOpening, mutableData ? "\x84\x84\x0dNSMutableData\x00"sv : ""sv, "\x84\x84\x06NSData\x00"sv,
                 kNSObjectRootClass, "\x84\x01i"sv, std::string(1, static_cast<char>(bytes.size())), "\x84"sv,
                 std::string(1, static_cast<char>(code.size())), code, bytes, "\x86"sv});
}

TEST(VolumeArchive, ValuesHaveTheClassesAndTypeCodesOfTheFormatsWriters) {
  Fixture f;
  f.machine->volumes[0].stats.type = testing::kHfsPlus;
  const auto archive = f.record()->archiveDictionary();
  const std::pair<const char*, std::string> kFields[] = {
      {"vs00", stringAlone("Backup")},                                   // name
      {"vs01", stringAlone("/media/u/Backup")},                          // root path
      {"vs02", dataAlone(true, "")},                                     // mount info: none
      {"vs03", numberAlone('c', "\x00"sv)},                              // on a server: NO
      {"vs04", numberAlone('c', "\x00"sv)},                              // removable: NO
      {"vs05", numberAlone('c', "\x01")},                                // large files
      {"vs06", numberAlone('c', "\x01")},                                // symbolic links
      {"vs07", numberAlone('i', "\x81\xff\x00"sv)},                      // name length limit 255 (int16)
      {"vs08", dataAlone(false, "\x00\x00\xe1\x79\xa1\x80\x00\x00"sv)},  // 2023-11-14 22:13:20
      {"vs09", numberAlone('i', "\x81\x00\x10"sv)},                      // block size 4096 (int16)
      {"vs10", numberAlone('i', "\x00"sv)},                              // file-system id 0
      {"vs11", numberAlone('i', "\x81\x2b\x48")},                        // signature 'H+' (int16)
      {"vs15", numberAlone('i', "\x00"sv)},                              // media: none
      {"vs16", numberAlone('i', "\x82\x00\x00\x40\x00"sv)},              // buffer 4194304 (int32)
      {"vs18", numberAlone('c', "\x01")},                                // case-sensitive
      {"vs19", numberAlone('c', "\x00"sv)},                              // ignores ownership: NO
      {"vs20", numberAlone('c', "\x00"sv)},                              // read-only: NO
      {"vs21", stringAlone("ext4")},                                     // format
      {"vs22", numberAlone('c', "\x01")},                                // strict identification
      {"vs23", numberAlone('c', "\x01")},                                // ACLs
      {"vs24", numberAlone('c', "\x01")},                                // device information valid
      {"vs25", stringAlone("Disk")},                                     // model
      {"vs26", stringAlone("usb")},                                      // protocol
      {"vs27", stringAlone("1111-2222")},                                // UUID
  };
  EXPECT_EQ(archive->entries.size(), std::size(kFields));
  for (const auto& [key, bytes] : kFields) {
    SCOPED_TRACE(key);
    EXPECT_EQ(Archiver::archivedData(archive->get(key)), bytes);
  }
}

TEST(VolumeArchive, FileManagerIsWrittenFromFormat1024) {
  Fixture f;
  auto record = f.record();
  record->setFileFormatToSave(1023);
  EXPECT_FALSE(record->archiveDictionary()->get("vs17"));
  ASSERT_TRUE(f.roundTrip(record));
  EXPECT_EQ(f.managersMade, 1) << "read back with a new local manager";
  record->setFileFormatToSave(1024);
  auto written = record->archiveDictionary();
  ASSERT_TRUE(written->get("vs17"));
  EXPECT_EQ(written->get("vs17")->archiveClassChain().front().name, "VTFileManager");
  EXPECT_TRUE(f.roundTrip(record));
}

TEST(VolumeArchive, OrderedKeysStopAtTheFirstMissingValue) {
  Fixture f;
  VolumeSpecifier empty(f.fm);
  EXPECT_EQ(keysOf(*empty.archiveDictionary()), (std::vector<std::string>{"vs02", "vs15"}));
  auto archive = Dictionary::make(true);
  archive->set("vs00", String::make("Backup"));
  EXPECT_EQ(keysOf(*f.fromDictionary(archive)->archiveDictionary()),
            (std::vector<std::string>{"vs00", "vs02", "vs15"}));
}

struct DefaultCase {
  const char* name;
  std::vector<std::pair<std::string, ObjectRef>> entries;  // beside a name and a root path
  std::function<void(VolumeSpecifier&)> check;
};

TEST(VolumeArchive, AbsentKeysTakeTheirDefaults) {
  const auto server = Number::fromBool(true);
  const DefaultCase cases[] = {
      {"no vs22, not a server, any signature: strict",
       {{"vs11", Number::fromInt32(0x4D44)}},
       [](VolumeSpecifier& r) { EXPECT_TRUE(r.strictVolumeIdentification()); }},
      {"no vs22, a server: not strict",
       {{"vs03", server}},
       [](VolumeSpecifier& r) { EXPECT_FALSE(r.strictVolumeIdentification()); }},
      {"no vs22, a server with signature H+: strict",
       {{"vs03", server}, {"vs11", Number::fromInt32(0x482B)}},
       [](VolumeSpecifier& r) { EXPECT_TRUE(r.strictVolumeIdentification()); }},
      {"no vs16: 4 MiB", {}, [](VolumeSpecifier& r) { EXPECT_EQ(r.bufferSize(), 4194304u); }},
      {"empty vs21: the manager is asked again",
       {{"vs21", String::make("")}},
       [](VolumeSpecifier& r) { EXPECT_EQ(r.volumeFormat(), "ext4"); }},
      {"no vs24: device information from the manager",
       {},
       [](VolumeSpecifier& r) { EXPECT_TRUE(r.deviceInfoValid() && r.deviceModel() == "Disk"); }},
      {"vs24 false: no device information",
       {{"vs24", Number::fromBool(false)}, {"vs25", String::make("Disk")}},
       [](VolumeSpecifier& r) { EXPECT_EQ(r.deviceModel(), ""); }},
      {"a number as a string",
       {{"vs09", String::make("512")}},
       [](VolumeSpecifier& r) { EXPECT_EQ(r.blockSize(), 512u); }},
      {"a wrong class is ignored",
       {{"vs09", Data::make("x")}},
       [](VolumeSpecifier& r) { EXPECT_EQ(r.blockSize(), 0u); }},
  };
  for (const DefaultCase& c : cases) {
    SCOPED_TRACE(c.name);
    Fixture f;
    auto archive = dict({{"vs00", String::make("Backup")}, {"vs01", String::make("/media/u/Backup")}}, true);
    for (const auto& [key, value] : c.entries) archive->set(key, value);
    c.check(*f.fromDictionary(archive));
  }
}

TEST(VolumeArchive, WithoutVs18TheFirstCaseQuestionLooksAtTheVolume) {
  Fixture f;
  f.machine->files = {{"/media/u/Backup/Readme", 1}, {"/media/u/Backup/rEADME", 1}};
  auto archive = Dictionary::make(true);
  archive->set("vs01", String::make("/media/u/Backup"));
  auto stored = Dictionary::make(true);
  *stored = *archive;
  stored->set("vs18", Number::fromBool(true));
  EXPECT_TRUE(f.fromDictionary(stored)->isCaseSensitive()) << "the stored answer, no test";
  EXPECT_FALSE(f.fromDictionary(archive)->isCaseSensitive()) << "the volume is examined";
}

TEST(VolumeArchive, CopySharesTheManagerAndTakesThePanelFromTheOriginal) {
  Fixture f;
  auto original = f.record();
  auto window = std::make_shared<int>(1);
  original->setInsertVolumePanel(window, window);
  auto copy = original->copyWithZone();
  EXPECT_EQ(copy->fileManager(), original->fileManager());
  EXPECT_EQ(copy->insertVolumeWindow(), window);
  EXPECT_FALSE(original->insertVolumeWindow());
  EXPECT_FALSE(original->insertPromptField());
  EXPECT_TRUE(copy->isEqual(original));
}

TEST(VolumeArchive, NotADictionaryIsAnError) {
  Fixture f;
  class Wrapper final : public Object {
   public:
    ClassChain archiveClassChain() const override { return rootedChain({{"VolumeSpecifier", 0}}); }
    void encodeWithCoder(Archiver& coder) const override { coder.encodeObject(String::make("x")); }
    void writeJson(JsonWriter&) const override {}
  };
  auto decoded = Unarchiver::unarchiveRootObject(Archiver::archivedData(std::make_shared<Wrapper>()), f.registry);
  EXPECT_FALSE(decoded.ok());
}

}  // namespace
}  // namespace halyard

// The property-list readers against libplist (the oracle) on trusted files,
// and on their own against hostile ones.

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "base/file_bytes.h"
#include "base/plist_io.h"
#include "base/plist_readers.h"
#include "synth/bundle_builder.h"
#include "synth/hostile_plists.h"
#include "synth/sample_bundles.h"
#include "tests/base/libplist_oracle.h"
#include "tests/base/plist_corpus.h"
#include "tests/base/value_compare.h"
#include "tests/base/value_literals.h"

namespace velmar {
namespace {

// Same kinds, same key order, same contents; dates to the microsecond,
// which is what libplist keeps of them.
::testing::AssertionResult identical(const Value& a, const Value& b) {
  return testing::identicalValues(a, b, testing::Numbers::AsLibplistKeeps);
}

void expectSameAsOracle(const std::string& bytes, const std::string& what) {
  Value oracle = testing::parseWithLibplist(bytes);
  ASSERT_FALSE(oracle.isNull()) << what << ": libplist cannot read it";
  EXPECT_TRUE(identical(parsePropertyList(bytes), oracle)) << what;
}

using testing::xmlPlist;

TEST(PlistReaderTest, SamplePropertyListsReadAsLibplistReadsThem) {
  std::filesystem::path sample = std::filesystem::path(VELMAR_SOURCE_DIR) / "sample";
  int files = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(sample)) {
    if (entry.path().extension() != ".plist") continue;
    std::string bytes;
    ASSERT_EQ(readFileBytes(entry.path(), &bytes), 0);
    expectSameAsOracle(bytes, entry.path());
    expectSameAsOracle(toBinary(parsePropertyList(bytes)), entry.path().string() + " as binary");
    ++files;
  }
  EXPECT_GE(files, 5);
}

TEST(PlistReaderTest, SynthesizedBundlesReadAsLibplistReadsThem) {
  for (const auto& bundle : {synth::sampleBundle(), synth::largeBundle(synth::kLargeBundleProducts)}) {
    for (const synth::BundleEntry& entry : synth::layoutBundle(bundle)) {
      if (!entry.path.ends_with(".plist") || entry.kind != synth::BundleEntry::Kind::File) continue;
      expectSameAsOracle(entry.contents, entry.path);
      if (entry.contents.size() > 1000000) {
        // The large manifest once more in binary, where writers share
        // every repeated string.
        expectSameAsOracle(toBinary(parsePropertyList(entry.contents)), entry.path + " as binary");
      }
    }
  }
}

TEST(PlistReaderTest, OddButValidXmlReadsAsLibplistReadsIt) {
  for (const std::string& body : testing::oddButValidXmlBodies()) {
    expectSameAsOracle(xmlPlist(body), body);
    expectSameAsOracle(body, "without prolog or <plist>: " + body);
  }
  // libplist refuses an empty key written as <key/> though it reads
  // <key></key>; both are the empty key.
  EXPECT_EQ(parsePropertyList(xmlPlist("<dict><key/><string>x</string></dict>")), testing::dictOf({{"", "x"}}));
  // Many keys: past any index a dictionary keeps.
  std::string many = "<dict>";
  for (int i = 0; i < 300; ++i)
    many += "<key>k" + std::to_string(299 - i) + "</key><integer>" + std::to_string(i) + "</integer>";
  expectSameAsOracle(xmlPlist(many + "</dict>"), "300 keys");
}

TEST(PlistReaderTest, OddButValidBinaryReadsAsLibplistReadsIt) {
  for (const Value& v : testing::oddButValidBinaryValues())
    expectSameAsOracle(toBinary(v), v.description().substr(0, 60));
  // libplist reads a date before 2001 with a fraction of a second wrongly
  // (-1.5 as -0.5); the reader keeps the written value.
  EXPECT_EQ(parsePropertyList(toBinary(Value(Date{-1.5}))).dateValue().seconds, -1.5);
}

TEST(PlistReaderTest, XmlWithAByteOrderMarkReads) {
  std::string bytes = "\xEF\xBB\xBF" + xmlPlist("<dict><key>k</key><string>v</string></dict>");
  EXPECT_EQ(parsePropertyList(bytes), testing::dictOf({{"k", "v"}}));
}

TEST(PlistReaderTest, MalformedXmlIsRefused) {
  for (const char* bad : {
           "<plist><dict><key>a</key>",                                   // unclosed
           "<plist><dict><string>no key</string></dict></plist>",         // value without key
           "<plist><dict><key>a</key><integer>1</integer></array></plist>",  // mismatched tag
           "<plist><unknown/></plist>",                                   // not a plist type
           "<plist></plist>",                                             // nothing inside
           "<plist><string>&bogus;</string></plist>",                      // unknown entity
           "<plist><string>&#0;</string></plist>",                         // NUL reference
           "<plist><string>a &amp b</string></plist>",                     // unterminated reference
           "<plist><data>!!!!</data></plist>",                            // not base64
           "<plist><string>a<b/>c</string></plist>",                      // element in a scalar
           "<plist><array>text<string/></array></plist>",                 // text in a container
           "just text",
           "\xEF\xBB\xBF",
       }) {
    EXPECT_TRUE(parsePropertyList(bad).isNull()) << bad;
  }
}

TEST(PlistReaderTest, DocumentTypeDeclarationsAreNeverInterpreted) {
  // Entities the internal subset defines stay unknown: no file is opened
  // and nothing expands.
  const std::string external = "<!DOCTYPE plist [<!ENTITY x SYSTEM \"file:///etc/passwd\">]>"
                               "<plist><string>&x;</string></plist>";
  std::string laughs = "<!DOCTYPE plist [<!ENTITY a \"aaaaaaaaaa\">";
  for (char c = 'b'; c <= 'j'; ++c)
    laughs += std::string("<!ENTITY ") + c + " \"" + std::string(10, '&') + "\">";
  laughs += "]><plist><string>&j;</string></plist>";
  EXPECT_TRUE(parsePropertyList(external).isNull());
  EXPECT_TRUE(parsePropertyList(laughs).isNull());
  // A declaration that defines nothing used is skipped.
  EXPECT_EQ(parsePropertyList("<!DOCTYPE plist [<!ENTITY y \"z\">]><plist><string>s</string></plist>"),
            Value("s"));
}

TEST(PlistReaderTest, XmlNestingIsRefusedPastTheLimitWithoutExhaustingTheStack) {
  EXPECT_FALSE(parsePropertyList(synth::nestedXmlPlist(kMaxPropertyListDepth + 1)).isNull());
  EXPECT_TRUE(parsePropertyList(synth::nestedXmlPlist(kMaxPropertyListDepth + 2)).isNull());
  EXPECT_TRUE(parsePropertyList(synth::nestedXmlPlist(200000)).isNull());
}

TEST(PlistReaderTest, BinaryDictionaryKeyHoldingNulIsRefused) {
  // { "<U+0000>": true }, the key a UTF-16 string of one NUL code unit.
  std::string bytes = synth::nulKeyBinaryPlist();
  EXPECT_TRUE(parsePropertyList(bytes).isNull());
  // The same with an ASCII key "a" reads.
  EXPECT_EQ(parsePropertyList(synth::binaryPlist({"\xD1\x01\x02", "\x51" "a", "\x09"}, 1)),
            testing::dictOf({{"a", true}}));
}

TEST(PlistReaderTest, BinaryNestingIsRefusedPastTheLimitWithoutExhaustingTheStack) {
  EXPECT_FALSE(parsePropertyList(synth::nestedBinaryPlist(kMaxPropertyListDepth + 1)).isNull());
  EXPECT_TRUE(parsePropertyList(synth::nestedBinaryPlist(kMaxPropertyListDepth + 2)).isNull());
  EXPECT_TRUE(parsePropertyList(synth::nestedBinaryPlist(100000)).isNull());
}

TEST(PlistReaderTest, SharedReferencesStaySharedAndTheirExpansionIsBounded) {
  std::string bomb = synth::sharedReferencesPlist(10, 9);
  EXPECT_LT(bomb.size(), 600u);
  EXPECT_TRUE(parsePropertyList(bomb).isNull());

  // A little sharing reads, as libplist reads it, and costs one object.
  std::string modest = synth::sharedReferencesPlist(10, 2);
  Value v = parsePropertyList(modest);
  expectSameAsOracle(modest, "10 x 10 shared references");
  EXPECT_TRUE(v.arr()[0].sharesStorageWith(v.arr()[9]));
}

TEST(PlistReaderTest, BinaryCyclesAndBadReferencesAreRefused) {
  EXPECT_TRUE(parsePropertyList(synth::binaryPlist({synth::binaryArrayObject({0}, 1)}, 1)).isNull());          // self
  EXPECT_TRUE(parsePropertyList(synth::binaryPlist({synth::binaryArrayObject({1}, 1), synth::binaryArrayObject({0}, 1)}, 1)).isNull());
  EXPECT_TRUE(parsePropertyList(synth::binaryPlist({synth::binaryArrayObject({7}, 1)}, 1)).isNull());          // past the end
  EXPECT_TRUE(parsePropertyList(synth::binaryPlist({"\x09"}, 1, 3)).isNull());                     // bad root
  EXPECT_TRUE(parsePropertyList(synth::binaryPlist({"\x5F\x10\xFF" "abc"}, 1)).isNull());         // long length
  EXPECT_TRUE(parsePropertyList(synth::binaryPlist({"\x00"}, 1)).isNull());                        // null object
  EXPECT_TRUE(parsePropertyList("bplist00garbage").isNull());
}

// The fuzzing seeds: files from another writer read as libplist reads them,
// the hostile ones to null.
TEST(PlistReaderTest, FuzzSeedsReadAsExpected) {
  const std::filesystem::path seeds = std::filesystem::path(VELMAR_SOURCE_DIR) / "fuzz/corpus/plist";
  auto read = [&](const char* name) {
    std::string bytes;
    EXPECT_EQ(readFileBytes(seeds / name, &bytes), 0) << name;
    return bytes;
  };
  for (const char* valid : {"manifest.xml", "manifest.bplist", "entities.xml"})
    expectSameAsOracle(read(valid), valid);
  EXPECT_TRUE(identical(parsePropertyList(read("manifest.xml")), parsePropertyList(read("manifest.bplist"))));
  EXPECT_EQ(parsePropertyList(read("bom.xml")), testing::dictOf({{"k", "v"}}));
  for (const char* hostile : {"nul-key.bplist", "shared-bomb.bplist", "cycle.bplist", "deep.bplist", "deep.xml",
                              "doctype-entity.xml"})
    EXPECT_TRUE(parsePropertyList(read(hostile)).isNull()) << hostile;
}

// Every single-byte change and every truncation of a valid file reads to
// something or to null, never crashes.
TEST(PlistReaderTest, DamagedFilesNeverCrash) {
  Value sample = testing::dictOf({{"a", testing::arrayOf({1, "two", 3.5, true})},
                                  {"d", Value::makeData("\x01\x02\x03")}, {"t", Value(Date{1000})},
                                  {"n", testing::dictOf({{"k", "v"}, {"u", "caf\xC3\xA9"}})}});
  for (const std::string& good : {toBinary(sample), toXml(sample)}) {
    for (size_t i = 0; i < good.size(); ++i) {
      for (unsigned char flip : {0x01, 0x80, 0xFF}) {
        std::string bad = good;
        bad[i] = static_cast<char>(bad[i] ^ flip);
        parsePropertyList(bad);
      }
      parsePropertyList(std::string_view(good).substr(0, i));
    }
  }
}

}  // namespace
}  // namespace velmar

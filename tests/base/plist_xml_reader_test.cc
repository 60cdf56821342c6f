// The streaming XML reader on the markup it must get right by itself: the
// document's form (matching tags, what may stand outside the root), markup
// inside values, and how a read file's bytes are handled. Agreement with
// libplist on valid files is plist_reader_test.cc's job.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "base/plist_io.h"
#include "base/plist_readers.h"
#include "synth/temp_dir.h"
#include "tests/base/libplist_oracle.h"
#include "tests/base/value_literals.h"

namespace velmar {
namespace {

Value parse(const std::string& xml) { return parsePropertyList(xml); }

// A literal that holds NUL bytes, whole.
template <size_t N>
std::string bytes(const char (&literal)[N]) {
  return std::string(literal, N - 1);
}

TEST(PlistXmlReaderTest, TagsMustMatchAtEveryDepth) {
  EXPECT_FALSE(parse("<plist><array><dict><key>a</key><array/></dict></array></plist>").isNull());
  for (const char* bad : {
           "<plist><array><dict></array></dict></plist>",    // crossed
           "<plist><array></arrayx></plist>",                // longer name
           "<plist><array></arr></plist>",                   // shorter name
           "<plist><string>x</str></plist>",                 // scalar's end tag
           "<plist><dict><key>a</dict></key></dict></plist>",  // key's end tag
           "<plist><array></array></plist></plist>",         // one end tag too many
           "<plist><array></array>",                         // <plist> never closed
           "<plist><array><string>x</string>",               // cut short in a container
           "<plist><string>x",                               // cut short in a scalar
           "<plist><string>x</string",                       // cut short in an end tag
           "<plist version=\"1.0\"",                         // cut short in a start tag
           "<plist version=\"1.0><array/></plist>",          // unclosed attribute value
           "<plist version=1.0><array/></plist>",            // unquoted attribute value
           "<plist><string>a < b</string></plist>",          // bare "<"
           "<plist><string>a<!-- never closed</string></plist>",
           "<plist><string><![CDATA[never closed</string></plist>",
           "<plist><array/><?pi never closed</plist>",
           "<plist version=\"1<0\"><array/></plist>",        // "<" in an attribute value
           "<plist 1a=\"x\"><array/></plist>",               // not a name
           "<plist><array/><? no target ?></plist>",
           "<plist><1array/></plist>",
       }) {
    EXPECT_TRUE(parse(bad).isNull()) << bad;
  }
}

TEST(PlistXmlReaderTest, OnlyBlanksCommentsAndInstructionsStandOutsideTheRoot) {
  EXPECT_EQ(parse("\n<!-- before --><?pi x?>\n<plist><string>s</string></plist>\n<!-- after -->\n<?pi y?>\n"),
            Value("s"));
  // A NUL after the root ends the document, as it always has.
  EXPECT_EQ(parse(bytes("<plist><string>s</string></plist>\0junk")), Value("s"));
  for (const char* bad : {
           "text<plist><string>s</string></plist>",
           "<plist><string>s</string></plist>text",
           "<plist><string>s</string></plist><plist><string>t</string></plist>",  // two roots
           "<string>s</string><string>t</string>",
           "<plist><string>s</string></plist><![CDATA[x]]>",
           "<plist><string>s</string></plist><!DOCTYPE plist>",  // a declaration after the root
       }) {
    EXPECT_TRUE(parse(bad).isNull()) << bad;
  }
  EXPECT_TRUE(parse(bytes("<plist><string>s\0t</string></plist>")).isNull());  // NUL inside
}

TEST(PlistXmlReaderTest, MarkupInsideValues) {
  // Comments and instructions vanish from text and from containers; CDATA
  // is text in a scalar and refused in a container.
  EXPECT_EQ(parse("<plist><string>a<!-- c -->b<?pi?>c<![CDATA[&lt;]]>&lt;</string></plist>"), Value("abc&lt;<"));
  EXPECT_EQ(parse("<plist><integer>1<!-- c -->2</integer></plist>"), Value(12));
  EXPECT_EQ(parse("<plist><dict><!-- c --><key>k<!-- c --></key><?pi?><string>v</string></dict></plist>"),
            testing::dictOf({{"k", "v"}}));
  EXPECT_TRUE(parse("<plist><array><![CDATA[]]></array></plist>").isNull());
  EXPECT_TRUE(parse("<plist><dict><key>a</key><![CDATA[x]]></dict></plist>").isNull());
  // Attributes are read past, whatever their quotes hold.
  EXPECT_EQ(parse("<plist version='1.0' x = \"a>b/c\"><dict a=\"/>\"><key>k</key><true b='1'/></dict></plist>"),
            testing::dictOf({{"k", true}}));
  // A key left without a value when its dictionary ends is dropped.
  EXPECT_EQ(parse("<plist><dict><key>a</key><integer>1</integer><key>b</key></dict></plist>"),
            testing::dictOf({{"a", 1}}));
  // Elements after the root value inside <plist> are read past, unchecked
  // for meaning but not for form.
  EXPECT_EQ(parse("<plist><string>s</string><unknown><x/>t</unknown></plist>"), Value("s"));
  EXPECT_TRUE(parse("<plist><string>s</string><unknown><x></unknown></plist>").isNull());
}

TEST(PlistXmlReaderTest, DocumentTypeDeclarationsAreReadPastWhateverTheyHold) {
  const std::string tricky = "<!DOCTYPE plist SYSTEM \"a]>b\" [<!-- ]> --><?pi ]>?><!ELEMENT x 'y]>'>]>"
                             "<plist><string>s</string></plist>";
  EXPECT_EQ(parse(tricky), Value("s"));
  EXPECT_TRUE(parse("<!DOCTYPE plist [<!ENTITY x \"y\">").isNull());  // never closed
  EXPECT_TRUE(parse("<plist><!DOCTYPE plist><string>s</string></plist>").isNull());
  EXPECT_TRUE(parse("<!DOCTYPE plist PUBLIC \"a\"<\"b\"><plist><string>s</string></plist>").isNull());
  // A NUL cuts a document short wherever it stands before the root's end.
  EXPECT_TRUE(parse(bytes("<!DOCTYPE plist \"a\0b\"><plist><string>s</string></plist>")).isNull());
  EXPECT_TRUE(parse(bytes("<!-- \0 --><plist><string>s</string></plist>")).isNull());
}

TEST(PlistXmlReaderTest, DeepDictionariesAreRefusedPastTheLimit) {
  auto nested = [](int levels) {
    std::string s;
    for (int i = 0; i < levels; ++i) s += "<dict><key>k</key>";
    s += "<string>leaf</string>";
    for (int i = 0; i < levels; ++i) s += "</dict>";
    return s;
  };
  EXPECT_FALSE(parse(nested(kMaxPropertyListDepth)).isNull());
  EXPECT_TRUE(parse(nested(kMaxPropertyListDepth + 1)).isNull());
  // The same reader object's scratch space serves containers of any shape
  // one after another.
  EXPECT_EQ(parse("<array><dict><key>a</key><array><integer>1</integer></array></dict>"
                  "<array><dict/><dict><key>b</key><string>c</string></dict></array></array>"),
            testing::arrayOf({testing::dictOf({{"a", testing::arrayOf({1})}}),
                              testing::arrayOf({Value(Dict()), testing::dictOf({{"b", "c"}})})}));
}

TEST(PlistXmlReaderTest, ReadingAFileOrABufferGivesTheSameValue) {
  std::string xml = "\xEF\xBB\xBF<?xml version=\"1.0\"?><plist><dict><key>a&amp;b</key><data>AAEC</data>"
                    "<key>n</key><real>2.5</real></dict></plist>";
  Value expected = testing::dictOf({{"a&b", Value::makeData(std::string("\0\1\2", 3))}, {"n", 2.5}});
  synth::TempDir dir("velmar-xml-reader");
  std::string path = dir / "x.plist";
  std::ofstream(path, std::ios::binary) << xml;
  EXPECT_EQ(readPropertyListFile(path), expected);
  std::string buffer = xml;
  EXPECT_EQ(parseXmlPropertyListInPlace(buffer), expected);
  EXPECT_EQ(buffer, xml);  // read, never written to
}

}  // namespace
}  // namespace velmar

// The one rule for text in property lists: what XML cannot hold is refused
// by both readers however it is written (raw, as a character reference, as
// one-byte or UTF-16 binary text), and everything else reads.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/plist_io.h"
#include "base/plist_text.h"
#include "synth/hostile_plists.h"
#include "tests/base/value_literals.h"

namespace velmar {
namespace {

using testing::dictOf;

std::string xmlString(const std::string& text) { return "<plist><string>" + text + "</string></plist>"; }
std::string xmlKey(const std::string& text) { return "<plist><dict><key>" + text + "</key><true/></dict></plist>"; }

// A binary list of one dictionary { key: value } from the two objects'
// bytes.
std::string binaryDict(const std::string& key, const std::string& value) {
  return synth::binaryPlist({"\xD1\x01\x02", key, value}, 1);
}

// One-byte text (marker 0x5) and UTF-16 text (marker 0x6) of fewer than 15
// bytes or units.
std::string asciiObject(const std::string& bytes) { return static_cast<char>(0x50 | bytes.size()) + bytes; }
std::string utf16Object(const std::vector<uint16_t>& units) {
  std::string out(1, static_cast<char>(0x60 | units.size()));
  for (uint16_t u : units) {
    out += static_cast<char>(u >> 8);
    out += static_cast<char>(u & 0xFF);
  }
  return out;
}

TEST(PlistTextTest, XmlRefusesWhatXmlCannotHoldWhereverItStands) {
  const std::string badRaw[] = {std::string("a\x01"), "\x08", "\x1F", "\x7F\x0B", "\x80", "\xC3", "\xC3(",
                                "\xE2\x82", "\xED\xA0\x80", "\xEF\xBF\xBE", "\xEF\xBF\xBF", "\xF4\x90\x80\x80",
                                "\xC0\xAF", "\xFF"};
  for (const std::string& bad : badRaw) {
    EXPECT_TRUE(parsePropertyList(xmlString(bad)).isNull()) << bad;
    EXPECT_TRUE(parsePropertyList(xmlKey(bad)).isNull()) << bad;
    EXPECT_TRUE(parsePropertyList(xmlString("<![CDATA[" + bad + "]]>")).isNull()) << bad;
  }
  for (const char* reference : {"&#1;", "&#x1;", "&#0;", "&#x8;", "&#31;", "&#xFFFE;", "&#xFFFF;", "&#xD800;",
                                "&#xDFFF;", "&#x110000;"}) {
    EXPECT_TRUE(parsePropertyList(xmlString(reference)).isNull()) << reference;
    EXPECT_TRUE(parsePropertyList(xmlKey(reference)).isNull()) << reference;
  }
  // The three blanks, DEL and every other character read, raw or referred to.
  EXPECT_EQ(parsePropertyList(xmlString("\t\n\r\x7F&#9;&#10;&#13;&#x7F;&#xFFFD;&#x10FFFF;\xEF\xBF\xBD")),
            Value("\t\n\r\x7F\t\n\r\x7F\xEF\xBF\xBD\xF4\x8F\xBF\xBF\xEF\xBF\xBD"));
  EXPECT_EQ(parsePropertyList(xmlKey("\xF0\x9F\x98\x80")), dictOf({{"\xF0\x9F\x98\x80", true}}));
}

TEST(PlistTextTest, BinaryRefusesWhatXmlCannotHoldInKeysAndValues) {
  const std::string key = asciiObject("k");
  ASSERT_EQ(parsePropertyList(binaryDict(key, asciiObject("v"))), dictOf({{"k", "v"}}));
  const std::vector<std::string> bad = {
      asciiObject(std::string("a\0b", 3)), asciiObject("\x01"), asciiObject("\x1F"),
      asciiObject("caf\xC3\xA9"),  // one-byte text holds bytes below 0x80 only, even when they are UTF-8
      asciiObject("\x80"), asciiObject("\xFF"),
      utf16Object({0x0000}), utf16Object({'a', 0x0007}), utf16Object({0xFFFE}), utf16Object({0xFFFF}),
      utf16Object({0xD800}), utf16Object({0xDC00, 'a'}), utf16Object({'a', 0xD83D}),
      utf16Object({0xD83D, 'a'}),
  };
  for (const std::string& object : bad) {
    EXPECT_TRUE(parsePropertyList(binaryDict(key, object)).isNull()) << object;
    EXPECT_TRUE(parsePropertyList(binaryDict(object, asciiObject("v"))).isNull()) << object;
  }
  EXPECT_EQ(parsePropertyList(binaryDict(key, utf16Object({'\t', 0xE9, 0xD83D, 0xDE00, 0xFFFD}))),
            dictOf({{"k", "\t\xC3\xA9\xF0\x9F\x98\x80\xEF\xBF\xBD"}}));
  EXPECT_EQ(parsePropertyList(binaryDict(key, asciiObject("\t\r\n\x7F"))), dictOf({{"k", "\t\r\n\x7F"}}));
}

TEST(PlistTextTest, EveryByteIsJudgedAtEveryPlaceInALongText) {
  for (int byte = 0; byte < 256; ++byte) {
    const bool allowed = byte >= 0x20 ? byte < 0x80 : byte == '\t' || byte == '\n' || byte == '\r';
    for (size_t at = 0; at < 20; ++at) {
      std::string text(20, 'a');
      text[at] = static_cast<char>(byte);
      EXPECT_EQ(isPropertyListText(text), allowed) << byte << " at " << at;
      EXPECT_EQ(propertyListText(text) == text, allowed) << byte << " at " << at;
    }
  }
}

}  // namespace
}  // namespace velmar

// Property lists that are odd but valid, shared by the reader and writer
// tests: bodies of XML documents and values for the binary form.

#ifndef VELMAR_TESTS_BASE_PLIST_CORPUS_H_
#define VELMAR_TESTS_BASE_PLIST_CORPUS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "base/value.h"
#include "tests/base/value_literals.h"

namespace velmar::testing {

// An XML document around `body`, as writers head it.
inline std::string xmlPlist(const std::string& body) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
         "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
         "<plist version=\"1.0\">\n" + body + "\n</plist>\n";
}

inline const std::vector<std::string>& oddButValidXmlBodies() {
  static const std::vector<std::string> bodies = {
      // Entities, character references, CDATA, raw UTF-8, carriage returns.
      "<dict><key>a&amp;b</key><string>&lt;&gt;&quot;&apos;&#65;&#x263A;&#x1F600;</string>"
      "<key>c</key><string><![CDATA[<not> &markup;]]> and &amp; more</string>"
      "<key>u</key><string>caf\xC3\xA9 \xE2\x82\xAC</string>"
      "<key>crlf</key><string>one\r\ntwo</string></dict>",
      // Empty and blank strings and keys.
      "<dict><key></key><string/><key>e</key><string></string><key>w</key><string>  \t </string>"
      "<key> padded </key><string> x </string></dict>",
      // Integers: signs, base prefixes, the edges of 64 bits, blanks.
      "<array><integer>-5</integer><integer>+7</integer><integer>0x1F</integer><integer>017</integer>"
      "<integer>18446744073709551615</integer><integer>9223372036854775808</integer>"
      "<integer>-9223372036854775808</integer><integer> 42 </integer><integer/><integer>0</integer></array>",
      // Reals.
      "<array><real>1.5</real><real>-0.0</real><real>1e308</real><real>3</real><real>.5</real>"
      "<real>-2.25e-3</real><real/></array>",
      // Dates.
      "<array><date>2001-01-01T00:00:00Z</date><date>1970-01-01T00:00:00Z</date>"
      "<date>2038-01-19T03:14:08Z</date><date>2024-02-29T23:59:59Z</date></array>",
      // Data: line breaks, tabs, padding, empty.
      "<dict><key>d1</key><data>\n\tAAEC\n\tAwQF\n\tBg==\n\t</data><key>d2</key><data>QQ==</data>"
      "<key>d3</key><data>QUI=</data><key>d4</key><data/><key>d5</key><data></data>"
      "<key>d6</key><data>SGVsbG8gd29ybGQ=</data></dict>",
      // Booleans written both ways, empty containers, nesting.
      "<dict><key>t</key><true/><key>f</key><false/><key>t2</key><true></true>"
      "<key>ed</key><dict/><key>ea</key><array/><key>ed2</key><dict></dict>"
      "<key>n</key><array><array><dict><key>x</key><array><integer>1</integer></array></dict></array></array></dict>",
      // A later duplicate key replaces the value in place; comments anywhere
      // between elements.
      "<dict><key>a</key><integer>1</integer><!-- note --><key>b</key><integer>2</integer>"
      "<key>a</key><string>again</string></dict>",
      // A key outside a dictionary is a string.
      "<array><key>k</key><string>s</string></array>",
      // Scalars at the root.
      "<string>only</string>",
      "<integer>12</integer>",
      "<true/>",
  };
  return bodies;
}

// Values whose binary form exercises every width and encoding: integers of
// each size, reals that a float holds and that it does not, UTF-16 text,
// long strings and data, and objects shared by several containers.
inline std::vector<Value> oddButValidBinaryValues() {
  Value odd = dictOf({{"neg", -1}, {"big", Value(static_cast<long long>(1) << 40)},
                      {"max", Value(INT64_MAX)}, {"min", Value(INT64_MIN)},
                      {"small", 200}, {"mid", 70000}, {"r", 0.1}, {"nan-ish", 1e-300},
                      {"utf16", "caf\xC3\xA9 \xF0\x9F\x98\x80"}, {"empty", ""},
                      {"d", Value(Date{600000000.25})}, {"data", Value::makeData(std::string(300, 'x'))},
                      {"long", std::string(5000, 'y')}});
  Value shared = arrayOf({odd, odd, arrayOf({odd, "x", "x"})});
  return {odd, shared};
}

}  // namespace velmar::testing

#endif  // VELMAR_TESTS_BASE_PLIST_CORPUS_H_

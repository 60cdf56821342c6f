#include "synth/hostile_plists.h"

namespace velmar::synth {

namespace {

void appendBigEndian(std::string& out, uint64_t v, int width) {
  for (int i = width - 1; i >= 0; --i) out += static_cast<char>((v >> (8 * i)) & 0xFF);
}

}  // namespace

std::string binaryPlist(const std::vector<std::string>& objects, int refWidth, uint64_t root) {
  std::string out = "bplist00";
  std::vector<uint64_t> offsets;
  for (const std::string& o : objects) {
    offsets.push_back(out.size());
    out += o;
  }
  const int offsetWidth = 8;
  const uint64_t tableOffset = out.size();
  for (uint64_t o : offsets) appendBigEndian(out, o, offsetWidth);
  out += std::string(6, '\0');
  out += static_cast<char>(offsetWidth);
  out += static_cast<char>(refWidth);
  appendBigEndian(out, objects.size(), 8);
  appendBigEndian(out, root, 8);
  appendBigEndian(out, tableOffset, 8);
  return out;
}

std::string binaryRef(uint64_t index, int width) {
  std::string out;
  appendBigEndian(out, index, width);
  return out;
}

std::string binaryArrayObject(const std::vector<uint64_t>& refs, int width) {
  std::string out(1, static_cast<char>(0xA0 | refs.size()));
  for (uint64_t r : refs) out += binaryRef(r, width);
  return out;
}

std::string nestedXmlPlist(int levels) {
  std::string s = "<plist>";
  s.reserve(static_cast<size_t>(levels) * 15 + 16);
  for (int i = 0; i < levels; ++i) s += "<array>";
  for (int i = 0; i < levels; ++i) s += "</array>";
  return s + "</plist>";
}

std::string nestedBinaryPlist(int levels) {
  std::vector<std::string> objects;
  for (int i = 0; i + 1 < levels; ++i)
    objects.push_back(binaryArrayObject({static_cast<uint64_t>(i + 1)}, 4));
  objects.push_back(binaryArrayObject({}, 4));
  return binaryPlist(objects, 4);
}

std::string sharedReferencesPlist(int fanOut, int levels) {
  std::vector<std::string> objects;
  for (int k = 0; k < levels; ++k)
    objects.push_back(
        binaryArrayObject(std::vector<uint64_t>(fanOut, static_cast<uint64_t>(k + 1)), 1));
  objects.push_back("\x51x");
  return binaryPlist(objects, 1);
}

std::string nulKeyBinaryPlist() {
  return binaryPlist({"\xD1\x01\x02", std::string("\x61\x00\x00", 3), "\x09"}, 1);
}

}  // namespace velmar::synth

#include "base/plist_io.h"

#include <sys/stat.h>

#include <cstring>
#include <limits>

#include "base/file_bytes.h"
#include "base/plist_readers.h"

namespace velmar {

namespace {

bool isBinaryPropertyList(std::string_view bytes) { return bytes.substr(0, 8) == "bplist00"; }

}  // namespace

Value parsePropertyList(std::string_view bytes) {
  if (bytes.empty() || bytes.size() > std::numeric_limits<uint32_t>::max()) return Value();
  if (isBinaryPropertyList(bytes)) return parseBinaryPropertyList(bytes);
  return parseXmlPropertyList(bytes);
}

Value readPropertyListFile(const std::string& path) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return Value();
  if (static_cast<uint64_t>(st.st_size) > kMaxPropertyListFileSize) return Value();
  std::string bytes;
  if (readFileBytes(path, &bytes) != 0) return Value();
  if (bytes.empty() || bytes.size() > kMaxPropertyListFileSize) return Value();
  if (isBinaryPropertyList(bytes)) return parseBinaryPropertyList(bytes);
  // The file's bytes are ours: parse them where they lie, not in a copy.
  return parseXmlPropertyListInPlace(bytes);
}

}  // namespace velmar

#include "engine/support/firmware_maps.h"

#include <cerrno>
#include <cstring>

#include "engine/collection_extras.h"
#include "base/file_bytes.h"
#include "base/format.h"
#include "engine/log_object.h"
#include "base/utf8.h"

namespace velmar {

namespace {

constexpr char kDeviceMapText[] = "Restore/Firmware/device_map.txt";
constexpr char kDeviceMapPlist[] = "Restore/Firmware/device_map.plist";
constexpr char kTargetMapText[] = "Restore/Firmware/target_map.txt";
constexpr char kPlatformKeysPlist[] = "Restore/Firmware/platform_keys.plist";

bool equalsAnyIgnoringCase(std::string_view name, const Value& names) {
  for (const std::string& candidate : names.strings())
    if (equalIgnoringCase(name, candidate)) return true;
  return false;
}

// Reads a whole file as UTF-8 text. On failure *error says why, in the
// words a user is shown when a document cannot be opened.
bool readUtf8Text(SupportHost& host, const std::string& path, std::string* text, std::string* error) {
  const std::string name(lastPathComponent(path));
  const int err = host.readBundleFile(path, kMaxMapTextBytes, text);
  if (err == EACCES || err == EPERM) {
    *error = format(
        "The file \u201c%@\u201d couldn\u2019t be opened because you don\u2019t have "
        "permission to view it.",
        name);
    return false;
  }
  if (err != 0) {
    *error = format("The file \u201c%@\u201d couldn\u2019t be opened: %@.", name, describeViewError(err));
    return false;
  }
  if (!isValidUtf8(*text)) {
    *error =
        format("The file \u201c%@\u201d couldn\u2019t be opened using text encoding Unicode (UTF-8).", name);
    return false;
  }
  return true;
}

// The found and not-found lines every map step logs; the legacy engine also
// logs what it dropped, between the two.
void reportMapOutcome(const SupportRequest& request, std::string_view shortName, const MapFilterResult& result,
                      const std::string& notFoundWarning) {
  LogObject& log = LogObject::sharedLogger();
  if (result.found.count() > 0) log.Log("+++ %@ found %@.", shortName, niceDescription(result.found));
  if (request.reportScrubs && result.dropped.count() > 0)
    log.Log("--- %@ scrub %@.", shortName, niceDescription(result.dropped));
  if (result.found.count() == 0) log.LogMessage(notFoundWarning, false);
}

struct MapTextFile {
  const char* path;
  const char* shortName;
  const char* missingWarning;
  const char* unreadableWarning;  // one "%@": the reason
  MapRowLabel label;
};

int32_t stripMapText(SupportHost& host, const SupportRequest& request, const MapTextFile& file,
                     const Value& names) {
  LogObject& log = LogObject::sharedLogger();
  if (!host.bundleFileExists(file.path)) {
    log.Log(file.missingWarning);
    return 0;
  }
  std::string text;
  std::string error;
  if (!readUtf8Text(host, file.path, &text, &error)) {
    log.Log(file.unreadableWarning, error);
    return 0;
  }
  MapFilterResult result = filterMapText(text, names, file.label);
  reportMapOutcome(request, file.shortName, result,
                   format("!!! WARNING: %@ %@ not found.", file.shortName, niceDescription(names)));
  // Written even when nothing matched: the map then lists nothing.
  host.recordModifiedFile(file.path, result.contents);
  return 0;
}

}  // namespace

bool containsAnyIgnoringCase(std::string_view text, const Value& names) {
  const std::string haystack = lower(text);
  for (const std::string& name : names.strings())
    if (!name.empty() && haystack.find(lower(name)) != std::string::npos) return true;
  return false;
}

std::optional<std::string> deviceMapLabel(std::string_view line) {
  size_t field = 0;
  size_t start = 0;
  for (size_t i = 0; i <= line.size(); ++i) {
    if (i < line.size() && line[i] != ' ' && line[i] != '\t') continue;
    if (field == 4) return std::string(line.substr(start, i - start));
    ++field;
    start = i + 1;
  }
  return std::nullopt;
}

MapFilterResult filterMapText(std::string_view text, const Value& names, MapRowLabel label) {
  MapFilterResult result;
  std::string output;
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    std::string_view line = text.substr(start, end - start);
    start = end + 1;
    if (line.empty()) continue;
    std::optional<std::string> name =
        label == MapRowLabel::WholeLine ? std::optional<std::string>(line) : deviceMapLabel(line);
    if (containsAnyIgnoringCase(line, names)) {
      output.append(line);
      output.push_back('\n');
      if (name) result.found.insert(Value(*name));
    } else if (name) {
      result.dropped.insert(Value(*name));
    }
  }
  result.contents = Value(std::move(output));
  return result;
}

MapFilterResult filterDeviceMapPlist(const Value& root, const Value& deviceClasses) {
  MapFilterResult result;
  result.contents = Value::makeDict();
  for (const auto& [key, value] : root.dict()) {
    if (equalsAnyIgnoringCase(key, deviceClasses)) {
      result.contents.set(key, value);
      result.found.insert(Value(key));
    } else {
      result.dropped.insert(Value(key));
    }
  }
  return result;
}

Value processorsForProducts(const Value& products, const Value& productsTable) {
  Value processors = Value::makeArray();
  for (const std::string& product : products.strings()) {
    Value processor = productsTable.valueForKeyPath(format("%@.processor", product));
    if (!processor.isNull()) processors.append(processor);
  }
  return processors;
}

MapFilterResult filterPlatformKeys(const Value& root, const Value& processors) {
  MapFilterResult result;
  Value kept = Value::makeArray();
  for (const Value& platform : root.get("PlatformKeys").arr()) {
    Value name = platform.get("PlatformName");
    if (name.isString() && equalsAnyIgnoringCase(name.str(), processors)) {
      result.found.insert(name);
      kept.append(platform);
    } else if (!name.isNull()) {
      result.dropped.insert(name);
    }
  }
  result.contents = root;
  result.contents.set("PlatformKeys", kept);
  return result;
}

int32_t stripRestoreFirmwareDeviceMapDotTxt(SupportHost& host, const SupportRequest& request) {
  static const MapTextFile file = {
      kDeviceMapText, "device_map.txt", "!!! WARNING: \"Restore/Firmware/device_map.txt\" not found.",
      "!!! WARNING: \"Restore/Firmware/device_map.txt\" could not be read - %@.", MapRowLabel::FifthField};
  return stripMapText(host, request, file, request.deviceClasses);
}

int32_t stripRestoreFirmwareTargetMapDotTxt(SupportHost& host, const SupportRequest& request) {
  static const MapTextFile file = {kTargetMapText, "target_map.txt", "!!! WARNING: target_map.txt not found.",
                                   "!!! WARNING: target_map.txt could not be read - %@.",
                                   MapRowLabel::WholeLine};
  return stripMapText(host, request, file, request.products);
}

int32_t stripRestoreFirmwareDeviceMapDotPlist(SupportHost& host, const SupportRequest& request) {
  Value root = host.readBundlePropertyList(kDeviceMapPlist);
  if (root.isNull()) {
    // Names the text map, as this warning always has.
    LogObject::sharedLogger().Log("!!! WARNING: \"Restore/Firmware/device_map.txt\" not found.");
    return 0;
  }
  const Value& deviceClasses = request.deviceClasses;
  MapFilterResult result = filterDeviceMapPlist(root, deviceClasses);
  reportMapOutcome(request, "device_map.plist", result,
                   format("!!! WARNING: device_map.plist %@ not found.", niceDescription(deviceClasses)));
  host.recordModifiedFile(kDeviceMapPlist, result.contents);
  return 0;
}

int32_t stripRestoreFirmwarePlatformKeysDotPlist(SupportHost& host, const SupportRequest& request) {
  Value root = host.readBundlePropertyList(kPlatformKeysPlist);
  if (root.isNull()) {
    LogObject::sharedLogger().Log("!!! WARNING: \"Restore/Firmware/platform_keys.plist\" not found.");
    return 0;
  }
  const Value& products = request.products;
  const Value processors = processorsForProducts(products, host.supportProductsTable());
  MapFilterResult result = filterPlatformKeys(root, processors);
  reportMapOutcome(request, "platform_keys.plist", result,
                   format("!!! WARNING: platform_keys.plist %@ (%@) not found.", niceDescription(products),
                          niceDescription(processors)));
  host.recordModifiedFile(kPlatformKeysPlist, result.contents);
  return 0;
}

}  // namespace velmar

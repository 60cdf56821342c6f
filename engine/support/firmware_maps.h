// The four index files under Restore/Firmware name every device class,
// product and processor a bundle serves. When a bundle is cut down to some
// products they are cut down to match, or a restore host would look for
// firmware that is no longer there. The steps never fail: a missing or
// unreadable map is a warning and the file is left as it is.

#ifndef VELMAR_ENGINE_SUPPORT_FIRMWARE_MAPS_H_
#define VELMAR_ENGINE_SUPPORT_FIRMWARE_MAPS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "engine/support/support_host.h"
#include "base/value.h"

namespace velmar {

// A map file cut down: its new contents and what the kept and dropped rows
// name (sets of strings).
struct MapFilterResult {
  Value contents;
  Value found = Value::makeSet();
  Value dropped = Value::makeSet();
};

// What a kept or dropped text line adds to the found or dropped set.
enum class MapRowLabel {
  FifthField,  // device_map.txt: the fifth blank-separated field, if any
  WholeLine,   // target_map.txt: the line itself
};

// True when `text` contains any of the strings of `names` (an array or set),
// ignoring case. An empty name matches nothing.
bool containsAnyIgnoringCase(std::string_view text, const Value& names);

// The fifth field of a line split at every single blank or tab, so that a
// run of blanks yields empty fields (and an empty label). None with fewer
// than five fields.
std::optional<std::string> deviceMapLabel(std::string_view line);

// Keeps the lines of `text` that contain any of `names`, each ended by "\n";
// empty lines go whatever they hold.
MapFilterResult filterMapText(std::string_view text, const Value& names, MapRowLabel label);

// Keeps the keys of the root dictionary that equal a device class, ignoring
// case, with their values, in file order.
MapFilterResult filterDeviceMapPlist(const Value& root, const Value& deviceClasses);

// The processor of each board code that the products table knows, in order.
Value processorsForProducts(const Value& products, const Value& productsTable);

// The root with its PlatformKeys array reduced to the entries whose
// PlatformName equals one of `processors`, ignoring case; other root keys
// stay as they are.
MapFilterResult filterPlatformKeys(const Value& root, const Value& processors);

// The steps; each answers 0.
int32_t stripRestoreFirmwareDeviceMapDotTxt(SupportHost& host, const SupportRequest& request);
int32_t stripRestoreFirmwareDeviceMapDotPlist(SupportHost& host, const SupportRequest& request);
int32_t stripRestoreFirmwareTargetMapDotTxt(SupportHost& host, const SupportRequest& request);
int32_t stripRestoreFirmwarePlatformKeysDotPlist(SupportHost& host, const SupportRequest& request);

}  // namespace velmar

#endif  // VELMAR_ENGINE_SUPPORT_FIRMWARE_MAPS_H_

// Pieces the restore steps of the legacy engine share: reading their entry,
// choosing build identities, cutting SupportedProductTypes, and logging a
// found set and a scrub set.

#ifndef VELMAR_ENGINE_LEGACY_STEP_HELPERS_H_
#define VELMAR_ENGINE_LEGACY_STEP_HELPERS_H_

#include <string>
#include <string_view>
#include <vector>

#include "base/value.h"

namespace velmar::legacy {

inline constexpr char kBuildManifest[] = "Restore/BuildManifest.plist";
inline constexpr char kRestorePlist[] = "Restore/Restore.plist";

// What one restore step works for, read once from its entry and the tables.
struct RestoreItem {
  Value product;        // board code as requested
  std::string board;    // its text
  Value deviceClass;
  Value variant;
  Value modelList;      // may be null
  Value processorID;    // may be null; prints "(null)"
  std::string processor;  // its text, empty when missing
  Value kernelCaches;   // null when the station names none
  Value firmwareTypes;
  Value dfuTypes;
  Value systemImageType;  // null when absent
  Value personalizationVariant;
  Value osImageTypes;
  Value productInfo;    // the product's row of the known-products table
};
RestoreItem readRestoreItem(const Value& entry);

// The identities of one device class and personalization variant; the
// others are scrubbed by device class, or by "class (variant)" when only
// the variant differs.
struct IdentityChoice {
  Value found = Value::makeSet();
  Value scrub = Value::makeSet();
  Value kept = Value::makeArray();
};
IdentityChoice chooseIdentities(const Value& manifest, const Value& deviceClass, const Value& variant);

// The product's models: one string counts as a one-element list.
Value modelsOf(const Value& productInfo);

// Cuts the manifest's SupportedProductTypes to the product's models in the
// edited copy, logging what was found and scrubbed.
void cutManifestProductTypes(const Value& manifest, Value& edited, const Value& productInfo);

// "+++ <found>" and "--- <scrub>" lines for non-empty sets; each format has
// one "%@" for the set, or two with `label` first.
void logFoundAndScrub(const Value& found, const Value& scrub, std::string_view foundFormat,
                      std::string_view scrubFormat);
void logFoundAndScrub(const Value& label, const Value& found, const Value& scrub,
                      std::string_view foundFormat, std::string_view scrubFormat);

// A set's members as an array.
Value asArray(const Value& set);

}  // namespace velmar::legacy

#endif  // VELMAR_ENGINE_LEGACY_STEP_HELPERS_H_

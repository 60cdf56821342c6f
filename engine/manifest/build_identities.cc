// The two-level identity index (device class, then variant), the rewritten
// build manifest, and the listing and keep-list services the steps share.

#include <algorithm>

#include "engine/collection_extras.h"
#include "base/format.h"
#include "engine/manifest/stripper3.h"

namespace velmar {

namespace {

// The reference keys: a variant names the variant it is built on here.
const char* const kReferenceKeys[] = {"MacOSVariant"};

}  // namespace

void Stripper3::buildHierarchicalBuildIdentities() {
  if (!buildManifest_) return;
  Value identities = Value::makeDict();
  Value references = Value::makeDict();
  for (const Value& identity : buildManifest_->entries().get("BuildIdentities").arr()) {
    // An identity without a device class or variant cannot be indexed.
    Value deviceClass = identity.valueForKeyPath("Info.DeviceClass");
    Value variant = identity.valueForKeyPath("Info.Variant");
    if (!deviceClass.isString() || !variant.isString()) continue;
    identities.slot(deviceClass.str()).slot(variant.str()).append(identity);
    for (const char* key : kReferenceKeys) {
      Value reference = identity.valueForKeyPath(format("Info.%@", key));
      if (reference.isNull()) continue;
      references.slot(deviceClass.str()).slot(variant.str()).append(reference);
    }
  }
  originalBuildIdentities_ = identities;
  referenceVariants_ = references;
}

Value Stripper3::flattenBuildIdentities(const Value& index) {
  Value result = Value::makeArray();
  for (const std::string& deviceClass : sortedKeys(index)) {
    Value byVariant = index.get(deviceClass);
    for (const std::string& variant : sortedKeys(byVariant))
      for (const Value& identity : byVariant.get(variant).arr()) result.append(identity);
  }
  return result;
}

int32_t Stripper3::stripBuildManifest(Value& entry) {
  const Value models = entry.get("workAllModels");
  // A copy of a loaded manifest shares everything it does not change.
  Value manifest = buildManifest_->entries();
  manifest.set("BuildIdentities", flattenBuildIdentities(strippedBuildIdentities_));
  std::vector<std::string> supported;
  for (const Value& type : buildManifest_->entries().get("SupportedProductTypes").arr())
    if (type.isString() && models.containsMember(type)) supported.push_back(type.str());
  std::sort(supported.begin(), supported.end(),
            [](const std::string& a, const std::string& b) { return caseInsensitiveLess(a, b); });
  manifest.set("SupportedProductTypes", Value::stringArray(supported));
  modifiedFilelist_.set("Restore/BuildManifest.plist", manifest);
  return 0;
}

std::vector<std::string> Stripper3::submanifestStartingAt(const std::string& folder, bool deep) {
  std::vector<std::string> paths;
  if (deep) return listTree(bundleView(), folder);
  // Names sorted by bytes, so every file system lists a bundle the same way
  // and logs stay stable.
  Value names = shallowPathContentsCache_.get(folder);
  if (names.isNull()) {
    std::vector<FolderEntry> entries;
    if (bundleView().listFolder(folder, &entries) != 0) return paths;
    names = Value::makeArray();
    for (const FolderEntry& entry : entries) names.append(entry.name);
    shallowPathContentsCache_.set(folder, names);
  }
  for (const Value& name : names.arr()) paths.push_back(appendingPathComponent(folder, name.str()));
  return paths;
}

void Stripper3::addSubpath(const std::string& path, Value& keepList) {
  std::string remainder = path;
  while (!remainder.empty()) {
    keepList.insert(Value(remainder));
    size_t slash = remainder.find_last_of('/');
    remainder = slash == std::string::npos ? std::string() : remainder.substr(0, slash);
  }
}

}  // namespace velmar

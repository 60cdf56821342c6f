// The personalized path: the build manifest decides what a device class and
// station keep, and the restore property list is cut to the product.

#include "engine/collection_extras.h"
#include "engine/legacy/step_helpers.h"
#include "engine/legacy/stripper2.h"
#include "engine/log_object.h"

namespace velmar {

using namespace legacy;

namespace {

// The name the restore process looks for an item's image under, or null.
// Only items stored directly in Restore/ have one.
Value canonicalName(const std::string& item, const std::string& path, const std::string& board,
                    const Value& contents) {
  if (path.find('/') != std::string::npos) return Value();
  auto lowered = [](const Value& v) { return v.isString() ? Value(lower(v.str())) : v; };
  if (item == "OS") return format("%@-%@.dmg", upper(board), contents.get("SystemImage"));
  if (item == "RestoreRamDisk") return format("%@-%@.dmg", upper(board), contents.get("RestoreRamDisk"));
  if (item == "RestoreKernelCache")
    return format("kernelcache.%@.%@", lowered(contents.get("RestoreKernelCache")), upper(board));
  if (item == "KernelCache")
    return format("kernelcache.%@.%@", lowered(contents.get("InstalledKernelCache")), upper(board));
  return Value();
}

}  // namespace

int32_t Stripper2::stripRestoreUsingHexloom(Value& entry) {
  LogObject& log = LogObject::sharedLogger();
  const RestoreItem item = readRestoreItem(entry);
  const bool noOSImage = item.osImageTypes.isString() && item.osImageTypes.str().empty();
  Value keep = Value::makeSet();
  Value record = Value::makeDict();

  const Value manifest = mutableDictionaryAtSubpath(kBuildManifest);
  if (manifest.isNull()) {
    log.Log("XXX ERROR: BuildManifest.plist cannot be read.");
    return 1;
  }
  Value edited = manifest;

  // Identities by hand rather than through chooseIdentities: the baseband
  // and item walks run for each kept identity as it is met.
  Value found = Value::makeSet();
  Value scrub = Value::makeSet();
  Value kept = Value::makeArray();
  for (const Value& identity : manifest.get("BuildIdentities").arr()) {
    const Value deviceClass = identity.valueForKeyPath("Info.DeviceClass");
    if (deviceClass != item.deviceClass) {
      if (!deviceClass.isNull()) scrub.insert(deviceClass);
      continue;
    }
    const Value variant = identity.valueForKeyPath("Info.Variant");
    const Value label = format("%@ (%@)", deviceClass, variant);
    if (variant != item.personalizationVariant) {
      scrub.insert(label);
      continue;
    }
    found.insert(label);
    kept.append(identity);

    const Value items = identity.get("Manifest");
    const bool basebandPersonalized = boolForKey(item.productInfo, "BasebandIsPersonalized");
    if (!(basebandPersonalized && !items.contains("BasebandFirmware"))) {
      const Value prefixes = item.productInfo.get("BasebandFirmwarePrefix");
      std::vector<std::string> files;
      for (const std::string& prefix : prefixes.strings())
        for (const std::string& path : submanifestStartingAt("Restore/Firmware", false))
          if (hasPrefix(lastPathComponent(path), prefix, Compare::Literal)) files.push_back(path);
      if (!files.empty()) {
        std::vector<std::string> names;
        for (const std::string& path : files) {
          addSubpath(path, keep);
          names.push_back(lastPathComponent(path));
        }
        log.Log("+++ BuildManifest.plist BasebandFirmware found %@.", Value::stringArray(names));
      } else if (prefixes.count() > 0) {
        log.Log("XXX ERROR found no BasebandFirmware files with prefixes %@.", prefixes);
        return 1;
      }
    }

    const Value contents = identity.valueForKeyPath("Info.VariantContents");
    for (const auto& [name, manifestItem] : items.dict()) {
      const Value pathValue = manifestItem.valueForKeyPath("Info.Path");
      const std::string path = pathValue.description();
      if (hasPrefix(path, "./", Compare::Literal)) {
        // Walked on for its name and folders, though it names no file here.
        log.Log("!!! WARNING: BuildManifest.plist BuildIdentity %@ \"%@\" %@ malformed manifest item %@.",
                deviceClass, variant, name, pathValue);
      } else if (name == "OS" && noOSImage) {
        log.Log("--- skipping %@ \"%@\" %@: %@.", deviceClass, variant, name, pathValue);
        continue;
      } else if (addSubpath("Restore/" + path, keep)) {
        log.Log("XXX ERROR: BuildManifest.plist BuildIdentity %@ \"%@\" %@ missing \"%@\" from bundle.",
                deviceClass, variant, name, pathValue);
        return 1;
      }
      const Value canonical = canonicalName(name, path, item.board, contents);
      if (!canonical.isNull() && !equalIgnoringCase(canonical.str(), path))
        record.set("Restore/" + canonical.str(), Value::makeData(path));
      if (containsIgnoringCase(path, "Firmware/all_flash/all_flash."))
        addSubpath("Restore/" + deletingLastPathComponent(path) + "/manifest", keep);
      for (std::string folder = path; !folder.empty(); folder = deletingLastPathComponent(folder))
        addSubpath("Restore/" + folder, keep);
    }
  }

  logFoundAndScrub(found, scrub, "+++ BuildManifest.plist BuildIdentities found %@.",
                   "--- BuildManifest.plist BuildIdentities scrub %@.");
  if (found.count() == 0) {
    log.Log("XXX ERROR: BuildManifest.plist BuildIdentity %@ \"%@\" not found.", item.deviceClass,
            item.personalizationVariant);
    return 1;
  }
  edited.set("BuildIdentities", kept);
  cutManifestProductTypes(manifest, edited, item.productInfo);
  // platform_keys.txt beside the map texts, though the maps step rewrites
  // the .plist of that name.
  for (const char* path : {"Restore/Firmware/device_map.txt", "Restore/Firmware/target_map.txt",
                           "Restore/Firmware/platform_keys.txt", kRestorePlist})
    addSubpath(path, keep);
  record.set(kBuildManifest, edited);
  strippedManifestsList_.append(asArray(keep));
  modifiedFilesList_.append(record);
  return 0;
}

int32_t Stripper2::stripRestorePlistUsingHexloom(Value& entry) {
  LogObject& log = LogObject::sharedLogger();
  const RestoreItem item = readRestoreItem(entry);
  Value record = Value::makeDict();
  const Value plist = mutableDictionaryAtSubpath(kRestorePlist);
  if (plist.isNull()) {
    log.Log("!!! WARNING: Restore.plist cannot be read.");
    return 0;
  }
  Value edited = plist;

  for (const char* tableName : {"KernelCachesByTarget", "KernelCachesByPlatform"}) {
    Value found = Value::makeSet();
    Value scrub = Value::makeSet();
    for (const auto& [key, kinds] : plist.get(tableName).dict()) {
      if (!equalIgnoringCase(key, item.board) && !containsIgnoringCase(key, item.processor)) {
        scrub.insert(Value(key));
        edited.slot(tableName).remove(key);
        continue;
      }
      Value expected = item.kernelCaches;
      for (const auto& [kind, file] : kinds.dict()) {
        const Value label = format("%@ (%@)", key, kind);
        if (!item.kernelCaches.isNull() && !item.kernelCaches.containsMember(Value(kind))) {
          scrub.insert(label);
          edited.slot(tableName).slot(key).remove(kind);
          continue;
        }
        found.insert(label);
        if (!bundleListingContains("Restore/" + file.description()))
          log.Log("!!! WARNING: Restore.plist %@ %@ %@ missing \"%@\" from bundle.", tableName, key, kind,
                  lastPathComponent(file.description()));
        if (expected.isArray()) std::erase(expected.arrMut(), Value(kind));
      }
      // The sets gather over the table, so later keys repeat earlier finds.
      logFoundAndScrub(Value(tableName), found, scrub, "+++ Restore.plist found %@ %@.",
                       "--- Restore.plist scrub %@ %@.");
      if (expected.count() > 0)
        log.Log("!!! WARNING: Restore.plist %@ %@ missing reference to kernelcache %@.", tableName, key,
                expected);
    }
  }

  {
    Value found = Value::makeSet();
    Value scrub = Value::makeSet();
    for (const auto& [key, kinds] : plist.get("RamDisksByPlatform").dict()) {
      if (!containsIgnoringCase(key, item.processor)) {
        scrub.insert(Value(key));
        edited.slot("RamDisksByPlatform").remove(key);
        continue;
      }
      found.insert(Value(key));
      for (const auto& [kind, file] : kinds.dict())
        if (!bundleListingContains("Restore/" + file.description()))
          log.Log("!!! WARNING: Restore.plist RamDisksByPlatform cannot find RAMdisk file %@ %@ \"%@\".", key,
                  kind, lastPathComponent(file.description()));
    }
    logFoundAndScrub(Value("RamDisksByPlatform"), found, scrub, "+++ Restore.plist found %@ %@.",
                     "--- Restore.plist scrub %@ %@.");
    if (found.count() == 0)
      log.Log("!!! WARNING: Restore.plist RamDisksByPlatform has no reference to %@.", item.processorID);
  }

  {
    Value found = Value::makeSet();
    Value scrub = Value::makeSet();
    Value images = Value::makeDict();
    for (const auto& [target, types] : plist.get("SystemRestoreImagesByTarget").dict()) {
      if (!equalIgnoringCase(target, item.board)) {
        scrub.insert(Value(target));
        continue;
      }
      Value& kept = images.slot(target);
      kept = Value::makeDict();
      for (const auto& [type, file] : types.dict()) {
        const Value label = format("%@ (%@)", target, type);
        if (!item.systemImageType.isNull() && item.systemImageType != Value(type)) {
          scrub.insert(label);
          continue;
        }
        kept.set(type, file);
        found.insert(label);
      }
    }
    edited.set("SystemRestoreImagesByTarget", images);
    logFoundAndScrub(Value("SystemRestoreImagesByTarget"), found, scrub, "+++ Restore.plist found %@ %@.",
                     "--- Restore.plist scrub %@ %@.");
    // Names the processor, not the board the targets are keyed by.
    if (found.count() == 0)
      log.Log("!!! WARNING: Restore.plist SystemRestoreImagesByTarget has no reference to %@.",
              item.processorID);
  }

  {
    Value found = Value::makeSet();
    Value scrub = Value::makeSet();
    for (const Value& type : plist.get("SupportedProductTypes").arr())
      (item.modelList.containsMember(type) ? found : scrub).insert(type);
    logFoundAndScrub(Value("SupportedProductTypes"), found, scrub, "+++ Restore.plist found %@ %@.",
                     "--- Restore.plist scrub %@ %@.");
    if (found.count() == 0)
      log.Log("!!! WARNING: Restore.plist SupportedProductTypes has no reference to %@.", item.modelList);
    edited.set("SupportedProductTypes", asArray(found));
  }

  if (edited.count() > 0) record.set(kRestorePlist, edited);
  if (record.count() > 0) modifiedFilesList_.append(record);
  return 0;
}

int32_t Stripper2::stripBuildManifestWithoutHexloom(Value& entry) {
  LogObject& log = LogObject::sharedLogger();
  const RestoreItem item = readRestoreItem(entry);
  Value record = Value::makeDict();
  const Value manifest = mutableDictionaryAtSubpath(kBuildManifest);
  if (manifest.isNull()) {
    log.Log("!!! WARNING: BuildManifest.plist cannot be read.");
    return 0;
  }
  Value edited = manifest;
  IdentityChoice choice = chooseIdentities(manifest, item.deviceClass, item.personalizationVariant);
  for (const Value& identity : choice.kept.arr()) {
    const Value deviceClass = identity.valueForKeyPath("Info.DeviceClass");
    const Value variant = identity.valueForKeyPath("Info.Variant");
    for (const auto& [name, manifestItem] : identity.get("Manifest").dict()) {
      const Value path = manifestItem.valueForKeyPath("Info.Path");
      if (hasPrefix(path.description(), "./", Compare::Literal)) {
        log.Log("!!! WARNING: BuildManifest.plist BuildIdentity %@ \"%@\" %@ malformed manifest item %@.",
                deviceClass, variant, name, path);
      } else if (!bundleListingContains("Restore/" + path.description())) {
        log.Log("!!! WARNING: BuildManifest.plist BuildIdentity %@ \"%@\" %@ missing \"%@\" from bundle.",
                deviceClass, variant, name, path);
        break;
      }
    }
  }
  logFoundAndScrub(choice.found, choice.scrub, "+++ BuildManifest.plist BuildIdentities found %@.",
                   "--- BuildManifest.plist BuildIdentities scrub %@.");
  if (choice.kept.count() > 0) {
    edited.set("BuildIdentities", choice.kept);
    cutManifestProductTypes(manifest, edited, item.productInfo);
    record.set(kBuildManifest, edited);
  } else {
    log.Log("!!! WARNING: BuildManifest.plist BuildIdentity %@ \"%@\" not found.", item.deviceClass,
            item.personalizationVariant);
  }
  if (record.count() > 0) modifiedFilesList_.append(record);
  return 0;
}

}  // namespace velmar

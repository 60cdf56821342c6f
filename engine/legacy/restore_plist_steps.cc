// The unpersonalized path: the restore property list and the folder layout
// decide what a device class and station keep, and the restore property list
// is cut to them.

#include "engine/collection_extras.h"
#include "engine/legacy/step_helpers.h"
#include "engine/legacy/stripper2.h"
#include "engine/log_object.h"

namespace velmar {

using namespace legacy;

namespace {

// What one firmware folder (all_flash or dfu) offers a device class.
struct FirmwareFolder {
  const char* folder;
  const char* kind;  // "all_flash" or "dfu", as the messages name it
  bool dfuOnly;      // take only entries whose names end in "dfu"
};

bool containsAnyIgnoringCase(const std::string& text, const Value& words) {
  for (const std::string& word : words.strings())
    if (containsIgnoringCase(text, word)) return true;
  return false;
}

}  // namespace

int32_t Stripper2::stripRestoreWithoutHexloom(Value& entry) {
  LogObject& log = LogObject::sharedLogger();
  const RestoreItem item = readRestoreItem(entry);
  Value keep = Value::makeSet();
  Value record = Value::makeDict();

  const Value manifest = mutableDictionaryAtSubpath(kBuildManifest);  // may well be missing
  const Value plist = mutableDictionaryAtSubpath(kRestorePlist);
  if (plist.isNull()) {
    log.Log("XXX ERROR: Restore.plist cannot be read.");
    return 1;
  }

  // Kernel caches lie directly in Restore/.
  {
    Value found = Value::makeSet();
    Value scrub = Value::makeSet();
    for (const std::string& path : submanifestStartingAt("Restore", false)) {
      const std::string name = lastPathComponent(path);
      if (!hasPrefix(name, "kernelcache.", Compare::CaseInsensitive)) continue;
      if (!containsIgnoringCase(path, item.processor) && !containsIgnoringCase(path, item.board)) {
        scrub.insert(Value(name));
      } else {
        found.insert(Value(name));
        addSubpath(path, keep);
      }
    }
    logFoundAndScrub(found, scrub, "+++ Restore kernelcache found %@.", "--- Restore kernelcache scrub %@.");
    if (found.count() == 0) {
      log.Log("XXX ERROR no matching kernelcache found in bundle for %@ %@.", item.product, item.processorID);
      return 1;
    }
  }

  // Firmware sets: the folder listing starts with the folder itself, which
  // is sorted like any entry (and normally scrubbed under its own name).
  static const FirmwareFolder kFolders[] = {{"Restore/Firmware/all_flash", "all_flash", false},
                                            {"Restore/Firmware/dfu", "dfu", true}};
  for (const FirmwareFolder& folder : kFolders) {
    const Value& types = folder.dfuOnly ? item.dfuTypes : item.firmwareTypes;
    addSubpath(folder.folder, keep);
    const std::vector<std::string> entries = submanifestStartingAt(folder.folder, false);
    if (entries.empty()) {
      log.Log("XXX ERROR no %@ found in bundle.", folder.kind);
      return 1;
    }
    Value found = Value::makeSet();
    Value scrub = Value::makeSet();
    for (const std::string& path : entries) {
      const Value name(lastPathComponent(path));
      if (folder.dfuOnly && !hasSuffix(name.str(), "dfu", Compare::CaseInsensitive)) continue;
      if (!containsIgnoringCase(path, item.deviceClass.description())) {
        scrub.insert(name);
      } else if (types.isNull()) {
        // Without firmware types only debug sets are refused; the others
        // count as found but are not kept by this step.
        (containsIgnoringCase(path, "debug") ? scrub : found).insert(name);
      } else if (containsAnyIgnoringCase(path, types)) {
        found.insert(name);
        addSubpath(path, keep);
        for (const std::string& below : submanifestStartingAt(path, true)) addSubpath(below, keep);
      } else {
        scrub.insert(name);
      }
    }
    logFoundAndScrub(found, scrub, format("+++ Restore %@ found %%@.", folder.kind),
                     format("--- Restore %@ scrub %%@.", folder.kind));
    if (found.count() == 0) {
      log.Log("XXX ERROR no matching %@ found in bundle for %@, %@.", folder.kind, item.deviceClass, types);
      return 1;
    }
  }

  Value edited = mutableDictionaryAtSubpath(kRestorePlist);
  if (edited.isNull()) edited = plist;

  // Kernel-cache tables. A missing file marks the step failed; a kind kept
  // later clears the mark again, and a failed table ends the walk of both.
  bool failed = false;
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
        if (expected.isArray()) std::erase(expected.arrMut(), Value(kind));
        if (addSubpath("Restore/" + file.description(), keep)) {
          log.Log("XXX ERROR: Restore.plist %@ %@ %@ missing \"%@\" from bundle.", tableName, key, kind,
                  lastPathComponent(file.description()));
          failed = true;
          break;
        }
        failed = false;
      }
      logFoundAndScrub(Value(tableName), found, scrub, "+++ Restore.plist %@ found %@.",
                       "--- Restore.plist %@ scrub %@.");
      if (expected.count() > 0)
        log.Log("!!! WARNING: Restore.plist %@ %@ missing reference to kernelcache %@.", tableName, key,
                expected);
    }
    if (failed) break;
  }

  // Ramdisks, each also linked under its canonical name.
  {
    Value found = Value::makeSet();
    Value scrub = Value::makeSet();
    Value ramDisks = Value::makeDict();
    const Value& processorMap = tables().processorMap;
    for (const auto& [platform, kinds] : plist.get("RamDisksByPlatform").dict()) {
      if (!containsIgnoringCase(platform, item.processor)) {
        scrub.insert(Value(platform));
        continue;
      }
      ramDisks.set(platform, kinds);
      found.insert(Value(platform));
      // A failure carried from the kernel caches ends the walk at a
      // platform with nothing to walk.
      if (failed && kinds.dict().empty()) break;
      Value chip = processorMap.get(lower(platform));
      if (chip.isNull()) chip = Value(platform);
      bool stop = false;
      for (const auto& [kind, file] : kinds.dict()) {
        if (addSubpath("Restore/" + file.description(), keep)) {
          log.Log("XXX ERROR: Restore.plist ramdisk %@ %@ \"%@\" missing from bundle.", chip, kind, file);
          stop = true;
          break;
        }
        found.insert(file);
        record.set(format("Restore/%@-%@-RAMDisk.dmg", chip, kind), Value::makeData(file.description()));
        if (manifest.isNull()) continue;
        Value match;
        for (const Value& identity : manifest.get("BuildIdentities").arr()) {
          if (identity.valueForKeyPath("Manifest.RestoreRamDisk.Info.Path") == file) {
            match = identity;
            break;
          }
        }
        if (match.isNull()) {
          log.Log("!!! WARNING: Restore.plist ramdisk %@ \"%@\" has no corresponding entry in BuildManifest.plist.",
                  platform, file);
        } else if (match.valueForKeyPath("Info.VariantContents.RestoreRamDisk").description().find("Support") !=
                   std::string::npos) {
          log.Log(
              "!!! ERROR: Restore.plist ramdisk %@ \"%@\" appears to be a FactorySupportRamdisk (from "
              "BuildManifest.plist).",
              platform, file);
          stop = true;
          break;
        }
      }
      if (stop) {
        failed = true;
        break;
      }
      if (!kinds.dict().empty()) failed = false;
    }
    edited.set("RamDisksByPlatform", ramDisks);
    logFoundAndScrub(found, scrub, "+++ Restore.plist RamDisksByPlatform found %@.",
                     "--- Restore.plist RamDisksByPlatform scrub %@.");
    if (found.count() == 0)
      log.Log("!!! WARNING: Restore.plist RamDisksByPlatform has no reference to %@.", item.processorID);
    if (failed) return 1;
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
        if (addSubpath("Restore/" + file.description(), keep)) {
          log.Log("XXX ERROR: Restore.plist %@ %@ system image, type \"%@\" file \"%@\" missing from bundle.",
                  "SystemRestoreImagesByTarget", target, type, file);
          return 1;
        }
      }
    }
    edited.set("SystemRestoreImagesByTarget", images);
    logFoundAndScrub(found, scrub, "+++ Restore.plist SystemRestoreImagesByTarget found %@.",
                     "--- Restore.plist SystemRestoreImagesByTarget scrub %@.");
    if (found.count() == 0)
      log.Log("!!! WARNING: Restore.plist SystemRestoreImagesByTarget has no reference to %@.",
              item.processorID);
  }

  {
    Value found = Value::makeSet();
    Value scrub = Value::makeSet();
    for (const Value& type : plist.get("SupportedProductTypes").arr())
      (item.modelList.containsMember(type) ? found : scrub).insert(type);
    logFoundAndScrub(found, scrub, "+++ Restore.plist SupportedProductTypes found %@.",
                     "--- Restore.plist SupportedProductTypes scrub %@.");
    if (found.count() == 0)
      log.Log("!!! WARNING: Restore.plist SupportedProductTypes has no reference to %@.", item.modelList);
    edited.set("SupportedProductTypes", asArray(found));
    record.set(kRestorePlist, edited);
  }

  // Baseband firmware lies directly in Restore/Firmware, named by prefix.
  const Value prefixes = item.productInfo.get("BasebandFirmwarePrefix");
  std::vector<std::string> basebands;
  for (const std::string& prefix : prefixes.strings())
    for (const std::string& path : submanifestStartingAt("Restore/Firmware", false))
      if (hasPrefix(lastPathComponent(path), prefix, Compare::Literal)) basebands.push_back(path);
  if (!basebands.empty()) {
    std::vector<std::string> names;
    for (const std::string& path : basebands) {
      addSubpath(path, keep);
      names.push_back(lastPathComponent(path));
    }
    log.Log("+++ Restore.plist BasebandFirmware found %@.", Value::stringArray(names));
  } else if (prefixes.count() > 0) {
    log.Log("XXX ERROR found no BasebandFirmware files with prefixes %@.", prefixes);
    return 1;
  }

  strippedManifestsList_.append(asArray(keep));
  if (record.count() > 0) modifiedFilesList_.append(record);
  return 0;
}

}  // namespace velmar

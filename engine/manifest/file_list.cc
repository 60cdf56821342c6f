// The file-list step of one product and station: choose the build
// identities the station needs for each of the product's device classes,
// remember them as kept, and keep what they name: the manifest items' files,
// the product's baseband firmware, the flash manifests and the product's
// diagnostics. An image stored under another name than the one the restore
// process looks for gets a link under the conventional name.

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "engine/collection_extras.h"
#include "base/format.h"
#include "engine/log_object.h"
#include "engine/manifest/stripper3.h"

namespace velmar {

namespace {

// What one run of the step works for, read once from its entry.
struct FileListRequest {
  std::string product;
  Value processor;  // may be missing; then it prints "(null)"
  Value variant;
  bool osSkipped = false;  // the station installs no OS image
};

bool isTemplateStation(const Value& variant) {
  return variant.str() == "swdl-tmpl" || variant.str() == "ss-tmpl";
}

// The personalization variants a station needs on one device class: a
// template station's come from the caller; any other station's variant
// comes after the variants it is built on.
Value identityNames(const std::string& deviceClass, const Value& variant, const Value& options,
                    const Value& references) {
  if (isTemplateStation(variant)) return options.get(variant.str());
  Value names = Value::makeArray();
  Value pv = Stripper3::tables().factoryVariants.get(variant.str()).get("PersonalizationVariants");
  if (pv.isString()) {
    const Value builtOn = references.get(deviceClass).get(pv.str());
    for (const Value& reference : builtOn.arr()) names.append(reference);
  }
  names.append(pv);
  return names;
}

void recordKeptIdentities(Value& stripped, const std::string& deviceClass, const std::string& name,
                          const Value& identities) {
  Value& kept = stripped.slot(deviceClass).slot(name);
  for (const Value& identity : identities.arr())
    if (!kept.containsMember(identity)) kept.append(identity);
}

// The name the restore process looks for an item's image under, or null
// for items it finds by their manifest path.
Value conventionalName(const std::string& item, const FileListRequest& request, const Value& contents) {
  // A missing name stays missing so that it prints "(null)".
  auto lowered = [](const Value& v) { return v.isString() ? Value(lower(v.str())) : v; };
  if (item == "OS") return format("%@%@.dmg", upper(request.product), contents.get("SystemImage"));
  if (item == "RestoreRamDisk") {
    const Value& processor = request.processor;
    Value chip = processor.isString()
                     ? Stripper3::tables().processorMap.get(lower(processor.str()))
                     : Value();
    if (chip.isNull()) chip = processor;
    return format("%@%@.dmg", chip, contents.get("RestoreRamDisk"));
  }
  if (item == "RestoreKernelCache")
    return format("kernelcache.%@.%@", lowered(contents.get("RestoreKernelCache")), lower(request.product));
  if (item == "KernelCache")
    return format("kernelcache.%@.%@", lowered(contents.get("InstalledKernelCache")), lower(request.product));
  return Value();
}

// The paths of "Restore/Firmware" whose file names begin with one of the
// prefixes (case matters: the prefixes are file-name stems).
std::vector<std::string> basebandFiles(Stripper3& engine, const Value& prefixes) {
  std::vector<std::string> found;
  for (const std::string& prefix : prefixes.strings())
    for (const std::string& path : engine.submanifestStartingAt("Restore/Firmware", false))
      if (hasPrefix(lastPathComponent(path), prefix, Compare::Literal) &&
          std::find(found.begin(), found.end(), path) == found.end())
        found.push_back(path);
  return found;
}

void keepBasebandFirmware(Stripper3& engine, const FileListRequest& request, const Value& manifest,
                          Value& keep) {
  const Value record = Stripper3::tables().knownProducts.get(request.product);
  // A personalized baseband comes only with identities that list it.
  if (record.get("BasebandIsPersonalized").boolValue() && !manifest.contains("BasebandFirmware")) return;
  const Value prefixes = record.get("BasebandFirmwarePrefix");
  LogObject& log = LogObject::sharedLogger();

  std::vector<std::string> found = basebandFiles(engine, prefixes);
  if (!found.empty()) {
    std::vector<std::string> names;
    for (const std::string& path : found) {
      engine.addSubpath(path, keep);
      names.push_back(lastPathComponent(path));
    }
    log.Log("+++ BuildManifest.plist BasebandFirmware found %@.", joinSortedNames(names));
    return;
  }
  std::vector<std::string> stems = prefixes.strings();
  if (stems.empty()) return;
  // Second-generation baseband files may be absent on purpose: a note, not a warning.
  if (hasPrefix(stems.front(), "BBX2", Compare::Literal))
    log.Log("+++ no BasebandFirmware files for BBX2, strip result may not work");
  else
    log.Log("!!! WRNING: found no BasebandFirmware files with prefixes %@.", joinSortedNames(stems));
}

void keepManifestItems(Stripper3& engine, const FileListRequest& request, const Value& identity,
                       Value& keep, Value& links) {
  LogObject& log = LogObject::sharedLogger();
  const Value deviceClass = identity.valueForKeyPath("Info.DeviceClass");
  const Value contents = identity.valueForKeyPath("Info.VariantContents");
  const Value manifest = identity.get("Manifest");

  for (const auto& [item, description] : manifest.dict()) {
    // Items without a path (digests, trust flags) name no file.
    const Value pathValue = description.valueForKeyPath("Info.Path");
    if (!pathValue.isString() || pathValue.str().empty()) continue;
    const std::string& path = pathValue.str();

    if (hasPrefix(path, "./", Compare::Literal)) {
      log.Log("!!! WARNING: BuildManifest.plist BuildIdentity %@ \"%@\" %@ malformed manifest item %@.",
              deviceClass, request.variant, item, path);
    } else if (item == "OS" && request.osSkipped) {
      log.Log("--- skipping %@ \"%@\" %@: %@.", deviceClass, request.variant, item, path);
      continue;
    } else {
      engine.addSubpath("Restore/" + path, keep);
    }

    if (item == "OS") engine.restoreImagesSet().insert(pathValue);
    if (containsIgnoringCase(item, "KernelCache")) engine.kernelCachesSet().insert(pathValue);
    if (item == "RestoreRamDisk") engine.ramDisksSet().insert(pathValue);

    // The restore process looks only in "Restore" itself for conventional names.
    if (path.find('/') == std::string::npos) {
      Value name = conventionalName(item, request, contents);
      if (name.isString() && !equalIgnoringCase(name.str(), path))
        links.set("Restore/" + name.str(), Value::makeData(path));
    }

    if (containsIgnoringCase(path, "Firmware/all_flash/all_flash."))
      engine.addSubpath(format("Restore/%@/manifest", deletingLastPathComponent(path)), keep);
  }
}

void keepDiagnostics(Stripper3& engine, const FileListRequest& request, Value& keep) {
  // That station installs no product diagnostics.
  if (request.variant.str() == "tendrix-support") return;
  for (const std::string& path : engine.submanifestStartingAt("Restore/Diags", false))
    if (containsIgnoringCase(path, request.product)) engine.addSubpath(path, keep);
}

}  // namespace

int32_t Stripper3::buildFilelistFromBuildManifest(Value& entry) {
  LogObject& log = LogObject::sharedLogger();
  FileListRequest request;
  request.product = entry.get("workProduct").str();
  request.processor = entry.get("workProcessorID");
  request.variant = entry.get("workVariant");
  const Value osImageTypes =
      tables().factoryVariants.get(request.variant.str()).get("PersonalizationOSImageTypes");
  request.osSkipped = osImageTypes.isString() && osImageTypes.str().empty();

  // Choose the identities. A missing one fails the step, but every device
  // class is still looked at so that the log names all that are missing.
  Value identities = Value::makeArray();
  bool failed = false;
  for (const std::string& deviceClass : entry.get("workDeviceClasses").strings()) {
    const Value byVariant = originalBuildIdentities_.get(deviceClass);
    const Value names = identityNames(deviceClass, request.variant, stripOptions_, referenceVariants_);
    for (const Value& name : names.arr()) {
      const Value found = name.isString() ? byVariant.get(name.str()) : Value();
      if (found.count() == 0) {
        log.Log("XXX ERROR: BuildIdentity %@ (%@) not found.", deviceClass, name);
        failed = true;
        break;
      }
      for (const Value& identity : found.arr()) identities.append(identity);
      recordKeptIdentities(strippedBuildIdentities_, deviceClass, name.str(), found);
    }
  }
  if (failed) return 1;

  Value keep = Value::makeSet();
  Value links = Value::makeDict();
  for (const Value& identity : identities.arr()) {
    const Value manifest = identity.get("Manifest");
    keepBasebandFirmware(*this, request, manifest, keep);
    keepManifestItems(*this, request, identity, keep, links);
    keepDiagnostics(*this, request, keep);
  }

  for (const Value& path : keep.setItems()) copiedFilelist_.insert(path);
  for (const auto& [path, target] : links.dict()) modifiedFilelist_.set(path, target);
  return 0;
}

}  // namespace velmar

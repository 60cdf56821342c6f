// The unpersonalized-install step of one product. Such an install does not
// go through the build identities: the restore process picks the kernel
// cache, the flash images, the DFU images and the baseband firmware from the
// bundle's folders by name. So this step keeps what those names match and
// fails as soon as one kind of file is missing.

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "engine/collection_extras.h"
#include "engine/log_object.h"
#include "engine/manifest/stripper3.h"

namespace velmar {

namespace {

bool containsAny(const std::string& path, const Value& needles) {
  for (const std::string& needle : needles.strings())
    if (containsIgnoringCase(path, needle)) return true;
  return false;
}

// A missing list prints as a missing object does.
std::string joinedOrNull(const Value* list) { return list ? joinSortedNames(list->strings()) : "(null)"; }

// Keeps the kernel caches of the product's stations; answers their names.
std::vector<std::string> keepKernelCaches(Stripper3& engine, const std::string& product,
                                          const std::string& processor, const Value& kernelCaches,
                                          Value& keep) {
  std::vector<std::string> found;
  for (const std::string& path : engine.submanifestStartingAt("Restore", false)) {
    const std::string name = lastPathComponent(path);
    if (!hasPrefix(name, "kernelcache.", Compare::CaseInsensitive)) continue;
    // Processors are shared between products; an FPGA build of the processor
    // belongs only to the product it names.
    bool forProcessor = containsIgnoringCase(path, processor) && !hasSuffix(path, "fpga", Compare::Literal);
    if (!forProcessor && !containsIgnoringCase(path, product)) continue;
    for (const std::string& kind : kernelCaches.strings()) {
      if (!containsIgnoringCase(path, kind)) continue;
      found.push_back(name);
      engine.addSubpath(path, keep);
      engine.kernelCachesSet().insert(Value(name));
    }
  }
  return found;
}

// Keeps the firmware folders of `listing` that belong to the device classes:
// those of the stations' types when the entry names types at all (an empty
// list matches nothing), otherwise every one but debug builds. Each chosen
// folder is kept with everything below it. Answers the chosen names.
std::vector<std::string> keepFirmwareFolders(Stripper3& engine, const std::vector<std::string>& listing,
                                             const Value& deviceClasses, const Value* types, Value& keep) {
  std::vector<std::string> found;
  for (const std::string& path : listing) {
    if (!containsAny(path, deviceClasses)) continue;
    if (types ? !containsAny(path, *types) : containsIgnoringCase(path, "debug")) continue;
    found.push_back(lastPathComponent(path));
    engine.addSubpath(path, keep);
    for (const std::string& below : engine.submanifestStartingAt(path, true)) keep.insert(Value(below));
  }
  return found;
}

}  // namespace

int32_t Stripper3::updateFilelistForUnpersonalizedInstall(Value& entry) {
  LogObject& log = LogObject::sharedLogger();
  const Value product = entry.get("workProduct");
  const Value processor = entry.get("workProcessorID");
  const Value deviceClasses = entry.get("workDeviceClasses");
  const Value* firmwareTypes = entry.find("workFirmwareTypesList");
  const Value* dfuTypes = entry.find("workDFUTypesList");
  Value keep = Value::makeSet();

  std::vector<std::string> found =
      keepKernelCaches(*this, product.str(), processor.str(), entry.get("workKernelCachesList"), keep);
  if (found.empty()) {
    log.Log("XXX ERROR no matching kernelcache found in bundle for %@ %@.", product, processor);
    return 1;
  }
  log.Log("+++ Restore kernelcache found %@.", joinSortedNames(found));

  std::vector<std::string> listing = submanifestStartingAt("Restore/Firmware/all_flash", false);
  if (listing.empty()) {
    log.Log("XXX ERROR no all_flash found in bundle.");
    return 1;
  }
  found = keepFirmwareFolders(*this, listing, deviceClasses, firmwareTypes, keep);
  if (found.empty()) {
    log.Log("XXX ERROR no matching all_flash found in bundle for %@, %@.", product,
            joinedOrNull(firmwareTypes));
    return 1;
  }
  log.Log("+++ Restore all_flash found %@.", joinSortedNames(found));

  addSubpath("Restore/Firmware/dfu", keep);
  listing = submanifestStartingAt("Restore/Firmware/dfu", false);
  if (listing.empty()) {
    log.Log("XXX ERROR no dfu found in bundle.");
    return 1;
  }
  found = keepFirmwareFolders(*this, listing, deviceClasses, dfuTypes, keep);
  if (found.empty()) {
    log.Log("XXX ERROR no matching dfu found in bundle for %@, %@.", product, joinedOrNull(dfuTypes));
    return 1;
  }
  log.Log("+++ Restore dfu found %@.", joinSortedNames(found));

  // Without identities nothing says whether the baseband is personalized:
  // a product with baseband prefixes needs its files either way.
  const Value prefixes = tables().knownProducts.get(product.str()).get("BasebandFirmwarePrefix");
  std::vector<std::string> basebands;
  for (const std::string& prefix : prefixes.strings())
    for (const std::string& path : submanifestStartingAt("Restore/Firmware", false))
      if (hasPrefix(lastPathComponent(path), prefix, Compare::Literal) &&
          std::find(basebands.begin(), basebands.end(), path) == basebands.end())
        basebands.push_back(path);
  if (!basebands.empty()) {
    std::vector<std::string> names;
    for (const std::string& path : basebands) {
      addSubpath(path, keep);
      names.push_back(lastPathComponent(path));
    }
    log.Log("+++ Restore.plist BasebandFirmware found %@.", joinSortedNames(names));
  } else if (prefixes.count() > 0) {
    log.Log("XXX ERROR found no BasebandFirmware files with prefixes %@.", joinSortedNames(prefixes.strings()));
    return 1;
  }

  for (const Value& path : keep.setItems()) copiedFilelist_.insert(path);
  return 0;
}

}  // namespace velmar

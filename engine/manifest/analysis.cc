// Bundle analysis: which products a bundle holds, and which products and
// stations a request may name.

#include <memory>

#include "engine/collection_extras.h"
#include "engine/log_object.h"
#include "engine/manifest/stripper3.h"

namespace velmar {

std::string productNameForDeviceClass(const std::string& deviceClass) {
  if (hasSuffix(deviceClass, "ap", Compare::CaseInsensitive))
    return deviceClass.substr(0, deviceClass.size() - 2);
  if (hasSuffix(deviceClass, "dev", Compare::CaseInsensitive))
    return deviceClass.substr(0, deviceClass.size() - 3);
  return deviceClass;
}

Value Stripper3::fetchKnownProductInfoFromBundle(const Value& bundlePath) {
  if (!bundlePath.isString()) return Value();
  LogObject& log = LogObject::sharedLogger();

  // The device classes the manifest builds for; without a readable manifest
  // every device class of the map counts.
  Value deviceClasses;
  PropertyList manifest(&bundleView(), "Restore/BuildManifest.plist");
  if (!manifest.load()) {
    log.Log("XXX ERROR: BuildManifest.plist fail to read.");
  } else {
    deviceClasses = Value::makeArray();
    for (const Value& identity : manifest.entries().get("BuildIdentities").arr())
      deviceClasses.append(identity.valueForKeyPath("Info.DeviceClass"));
  }

  PropertyList deviceMap(&bundleView(), "Restore/Firmware/Device_map.plist");
  if (!deviceMap.load()) {
    log.Log("XXX ERROR: Device_map.plist cannot be read.");
    return Value();
  }

  Value result = Value::makeDict();
  for (const auto& [deviceClass, entry] : deviceMap.entries().dict()) {
    Value platform = entry.get("Platform");
    Value productType = entry.get("ProductType");
    std::string product = productNameForDeviceClass(deviceClass);
    if (platform.isNull() || productType.isNull() || result.contains(product)) continue;
    if (!deviceClasses.isNull() && !deviceClasses.containsMember(Value(deviceClass))) continue;
    Value record = Value::makeDict();
    record.set("processor", platform);
    record.set("model", productType);
    record.set("noLLDiagsExtras", false);
    record.set("BasebandIsPersonalized", true);
    result.set(product, record);
  }
  return result;
}

std::vector<std::string> Stripper3::getknownProductsFrom(const Value& bundlePath) {
  Value& table = tables().knownProducts;
  Value info = bundlePath.isNull() ? Value() : fetchKnownProductInfoFromBundle(bundlePath);
  if (!info.isNull()) {
    // A product the table knows keeps the table's record; the bundle only
    // adds what the table lacks, then everything the bundle lacks goes.
    for (const auto& [product, record] : info.dict())
      if (!table.contains(product)) table.set(product, record);
    for (const std::string& product : table.dict().keys())
      if (!info.contains(product)) table.remove(product);
  }
  return tables().knownProductNames();
}

Value Stripper3::validProducts() {
  if (!buildManifest_->load()) {
    LogObject::sharedLogger().Log("XXX ERROR: BuildManifest.plist cannot be read.");
    return Value();
  }
  const Value& table = tables().knownProducts;
  Value products = Value::makeSet();
  for (const auto& [deviceClass, variants] : originalBuildIdentities_.dict()) {
    std::string product = productNameForDeviceClass(deviceClass);
    if (table.contains(product)) products.insert(Value(product));
  }
  return Value::stringArray(products.strings());
}

Value Stripper3::validFactoryVariants() {
  Value products = stripInfo_.get("Products");
  bool stripAP = boolForKey(stripOptions_, "stripAPFirmware");
  bool keepDev = boolForKey(stripOptions_, "keepDevFirmware");
  if (!buildManifest_->load()) {
    LogObject::sharedLogger().Log("XXX ERROR: BuildManifest.plist cannot be read.");
    return Value();
  }
  Value deviceClasses = Value::makeArray();
  for (const Value& product : products.arr()) {
    if (!stripAP) deviceClasses.append(format("%@ap", product));
    if (keepDev) deviceClasses.append(format("%@dev", product));
  }
  return factoryVariantsForDeviceClasses(deviceClasses);
}

}  // namespace velmar

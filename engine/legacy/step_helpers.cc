#include "engine/legacy/step_helpers.h"

#include "engine/legacy/stripper2.h"
#include "engine/log_object.h"

namespace velmar::legacy {

RestoreItem readRestoreItem(const Value& entry) {
  const BuiltInTables& tables = Stripper2::tables();
  RestoreItem item;
  item.product = entry.get("workProduct");
  item.board = item.product.description();
  item.deviceClass = entry.get("workDeviceClass");
  item.variant = entry.get("workVariant");
  item.modelList = entry.get("workModelList");
  item.processorID = entry.get("workProcessorID");
  if (item.processorID.isString()) item.processor = item.processorID.str();
  item.kernelCaches = entry.get("workKernelCachesList");
  item.firmwareTypes = entry.get("workFirmwareTypesList");
  item.dfuTypes = entry.get("workDFUTypesList");
  item.systemImageType = entry.get("workSystemImageType");
  const Value station = tables.factoryVariants.get(item.variant.description());
  item.personalizationVariant = station.get("PersonalizationVariants");
  item.osImageTypes = station.get("PersonalizationOSImageTypes");
  item.productInfo = tables.knownProducts.get(item.board);
  return item;
}

IdentityChoice chooseIdentities(const Value& manifest, const Value& deviceClass, const Value& variant) {
  IdentityChoice choice;
  for (const Value& identity : manifest.get("BuildIdentities").arr()) {
    const Value identityClass = identity.valueForKeyPath("Info.DeviceClass");
    if (identityClass != deviceClass) {
      if (!identityClass.isNull()) choice.scrub.insert(identityClass);
      continue;
    }
    const Value identityVariant = identity.valueForKeyPath("Info.Variant");
    const Value label = format("%@ (%@)", identityClass, identityVariant);
    if (identityVariant != variant) {
      choice.scrub.insert(label);
      continue;
    }
    choice.found.insert(label);
    choice.kept.append(identity);
  }
  return choice;
}

Value modelsOf(const Value& productInfo) {
  const Value model = productInfo.get("model");
  if (model.isNull() || model.isArray()) return model;
  return Value::makeArray({model});
}

void cutManifestProductTypes(const Value& manifest, Value& edited, const Value& productInfo) {
  const Value models = modelsOf(productInfo);
  Value found = Value::makeSet();
  Value scrub = Value::makeSet();
  Value kept = Value::makeArray();
  for (const Value& type : manifest.get("SupportedProductTypes").arr()) {
    if (models.containsMember(type)) {
      found.insert(type);
      kept.append(type);
    } else {
      scrub.insert(type);
    }
  }
  logFoundAndScrub(found, scrub, "+++ BuildManifest.plist SupportedProductTypes found %@.",
                   "--- BuildManifest.plist SupportedProductTypes scrub %@.");
  if (found.count() == 0)
    LogObject::sharedLogger().Log("!!! WARNING: BuildManifest.plist SupportedProductTypes %@ not found.",
                                  productInfo.get("model"));
  edited.set("SupportedProductTypes", kept);
}

void logFoundAndScrub(const Value& found, const Value& scrub, std::string_view foundFormat,
                      std::string_view scrubFormat) {
  LogObject& log = LogObject::sharedLogger();
  if (found.count() > 0) log.Log(foundFormat, found);
  if (scrub.count() > 0) log.Log(scrubFormat, scrub);
}

void logFoundAndScrub(const Value& label, const Value& found, const Value& scrub,
                      std::string_view foundFormat, std::string_view scrubFormat) {
  LogObject& log = LogObject::sharedLogger();
  if (found.count() > 0) log.Log(foundFormat, label, found);
  if (scrub.count() > 0) log.Log(scrubFormat, label, scrub);
}

Value asArray(const Value& set) {
  Value array = Value::makeArray();
  for (const Value& member : set.setItems()) array.append(member);
  return array;
}

}  // namespace velmar::legacy

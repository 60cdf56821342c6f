// Request pre-analysis: validate the request against the bundle, fill in
// defaults, and expand it into the ordered work list.

#include <algorithm>
#include <string>
#include <vector>

#include "engine/collection_extras.h"
#include "engine/log_object.h"
#include "engine/manifest/stripper3.h"

namespace velmar {

namespace {

// The names of `requested` that `valid` lacks, sorted and joined by ", ".
std::string unknownNames(const Value& requested, const Value& valid) {
  std::vector<std::string> unknown;
  for (const std::string& name : requested.strings())
    if (!valid.containsMember(Value(name))) unknown.push_back(name);
  // Refusals list unknown names in plain byte order, unlike logged lists.
  std::sort(unknown.begin(), unknown.end());
  unknown.erase(std::unique(unknown.begin(), unknown.end()), unknown.end());
  return joinNames(unknown);
}

// Adds a table value that is either one string or an array of them.
void addAll(Value& set, const Value& value) {
  if (value.isArray()) {
    for (const Value& item : value.arr()) set.insert(item);
  } else if (!value.isNull()) {
    set.insert(value);
  }
}

Value entryWith(const Value& base, const char* selector, std::string name) {
  Value entry = base;
  entry.set("workSelector", selector);
  entry.set("workName", std::move(name));
  return entry;
}

Value setAsArray(const Value& set) {
  Value a = Value::makeArray();
  for (const Value& item : set.setItems()) a.append(item);
  return a;
}

}  // namespace

Status Stripper3::preanalyzeRequest() {
  LogObject& log = LogObject::sharedLogger();
  const BuiltInTables& table = tables();
  Value products = stripInfo_.get("Products");
  Value variants = stripInfo_.get("FactoryVariants");
  const bool stripAP = boolForKey(stripOptions_, "stripAPFirmware");
  const bool keepDev = boolForKey(stripOptions_, "keepDevFirmware");

  // The closing steps see the products as requested: an empty request stays
  // empty here even though every valid product is worked on below.
  Value allProducts = Value::makeSet();
  for (const Value& p : products.arr()) allProducts.insert(p);
  Value allDeviceClasses = Value::makeSet();
  Value allModels = Value::makeSet();
  Value allProcessorIDs = Value::makeSet();
  Value allPersonalizationVariants = Value::makeSet();
  workList_ = Value::makeArray();

  Value valid = validProducts();
  if (products.count() == 0) products = valid;

  std::string unknown = unknownNames(products, valid);
  if (!unknown.empty()) {
    log.Log("XXX ERROR: products %@ not found.", unknown);
    return 1;
  }
  if (variants.count() > 0) {
    unknown = unknownNames(variants, validFactoryVariants());
    if (!unknown.empty()) {
      log.Log("XXX ERROR: variants %@ not found.", unknown);
      return 1;
    }
  }

  for (const Value& product : products.arr()) {
    Value deviceClasses = Value::makeArray();
    if (!stripAP) deviceClasses.append(format("%@ap", product));
    if (keepDev) deviceClasses.append(format("%@dev", product));

    // Stations computed for the first product serve every later one.
    if (variants.count() == 0) {
      std::vector<std::string> names = factoryVariantsForDeviceClasses(deviceClasses).strings();
      std::sort(names.begin(), names.end());
      variants = Value::stringArray(names);
    }

    Value model = table.knownProducts.valueForKeyPath(format("%@.model", product));
    Value processor = table.knownProducts.valueForKeyPath(format("%@.processor", product));
    for (const Value& d : deviceClasses.arr()) allDeviceClasses.insert(d);
    if (!model.isNull()) allModels.insert(model);
    if (!processor.isNull()) allProcessorIDs.insert(processor);

    Value base = Value::makeDict();
    base.set("workProduct", product);
    base.set("workDeviceClasses", deviceClasses);
    if (!model.isNull()) base.set("workModel", model);
    if (!processor.isNull()) base.set("workProcessorID", processor);

    Value kernelCaches = Value::makeSet();
    Value firmwareTypes = Value::makeSet();
    Value dfuTypes = Value::makeSet();
    for (const Value& variant : variants.arr()) {
      Value entry = entryWith(base, "buildFilelistFromBuildManifest:",
                              format("Strip Restore and BuildManifest.plist for %@ %@.", product, variant));
      entry.set("workVariant", variant);
      workList_.append(entry);

      addAll(kernelCaches, table.factoryVariants.valueForKeyPath(format("%@.KernelCaches", variant)));
      addAll(firmwareTypes, table.factoryVariants.valueForKeyPath(format("%@.FirmwareTypes", variant)));
      addAll(dfuTypes, table.factoryVariants.valueForKeyPath(format("%@.DFUTypes", variant)));

      const std::string& name = variant.str();
      if (name == "swdl-tmpl" || name == "ss-tmpl") {
        for (const Value& pv : stripOptions_.get(name).arr()) allPersonalizationVariants.insert(pv);
      } else {
        Value pv = table.factoryVariants.valueForKeyPath(format("%@.PersonalizationVariants", variant));
        if (!pv.isNull()) allPersonalizationVariants.insert(pv);
      }
    }

    if (checkUnpersonalized()) {
      Value entry = entryWith(base, "updateFilelistForUnpersonalizedInstall:",
                              format("Strip Restore for unpersonalized install for %@.", product));
      entry.set("workKernelCachesList", setAsArray(kernelCaches));
      entry.set("workFirmwareTypesList", setAsArray(firmwareTypes));
      entry.set("workDFUTypesList", setAsArray(dfuTypes));
      workList_.append(entry);
    }
  }

  Value common = Value::makeDict();
  common.set("workAllProducts", allProducts);
  common.set("workAllDeviceClasses", allDeviceClasses);
  common.set("workAllModels", allModels);
  common.set("workAllProcessorIDs", allProcessorIDs);
  common.set("workAllPersonalizationVariants", allPersonalizationVariants);
  workList_.append(entryWith(common, "stripBuildManifest:", "Finish stripping BuildManifest.plist"));
  workList_.append(entryWith(common, "stripRestorePlist:", "Cross check and strip Restore.plist"));
  workList_.append(entryWith(common, "stripCommonWork:", "Strip support files"));
  workList_.append(entryWith(common, "stripInvisibles:", "Strip invisibles"));
  workList_.append(entryWith(common, "leaveCookie:", "Leaving cookie for Santa"));

  log.Log(">>> Work List");
  log.PrettyPrint(workList_);
  return 0;
}

Value Stripper3::factoryVariantsForDeviceClasses(const Value& deviceClasses) {
  if (deviceClasses.isNull()) return Value();
  const Value& table = tables().factoryVariants;

  Value candidates = Value::makeSet();
  for (const std::string& station : table.dict().keys()) candidates.insert(Value(station));

  // Personalization variant -> the stations built from it.
  Value stations = Value::makeDict();
  auto addStation = [&](const std::string& personalization, const char* station) {
    stations.slot(personalization).append(station);
  };
  for (const auto& [station, row] : table.dict()) {
    Value pv = row.get("PersonalizationVariants");
    if (pv.isString()) addStation(pv.str(), station.c_str());
  }
  // A template station stands for exactly the variants the caller listed.
  for (const char* tmpl : {"swdl-tmpl", "ss-tmpl"})
    for (const std::string& pv : stripOptions_.get(tmpl).strings()) addStation(pv, tmpl);

  for (const Value& deviceClass : deviceClasses.arr()) {
    Value supported = Value::makeSet();
    for (const auto& [variant, identities] : originalBuildIdentities_.get(deviceClass.str()).dict())
      for (const Value& station : stations.get(variant).arr()) supported.insert(station);
    Value kept = Value::makeSet();
    for (const Value& station : candidates.setItems())
      if (supported.containsMember(station)) kept.insert(station);
    candidates = kept;
  }
  return Value::stringArray(candidates.strings());
}

}  // namespace velmar

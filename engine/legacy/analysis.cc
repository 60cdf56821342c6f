// The validity queries the front end asks before a strip, and the
// pre-analysis that turns the request into the work list.

#include "engine/collection_extras.h"
#include "engine/legacy/stripper2.h"
#include "engine/log_object.h"

namespace velmar {

namespace {

constexpr char kBuildManifest[] = "Restore/BuildManifest.plist";
constexpr char kRestorePlist[] = "Restore/Restore.plist";

// A table value that is one string or an array of them, as an array.
Value wrapped(const Value& value) {
  if (value.isNull() || value.isArray()) return value;
  return Value::makeArray({value});
}

Value entryWith(const Value& base, const char* selector, std::string name) {
  Value entry = base;
  entry.set("workSelector", selector);
  entry.set("workName", std::move(name));
  return entry;
}

void setIfFound(Value& entry, const char* key, const Value& value) {
  if (!value.isNull()) entry.set(key, value);
}

}  // namespace

Value Stripper2::validProducts() {
  Value manifest = mutableDictionaryAtSubpath(kBuildManifest);
  if (manifest.isNull()) {
    LogObject::sharedLogger().Log("XXX ERROR: BuildManifest.plist cannot be read.");
    return Value::makeArray();
  }
  Value products = Value::makeSet();
  for (const Value& identity : manifest.get("BuildIdentities").arr()) {
    Value deviceClass = identity.valueForKeyPath("Info.DeviceClass");
    if (!deviceClass.isString()) continue;
    std::string name = deviceClass.str();
    if (hasSuffix(name, "ap", Compare::CaseInsensitive))
      name.resize(name.size() - 2);
    else if (hasSuffix(name, "dev", Compare::CaseInsensitive))
      name.resize(name.size() - 3);
    products.insert(Value(name));
  }
  return Value::stringArray(products.strings());
}

Value Stripper2::validFactoryVariants() {
  Value manifest = mutableDictionaryAtSubpath(kBuildManifest);
  if (manifest.isNull()) {
    LogObject::sharedLogger().Log("XXX ERROR: BuildManifest.plist cannot be read.");
    return Value::makeArray();
  }
  const bool stripAP = boolForKey(stripOptions_, "stripAPFirmware");
  const bool keepDev = boolForKey(stripOptions_, "keepDevFirmware");
  const Value products = stripInfo_.get("products");
  const Value& variants = tables().factoryVariants;

  Value result = Value::makeSet();
  for (const auto& [station, row] : variants.dict()) {
    const Value pv = row.get("PersonalizationVariants");
    for (const Value& identity : manifest.get("BuildIdentities").arr()) {
      if (identity.valueForKeyPath("Info.Variant") != pv) continue;
      const std::string deviceClass = identity.valueForKeyPath("Info.DeviceClass").description();
      for (const std::string& product : products.strings()) {
        if ((!stripAP && equalIgnoringCase(deviceClass, product + "ap")) ||
            (keepDev && equalIgnoringCase(deviceClass, product + "dev"))) {
          result.insert(Value(station));
          break;
        }
      }
    }
  }
  return Value::stringArray(result.strings());
}

Value Stripper2::factoryVariantsForDeviceClasses(const Value& deviceClasses, const Value& buildManifest) {
  Value result = Value::makeArray();
  const std::vector<std::string> stations = knownFactoryVariants();
  const Value& table = tables().factoryVariants;
  for (const Value& identity : buildManifest.get("BuildIdentities").arr()) {
    const Value deviceClass = identity.valueForKeyPath("Info.DeviceClass");
    const Value variant = identity.valueForKeyPath("Info.Variant");
    if (deviceClass.isNull() || !deviceClasses.containsMember(deviceClass)) continue;
    // An identity per station: two identities of one class and variant
    // name the station twice, and the work list then serves it twice.
    for (const std::string& station : stations)
      if (table.get(station).get("PersonalizationVariants") == variant) result.append(Value(station));
  }
  return result;
}

Status Stripper2::preanalyzeRequest() {
  LogObject& log = LogObject::sharedLogger();
  const BuiltInTables& table = tables();
  Value products = stripInfo_.get("products");
  const Value requestedVariants = stripInfo_.get("FactoryVariants");
  const bool stripAP = boolForKey(stripOptions_, "stripAPFirmware");
  const bool keepDev = boolForKey(stripOptions_, "keepDevFirmware");
  Value allDeviceClasses = Value::makeSet();
  Value allProducts = Value::makeSet();
  Value allPersonalizationVariants = Value::makeSet();
  workList_ = Value::makeArray();

  const Value buildManifest = mutableDictionaryAtSubpath(kBuildManifest);
  const Value restorePlist = mutableDictionaryAtSubpath(kRestorePlist);
  if (checkPersonalized() && buildManifest.isNull()) {
    log.Log("XXX ERROR: BuildManifest.plist cannot be read.");
    return 1;
  }
  if (checkUnpersonalized() && restorePlist.isNull()) {
    log.Log("XXX ERROR: Restore.plist cannot be read.");
    return 1;
  }
  if (products.count() == 0) products = Value::stringArray(knownProducts());

  for (const Value& product : products.arr()) {
    const std::string board = lower(product.description());
    const Value candidates = Value::makeArray(
        {Value(stripAP ? std::string() : board + "ap"), Value(keepDev ? board + "dev" : std::string())});
    for (const Value& deviceClass : candidates.arr()) {
      if (deviceClass.str().empty()) continue;
      const Value variants = requestedVariants.count() > 0
                                 ? requestedVariants
                                 : factoryVariantsForDeviceClasses(candidates, buildManifest);
      for (const Value& variant : variants.arr()) {
        if (variant.description().empty()) continue;
        allDeviceClasses.insert(deviceClass);
        allProducts.insert(product);
        auto productFact = [&](const char* key) {
          return table.knownProducts.valueForKeyPath(format("%@.%@", product, key));
        };
        auto variantFact = [&](const char* key) {
          return table.factoryVariants.valueForKeyPath(format("%@.%@", variant, key));
        };
        Value base = Value::makeDict();
        base.set("workVariant", variant);
        base.set("workProduct", product);
        base.set("workDeviceClass", deviceClass);
        setIfFound(base, "workModelList", wrapped(productFact("model")));
        setIfFound(base, "workProcessorID", productFact("processor"));
        setIfFound(base, "workKernelCachesList", wrapped(variantFact("KernelCaches")));
        setIfFound(base, "workFirmwareTypesList", wrapped(variantFact("FirmwareTypes")));
        setIfFound(base, "workSystemImageType", variantFact("SystemImageTypes"));

        if (checkPersonalized()) {
          workList_.append(entryWith(base, "stripRestoreUsingHexloom:",
                                     format("Strip Restore and BuildManifest.plist for %@ %@.", deviceClass,
                                            variant)));
          workList_.append(entryWith(base, "stripRestorePlistUsingHexloom:",
                                     format("Strip Restore.plist using BuildManifest.plist for %@ %@.",
                                            deviceClass, variant)));
        }
        if (checkUnpersonalized()) {
          Value withDFU = base;
          setIfFound(withDFU, "workDFUTypesList", wrapped(variantFact("DFUTypes")));
          workList_.append(entryWith(withDFU, "stripRestoreWithoutHexloom:",
                                     format("Strip Restore and Restore.plist for %@ %@.", deviceClass, variant)));
          workList_.append(entryWith(base, "stripBuildManifestWithoutHexloom:",
                                     format("Strip BuildManifest.plist using Restore.plist for %@ %@.",
                                            deviceClass, variant)));
        }
        const Value pv = variantFact("PersonalizationVariants");
        if (!pv.isNull()) allPersonalizationVariants.insert(pv);
      }
    }
  }

  Value common = Value::makeDict();
  common.set("workDeviceClassList", Value::stringArray(allDeviceClasses.strings()));
  common.set("workProductList", Value::stringArray(allProducts.strings()));
  common.set("workPersonalizationVariantList", Value::stringArray(allPersonalizationVariants.strings()));
  workList_.append(entryWith(common, "stripCommonWork:", "Strip support files"));
  workList_.append(entryWith(common, "mergeStrippedManifests:", "Merging stripped manifests"));
  workList_.append(entryWith(common, "mergeModifiedFiles:", "Merging modified files"));
  workList_.append(entryWith(common, "stripInvisibles:", "Strip invisibles"));
  workList_.append(entryWith(common, "leaveCookie:", "Leaving cookie for Santa"));

  log.Log(">>> Work List");
  log.PrettyPrint(workList_);
  return 0;
}

}  // namespace velmar

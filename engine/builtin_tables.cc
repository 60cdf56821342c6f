#include "engine/builtin_tables.h"

#include <algorithm>

#include "engine/collection_extras.h"

namespace velmar {

namespace {

Value strings(std::initializer_list<const char*> items) {
  Value a = Value::makeArray();
  for (const char* s : items) a.append(s);
  return a;
}

}  // namespace

Value builtInProcessorMap() {
  Value m = Value::makeDict();
  const char* rows[][2] = {
      {"xr2100x", "C1"},  {"xr2120x", "C2"},  {"xr2122x", "C2a"}, {"xr2130x", "C3"},
      {"xr1920x", "D2"},  {"xr2140x", "C4p"}, {"xr2142x", "C4a"}, {"xr2145x", "C4g"},
      {"xr2147x", "C4i"}, {"xr2150x", "C5p"}, {"xr2155x", "C5g"}, {"xr2160x", "C6p"},
      {"u9000", "C7p"},
  };
  for (auto& row : rows) m.set(row[0], row[1]);
  return m;
}

Value builtInKnownProducts() {
  struct Row {
    const char* board;
    const char* processor;
    const char* model;
    const char* basebandPrefix;  // null: key absent
    int basebandIsPersonalized;  // -1: key absent
    int noLLDiagsExtras;         // -1: key absent
  };
  const Row rows[] = {
      {"r31", "xr2130x", "Tabula1,1", nullptr, 0, -1},
      {"r23", "xr2122x", "Lumen3,1", nullptr, -1, -1},
      {"r13", "xr2120x", "Corvid2,1", "BBX2", 0, -1},
      {"r22", "xr1920x", "Lumen2,1", nullptr, -1, 0},
      {"r12", "xr2100x", "Corvid1,2", "BBX2", 0, 1},
      {"r21", "xr2100x", "Lumen1,1", nullptr, -1, 1},
      {"r11", "xr2100x", "Corvid1,1", "BBX0", 0, 1},
  };
  Value table = Value::makeDict();
  for (const Row& r : rows) {
    Value p = Value::makeDict();
    p.set("processor", r.processor);
    p.set("model", r.model);
    if (r.basebandPrefix) p.set("BasebandFirmwarePrefix", strings({r.basebandPrefix}));
    if (r.basebandIsPersonalized >= 0) p.set("BasebandIsPersonalized", r.basebandIsPersonalized == 1);
    if (r.noLLDiagsExtras >= 0) p.set("noLLDiagsExtras", r.noLLDiagsExtras == 1);
    table.set(r.board, p);
  }
  return table;
}

Value builtInFactoryVariants() {
  const Value relDev = strings({"Release", "Development"});
  const Value dev = strings({"Development"});
  const Value rel = strings({"Release"});
  const Value factoryfa = strings({"factoryfa"});
  const Value production = strings({"production"});
  const Value DEV = strings({"DEVELOPMENT"});
  const Value REL_DEV = strings({"RELEASE", "DEVELOPMENT"});
  const Value none;  // FirmwareTypes absent

  struct Row {
    const char* name;
    const char* personalization;
    const char* systemImage;
    const char* osImage;
    Value kernelCaches;
    Value firmwareTypes;
    Value dfuTypes;
  };
  const Row rows[] = {
      {"dfu", "Factory - DFU", "Low Level Diags Extras", "Low Level Diags Extras", relDev, factoryfa, DEV},
      {"bb-dfu", "Factory - Baseband DFU", "Low Level Diags Extras", "Low Level Diags Extras", relDev, factoryfa, DEV},
      {"mac-swdl", "macOS Factory - Software Download", "NonUI Internal", "NonUIOS", relDev, factoryfa, DEV},
      {"swdl", "Factory - Software Download", "NonUI Internal", "NonUIOS", relDev, factoryfa, DEV},
      {"support", "Factory - Support", "", "", dev, none, DEV},
      {"tendrix-support", "Tendrix - Support", "", "", dev, production, DEV},
      {"vendor-support", "Vendor UI Factory Support", "", "", dev, none, DEV},
      {"factory-ui-support", "Factory UI Factory Support", "", "", dev, none, DEV},
      {"recovery", "Recovery Customer Install", "User", "UserOS", rel, production, REL_DEV},
      {"ss", "Factory - Shipping Settings", "User", "UserOS", rel, production, REL_DEV},
      {"darwin-ss", "Factory - Darwin Shipping Settings", "User", "UserOS", rel, production, REL_DEV},
      {"vendor", "Vendor Erase Install", "", "vendorOS", relDev, none, REL_DEV},
      {"vendor-ui", "Vendor UI Erase Install", "", "vendorOS", relDev, none, REL_DEV},
      {"factory-ui", "Factory UI Erase Install", "", "FactoryUIOS", relDev, none, REL_DEV},
      {"F5-demo", "F5 Retail Demo Install", "User", "UserOS", rel, production, REL_DEV},
      {"oqc-bb-unlock", "Factory - OQC Desense", "", "", rel, production, DEV},
      {"cti", "Factory - Shipping Settings", "", "", rel, production, REL_DEV},
      {"vendor-internal", "Vendor Install", "Vendor Internal", "VendorInternalOS", rel, production, strings({"RELEASE"})},
      {"desense", "Desense Install", "Desense", "DesenseOS", rel, production, REL_DEV},
      {"repair", "Repair - Shipping Settings", "User", "UserOS", relDev, production, REL_DEV},
      {"nandnuker", "Factory - Software Download", "", "", dev, factoryfa, DEV},
      {"internal-install", "Internal Install", "Internal", "FullInternalOS", relDev, production, DEV},
      {"internal-dev", "Internal Development", "Internal", "FullInternalOS", dev, strings({"firmwaredevelopment"}), DEV},
      {"internal-debug", "Internal Debug", "Internal", "FullInternalOS", dev, strings({"debug"}), strings({"DEBUG"})},
      {"debug", "Internal Development", "Internal", "FullInternalOS", relDev,
       strings({"factoryfa", "factorysa", "production", "firmwaredevelopment", "debug"}),
       strings({"RELEASE", "DEVELOPMENT", "DEBUG"})},
      {"swdl-tmpl", "Customized Factory - Software Download", "NonUI Internal", "NonUIOS", relDev, factoryfa, DEV},
      {"ss-tmpl", "Customized Factory - Shipping Settings", "User", "UserOS", rel, production, REL_DEV},
      {"research", "Research Customer Erase Install", "User", "UserOS", rel, production, REL_DEV},
  };
  Value table = Value::makeDict();
  for (const Row& r : rows) {
    Value v = Value::makeDict();
    v.set("PersonalizationVariants", r.personalization);
    v.set("SystemImageTypes", r.systemImage);
    v.set("PersonalizationOSImageTypes", r.osImage);
    v.set("KernelCaches", r.kernelCaches);
    if (!r.firmwareTypes.isNull()) v.set("FirmwareTypes", r.firmwareTypes);
    v.set("DFUTypes", r.dfuTypes);
    table.set(r.name, v);
  }
  return table;
}

Value builtInToolMap() {
  Value m = Value::makeDict();
  const char* rows[][2] = {
      {"Quarry", "Quarry"}, {"LoaderX", "ldrx"}, {"XMallet", "mallet"}, {"XRTOS", "termx"},
      {"SWARM", "swarm"},   {"RMX", "rmx"},      {"AuxFirmwareUpdater", "auxf"},
  };
  for (auto& row : rows) m.set(row[0], row[1]);
  return m;
}

void BuiltInTables::initialize() {
  if (processorMap.isNull()) processorMap = builtInProcessorMap();
  if (knownProducts.isNull()) knownProducts = builtInKnownProducts();
  if (factoryVariants.isNull()) factoryVariants = builtInFactoryVariants();
  if (toolMap.isNull()) toolMap = builtInToolMap();
}

std::vector<std::string> sortedKeys(const Value& dict) {
  std::vector<std::string> keys = dict.dict().keys();
  sortIgnoringCase(keys);
  return keys;
}

std::vector<std::string> BuiltInTables::knownProductNames() const { return sortedKeys(knownProducts); }
std::vector<std::string> BuiltInTables::knownFactoryVariantNames() const {
  return sortedKeys(factoryVariants);
}
std::vector<std::string> BuiltInTables::toolNames() const { return sortedKeys(toolMap); }

Value BuiltInTables::queryExcludeFileName(const std::string& toolName) const {
  return toolMap.get(toolName);
}

}  // namespace velmar

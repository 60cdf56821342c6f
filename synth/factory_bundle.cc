#include "synth/factory_bundle.h"

#include <algorithm>

#include "base/format.h"
#include "engine/builtin_tables.h"
#include "synth/sample_bundles.h"

namespace velmar::synth {

namespace {

// The processors the built-in tables know, so every product maps to a
// chip generation as a real one would.
std::vector<std::string> builtInProcessors() { return builtInProcessorMap().dict().keys(); }

}  // namespace

std::vector<std::string> factoryPersonalizationVariants() {
  std::vector<std::string> names;
  const Value table = builtInFactoryVariants();
  for (const auto& [station, record] : table.dict()) {
    const Value variant = record.get("PersonalizationVariants");
    if (!variant.isString()) continue;
    if (std::find(names.begin(), names.end(), variant.str()) == names.end())
      names.push_back(variant.str());
  }
  return names;
}

std::string factoryBoard(size_t i) { return format("f%03lu", static_cast<unsigned long>(i)); }

BundleDescription factoryBundle(size_t products, size_t extraItems) {
  BundleDescription d;
  d.productVersion = "9.2";
  d.buildVersion = "9C410";
  const std::vector<std::string> processors = builtInProcessors();
  const std::vector<std::string> variants = factoryPersonalizationVariants();
  for (size_t i = 0; i < products; ++i) {
    ProductRecipe p;
    p.board = factoryBoard(i);
    p.processor = processors[i % processors.size()];
    p.model = format("Forge%lu,1", static_cast<unsigned long>(i + 1));
    p.partBase = std::to_string(7000 + i);
    p.basebandFile = format("BBXF_%lu.10.02.Release.bbfw", static_cast<unsigned long>(i));
    p.boardId = 0x200 + 2 * static_cast<long long>(i);
    p.apVariants = variants;
    p.devVariants = variants;
    p.extraFirmwareItems = static_cast<int>(extraItems);
    addProduct(d, p);

    d.support.debugFiles.push_back(p.board + "ap.symbols");
    d.support.rpkgs.push_back(format("%@_%@.RPKG", p.board, d.buildVersion));
    d.support.bundleImages.push_back(p.board + "-front.png");
  }

  SupportItems& s = d.support;
  s.rpkgs.push_back(format("FullInternal_%@.RPKG", d.buildVersion));
  s.homeDiagnosticTarget = "038-9101-001.dmg";
  s.sdkTarget = "038-9102-001.dmg";
  s.restoreToolsTarget = "038-9103-001.dmg";
  s.factoryDiskImage = true;
  s.factoryDiskImageSignature = true;
  return d;
}

}  // namespace velmar::synth

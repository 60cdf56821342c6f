#include "app/bundle_scan.h"

#include "app/tool_output.h"

namespace velmar::app {

NameList queryKnownProducts(const QueryFunction& query, const std::string& sourcePath) {
  return sortedNamesFromFirstArray(query(knownProductsArguments(sourcePath)));
}

NameList queryKnownVariants(const QueryFunction& query) {
  return sortedNamesFromFirstArray(query(knownVariantsArguments()));
}

std::optional<NameList> queryValidProducts(const QueryFunction& query, const std::string& sourcePath,
                                           bool keepDevFirmware, bool keepAPFirmware) {
  Value replies = query(validProductsArguments(sourcePath, keepDevFirmware, keepAPFirmware));
  Value reply = firstDictionaryWithKey(replies, "validProducts");
  if (reply.isNull()) return std::nullopt;
  return reply.get("validProducts").strings();
}

VariantsByProduct queryValidVariants(const QueryFunction& query, const NameList& products,
                                     const std::string& sourcePath, bool keepDevFirmware,
                                     bool keepAPFirmware) {
  VariantsByProduct result;
  for (const auto& product : products) {
    Value replies =
        query(validVariantsArguments(product, sourcePath, keepDevFirmware, keepAPFirmware));
    Value reply = firstDictionaryWithKey(replies, "validVariants");
    if (!reply.isNull()) result[product] = reply.get("validVariants").strings();
  }
  return result;
}

ScanResult scanBundle(const UserDefaults& defaults, const NameList& previousValidProducts,
                      const QueryFunction& query) {
  std::string source = sourcePath(defaults);
  bool keepDev = defaults.boolForKey(kKeepDevFirmwareKey);
  bool keepAP = defaults.boolForKey(kKeepAPFirmwareKey);
  ScanResult result;
  result.knownProducts = queryKnownProducts(query, source);
  result.validProducts =
      queryValidProducts(query, source, keepDev, keepAP).value_or(previousValidProducts);
  result.validVariantsForEachProduct =
      queryValidVariants(query, result.validProducts, source, keepDev, keepAP);
  return result;
}

void applyScan(SelectionModel& model, ScanResult result) {
  model.setKnownProducts(std::move(result.knownProducts));
  model.setValidProducts(std::move(result.validProducts));
  model.setValidVariantsForEachProduct(std::move(result.validVariantsForEachProduct));
  model.updateFactoryVariants();
}

}  // namespace velmar::app

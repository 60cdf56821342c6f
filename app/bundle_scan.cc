#include "app/bundle_scan.h"

#include "app/paths.h"
#include "app/tool_output.h"
#include "base/format.h"

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
  ReplyFunction ask = [&query](const Arguments& arguments) { return ToolReply{query(arguments), {}, false}; };
  return scanBundle(defaults, previousValidProducts, ask, ScanProgress());
}

ScanResult scanBundle(const UserDefaults& defaults, const NameList& previousValidProducts,
                      const ReplyFunction& ask, const ScanProgress& progress) {
  std::string source = sourcePath(defaults);
  bool keepDev = defaults.boolForKey(kKeepDevFirmwareKey);
  bool keepAP = defaults.boolForKey(kKeepAPFirmwareKey);
  ScanResult result;
  result.sourcePath = source;

  ToolReply known = ask(knownProductsArguments(source));
  if ((result.cancelled = known.cancelled)) return result;
  result.knownProducts = sortedNamesFromFirstArray(known.replies);

  ToolReply valid = ask(validProductsArguments(source, keepDev, keepAP));
  if ((result.cancelled = valid.cancelled)) return result;
  Value validReply = firstDictionaryWithKey(valid.replies, "validProducts");
  result.validProducts = validReply.isNull() ? previousValidProducts : validReply.get("validProducts").strings();
  if (validReply.isNull() || result.validProducts.empty()) {
    result.failure = !valid.failure.empty()   ? valid.failure
                     : !known.failure.empty() ? known.failure
                                              : "it holds no product that can be stripped.";
  }

  for (size_t i = 0; i < result.validProducts.size(); ++i) {
    const std::string& product = result.validProducts[i];
    if (progress) progress(i + 1, result.validProducts.size());
    ToolReply variants = ask(validVariantsArguments(product, source, keepDev, keepAP));
    if ((result.cancelled = variants.cancelled)) return result;
    Value reply = firstDictionaryWithKey(variants.replies, "validVariants");
    if (!reply.isNull()) result.validVariantsForEachProduct[product] = reply.get("validVariants").strings();
  }
  return result;
}

std::string scanProgressText(size_t number, size_t count) {
  return format("product %d of %d", static_cast<long long>(number), static_cast<long long>(count));
}

std::string scanOutcomeLine(const ScanResult& result) {
  const std::string name = lastPathComponent(result.sourcePath);
  if (result.cancelled) return format("Scanning \"%@\" cancelled.", name);
  if (result.failure.empty()) return std::string();
  return format("\"%@\" cannot be used: %@", name, result.failure);
}

void applyScan(SelectionModel& model, ScanResult result) {
  model.setKnownProducts(std::move(result.knownProducts));
  model.setValidProducts(std::move(result.validProducts));
  model.setValidVariantsForEachProduct(std::move(result.validVariantsForEachProduct));
  model.updateFactoryVariants();
}

}  // namespace velmar::app

// The questions the front end asks the tool about the known names and about
// a chosen bundle, and the scan that asks them all in turn. Each takes the
// query as a function (ToolQuery::queryStripperWithArguments in the
// application) so a scan can run on a worker thread and be tested without
// the tool. A failed query (null) reads as an empty reply.

#ifndef VELMAR_APP_BUNDLE_SCAN_H_
#define VELMAR_APP_BUNDLE_SCAN_H_

#include <functional>
#include <optional>
#include <string>

#include "app/selection.h"
#include "app/tool_arguments.h"
#include "app/tool_query.h"
#include "app/user_defaults.h"
#include "base/value.h"

namespace velmar::app {

// Runs the tool with the arguments; the replies as an array Value, or null.
using QueryFunction = std::function<Value(const Arguments&)>;
// The same with the tool's reason for a failure, and a cancelled flag
// (ToolQuery::ask with the scan's TaskCancel).
using ReplyFunction = std::function<ToolReply(const Arguments&)>;
// Told before each valid-variants query: product `number` (from 1) of `count`.
using ScanProgress = std::function<void(size_t number, size_t count)>;

// The tool's known products, or a bundle's when `sourcePath` is not empty;
// sorted, empty when there is no array reply (setupProducts).
NameList queryKnownProducts(const QueryFunction& query, const std::string& sourcePath);

// The tool's known factory variants, sorted (setupVariants).
NameList queryKnownVariants(const QueryFunction& query);

// The bundle's valid products, or nothing when no reply holds
// `validProducts` (the previous list then stands).
std::optional<NameList> queryValidProducts(const QueryFunction& query, const std::string& sourcePath,
                                           bool keepDevFirmware, bool keepAPFirmware);

// One valid-variants query per product, in order; a product without a
// `validVariants` reply gets no entry.
VariantsByProduct queryValidVariants(const QueryFunction& query, const NameList& products,
                                     const std::string& sourcePath, bool keepDevFirmware,
                                     bool keepAPFirmware);

struct ScanResult {
  std::string sourcePath;  // the bundle asked about, "~" expanded
  NameList knownProducts;
  NameList validProducts;  // the new list, or the previous one when there was no reply
  VariantsByProduct validVariantsForEachProduct;
  // Set when the bundle offers nothing to strip (no valid-products reply, or
  // an empty one): why, in the tool's words when it gave any.
  std::string failure;
  // The user stopped the scan; the lists are then incomplete and not to be used.
  bool cancelled = false;
};

// The whole scan of lastSourceSelected (scanBundleThread): known products of
// the bundle, valid products, valid variants of each valid product.
// `previousValidProducts` stands when the bundle gives no valid-products
// reply, and its products are then the ones asked about.
ScanResult scanBundle(const UserDefaults& defaults, const NameList& previousValidProducts,
                      const QueryFunction& query);
// The same scan, saying why it failed, telling its progress, and stopping
// at the first cancelled query.
ScanResult scanBundle(const UserDefaults& defaults, const NameList& previousValidProducts,
                      const ReplyFunction& ask, const ScanProgress& progress);

// "product 37 of 152": which valid-variants query of how many is running.
std::string scanProgressText(size_t number, size_t count);

// The line under the source field after a scan that found nothing to strip
// or was cancelled; empty after one that did.
std::string scanOutcomeLine(const ScanResult& result);

// Puts a scan's lists into the model and applies the selection rule, as the
// main thread does when the scan hands over.
void applyScan(SelectionModel& model, ScanResult result);

}  // namespace velmar::app

#endif  // VELMAR_APP_BUNDLE_SCAN_H_

#include "app/ui/bundle_scanner.h"

namespace velmar::app {

BundleScanner::BundleScanner(QueryFunction query, QObject* parent)
    : QObject(parent), query_(std::move(query)) {}

BundleScanner::~BundleScanner() {
  // The hand-over queued for this object dies with it; the queries must
  // not outlive what they use.
  if (worker_.joinable()) worker_.join();
}

bool BundleScanner::start(const UserDefaults& defaults, const NameList& previousValidProducts) {
  if (scanning_) return false;
  if (worker_.joinable()) worker_.join();  // the last scan's thread has ended its work
  scanning_ = true;
  worker_ = std::thread([this, defaults, previousValidProducts] {
    ScanResult result = scanBundle(defaults, previousValidProducts, query_);
    QMetaObject::invokeMethod(this, [this, result] { handOver(result); }, Qt::QueuedConnection);
  });
  return true;
}

void BundleScanner::handOver(const ScanResult& result) {
  scanning_ = false;
  emit scanned(result);
}

}  // namespace velmar::app

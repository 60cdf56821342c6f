#include "app/ui/bundle_scanner.h"

namespace velmar::app {

BundleScanner::BundleScanner(AskFunction ask, QObject* parent) : QObject(parent), ask_(std::move(ask)) {}

BundleScanner::~BundleScanner() {
  // The hand-over queued for this object dies with it; the queries must
  // not outlive what they use.
  stopAndWait();
}

bool BundleScanner::start(const UserDefaults& defaults, const NameList& previousValidProducts) {
  if (scanning_) return false;
  if (worker_.joinable()) worker_.join();  // the last scan's thread has ended its work
  scanning_ = true;
  cancel_.reset();
  worker_ = std::thread([this, defaults, previousValidProducts] {
    ReplyFunction ask = [this](const Arguments& arguments) { return ask_(arguments, &cancel_); };
    ScanProgress told = [this](size_t number, size_t count) {
      QMetaObject::invokeMethod(
          this, [this, number, count] { emit progress(static_cast<int>(number), static_cast<int>(count)); },
          Qt::QueuedConnection);
    };
    ScanResult result = scanBundle(defaults, previousValidProducts, ask, told);
    QMetaObject::invokeMethod(this, [this, result] { handOver(result); }, Qt::QueuedConnection);
  });
  return true;
}

void BundleScanner::cancel() {
  if (scanning_) cancel_.request();
}

void BundleScanner::stopAndWait() {
  cancel();
  if (worker_.joinable()) worker_.join();
}

void BundleScanner::handOver(const ScanResult& result) {
  scanning_ = false;
  emit scanned(result);
}

}  // namespace velmar::app

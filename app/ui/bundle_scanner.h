// BundleScanner: runs the scan of a bundle (app/bundle_scan.h) on a worker
// thread, so the window keeps drawing while the tool is asked its questions,
// and hands the result to the main thread. One scan at a time.

#ifndef VELMAR_APP_UI_BUNDLE_SCANNER_H_
#define VELMAR_APP_UI_BUNDLE_SCANNER_H_

#include <QObject>
#include <thread>

#include "app/bundle_scan.h"

namespace velmar::app {

class BundleScanner : public QObject {
  Q_OBJECT

 public:
  explicit BundleScanner(QueryFunction query, QObject* parent = nullptr);
  ~BundleScanner() override;  // waits for a running scan

  // False, and nothing starts, while a scan runs. `defaults` and
  // `previousValidProducts` are copied for the worker.
  bool start(const UserDefaults& defaults, const NameList& previousValidProducts);
  bool isScanning() const { return scanning_; }

 signals:
  // On the main thread, once per scan.
  void scanned(const velmar::app::ScanResult& result);

 private:
  void handOver(const ScanResult& result);

  QueryFunction query_;
  std::thread worker_;
  bool scanning_ = false;
};

}  // namespace velmar::app

#endif  // VELMAR_APP_UI_BUNDLE_SCANNER_H_

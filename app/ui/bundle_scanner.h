// BundleScanner: runs the scan of a bundle (app/bundle_scan.h) on a worker
// thread, so the window keeps drawing while the tool is asked its questions,
// and hands its progress and result to the main thread. One scan at a time;
// a scan can be cancelled, which stops the tool it is running.

#ifndef VELMAR_APP_UI_BUNDLE_SCANNER_H_
#define VELMAR_APP_UI_BUNDLE_SCANNER_H_

#include <QObject>
#include <functional>
#include <thread>

#include "app/bundle_scan.h"
#include "app/child_stop.h"

namespace velmar::app {

class BundleScanner : public QObject {
  Q_OBJECT

 public:
  // Asks the tool one question, stopping when the cancel is requested.
  using AskFunction = std::function<ToolReply(const Arguments&, const TaskCancel*)>;

  explicit BundleScanner(AskFunction ask, QObject* parent = nullptr);
  ~BundleScanner() override;  // stops and waits for a running scan

  // False, and nothing starts, while a scan runs. `defaults` and
  // `previousValidProducts` are copied for the worker.
  bool start(const UserDefaults& defaults, const NameList& previousValidProducts);
  bool isScanning() const { return scanning_; }
  // Stops the running scan; `scanned` follows with `cancelled` set.
  void cancel();
  // Stops the running scan and waits for its thread, for quitting.
  void stopAndWait();

 signals:
  // On the main thread, before each valid-variants query.
  void progress(int number, int count);
  // On the main thread, once per scan.
  void scanned(const velmar::app::ScanResult& result);

 private:
  void handOver(const ScanResult& result);

  AskFunction ask_;
  TaskCancel cancel_;
  std::thread worker_;
  bool scanning_ = false;
};

}  // namespace velmar::app

#endif  // VELMAR_APP_UI_BUNDLE_SCANNER_H_

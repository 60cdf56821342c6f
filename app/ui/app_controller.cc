#include "app/ui/app_controller.h"


#include <QApplication>
#include <QCoreApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

#include "app/help_text.h"
#include "app/log_text.h"
#include "app/mail.h"
#include "app/paths.h"
#include "app/tool_arguments.h"
#include "app/ui/bundle_scanner.h"
#include "app/ui/check_box_panel.h"
#include "app/ui/log_controller.h"
#include "app/ui/log_mailer.h"
#include "app/ui/main_window.h"
#include "app/ui/progress_sheet.h"
#include "app/ui/save_dialog.h"
#include "app/ui/settings_store.h"
#include "app/ui/source_dialog.h"
#include "app/ui/strip_process.h"
#include "app/user_defaults.h"

namespace velmar::app {

AppController::AppController(SettingsStore& settings, LogController& log, std::string toolPath,
                             TextSink systemLog, QObject* parent)
    : QObject(parent),
      settings_(settings),
      log_(log),
      toolPath_(std::move(toolPath)),
      toolQuery_(toolPath_, log_.sink(), systemLog),
      window_(std::make_unique<MainWindow>(settings_)),
      sheet_(new ProgressSheet(window_.get())),
      scanner_(std::make_unique<BundleScanner>([this](const Arguments& arguments, const TaskCancel* cancel) {
        return toolQuery_.ask(arguments, cancel);
      })),
      stripProcess_(std::make_unique<StripProcess>(log_.sink())),
      mailer_(std::make_unique<LogMailer>(systemLog)) {
  MainWindow* w = window_.get();
  connect(w, &MainWindow::chooseSourceClicked, this, &AppController::selectSource);
  connect(w, &MainWindow::sourceEdited, this, [this](const QString& path) {
    settings_.setString(kLastSourceSelectedKey, path.toStdString());
  });
  connect(w, &MainWindow::sourceEntered, this, &AppController::chooseSourcePath);
  connect(w, &MainWindow::sourceDropped, this, &AppController::chooseSourcePath);
  connect(w, &MainWindow::rescanClicked, this, &AppController::rescan);
  connect(w, &MainWindow::stripClicked, this, &AppController::strip);
  connect(w, &MainWindow::validateClicked, this, &AppController::validate);
  connect(w, &MainWindow::aboutClicked, this, &AppController::showAbout);
  connect(w, &MainWindow::howToClicked, this, &AppController::showHowTo);
  connect(w, &MainWindow::closeRequested, this, &AppController::askToQuit);
  connect(w, &MainWindow::logMenuAboutToShow, this, &AppController::updateToggleLogWindowTitle);
  connect(w->toggleLogWindowAction(), &QAction::triggered, this, &AppController::toggleLogWindow);
  connect(w->clearLogAction(), &QAction::triggered, this, &AppController::clearLog);
  connect(w, &MainWindow::closing, this, [] { QCoreApplication::quit(); });

  CheckBoxPanel* products = w->productsBox();
  CheckBoxPanel* stations = w->stationsBox();
  connect(products, &CheckBoxPanel::hit, this, &AppController::productHit);
  connect(stations, &CheckBoxPanel::hit, this, &AppController::factoryStationHit);
  connect(products->setAllButton(), &QPushButton::clicked, this, &AppController::setAllProducts);
  connect(products->clearAllButton(), &QPushButton::clicked, this, &AppController::clearAllProducts);
  connect(stations->setAllButton(), &QPushButton::clicked, this, &AppController::setAllStations);
  connect(stations->clearAllButton(), &QPushButton::clicked, this, &AppController::clearAllStations);

  connect(sheet_, &ProgressSheet::okClicked, this, &AppController::sheetOKClicked);
  connect(sheet_, &ProgressSheet::showLogClicked, this, &AppController::sheetShowLogClicked);
  connect(sheet_, &ProgressSheet::mailLogClicked, this, &AppController::sheetMailLogClicked);
  connect(sheet_, &ProgressSheet::cancelClicked, this, &AppController::cancelWork);
  connect(scanner_.get(), &BundleScanner::scanned, this, &AppController::scanned);
  connect(scanner_.get(), &BundleScanner::progress, this, &AppController::scanProgress);
  connect(stripProcess_.get(), &StripProcess::ended, this, &AppController::runEnded);
}

AppController::~AppController() = default;

void AppController::start() {
  window_->setWindowTitle(QString::fromStdString(mainWindowTitle(
      QCoreApplication::applicationName().toStdString(), QCoreApplication::applicationVersion().toStdString())));
  log_.setLogFilename(expandTilde(settings_.stringForKey(kLogFilePathKey)));
  log_.readLogFile();
  verbose_ = settings_.boolForKey(kVerboseKey);
  toolQuery_.setVerbose(verbose_);
  window_->show();
  window_->raise();

  setupProducts();
  setupVariants();
  loadSelection();
  syncFactoryButtons();
  connect(&settings_, &SettingsStore::valueChanged, this, &AppController::settingChanged);
}

void AppController::setupProducts() {
  QueryFunction query = [this](const Arguments& a) { return toolQuery_.queryStripperWithArguments(a); };
  model_.setKnownProducts(queryKnownProducts(query, std::string()));
  window_->productsBox()->setNames(model_.knownProducts());
}

void AppController::setupVariants() {
  QueryFunction query = [this](const Arguments& a) { return toolQuery_.queryStripperWithArguments(a); };
  model_.setKnownVariants(queryKnownVariants(query));
  window_->stationsBox()->setNames(model_.knownVariants());
}

void AppController::settingChanged(const QString& key) {
  if (key == kVerboseKey) {
    verbose_ = settings_.boolForKey(kVerboseKey);
    toolQuery_.setVerbose(verbose_);
  }
  if (key == kLastSourceSelectedKey || key == kKeepDevFirmwareKey || key == kKeepAPFirmwareKey) scanBundle();
}

void AppController::loadSelection() {
  model_.setProducts(settings_.arrayForKey(kProductsKey));
  model_.setVariants(settings_.arrayForKey(kVariantsKey));
}

void AppController::storeSelection() {
  if (model_.products() != settings_.arrayForKey(kProductsKey)) settings_.setStrings(kProductsKey, model_.products());
  if (model_.variants() != settings_.arrayForKey(kVariantsKey)) settings_.setStrings(kVariantsKey, model_.variants());
}

void AppController::syncFactoryButtons() {
  ButtonStates states = model_.buttonStates(itemExistsAtPath(settings_.stringForKey(kLastSourceSelectedKey)));
  MainWindow* w = window_.get();
  w->stationsBox()->showStates(states.stations);
  w->productsBox()->showStates(states.products);
  w->productsBox()->clearAllButton()->setEnabled(states.clearAllProducts);
  w->productsBox()->setAllButton()->setEnabled(states.setAllProducts);
  w->stationsBox()->clearAllButton()->setEnabled(states.clearAllVariants);
  w->stationsBox()->setAllButton()->setEnabled(states.setAllVariants);
  // After a failed or cancelled scan nothing is valid, whatever lists stand.
  w->productsBox()->setEnabled(scanUsable_);
  w->stationsBox()->setEnabled(scanUsable_);
  w->setRunEnabled(states.stripAndValidate && scanUsable_);
}

void AppController::scanBundle() {
  if (quitting_) return;
  if (scanner_->isScanning()) {
    // The settings changed under a running scan: ask again with them after it.
    rescanWanted_ = true;
    return;
  }
  UserDefaults defaults = settings_.userDefaults();
  window_->setBusy(true);
  sheet_->beginBusy(scanningSheetText(sourcePath(defaults)));
  scanner_->start(defaults, model_.validProducts());
}

void AppController::scanProgress(int number, int count) {
  if (scanner_->isScanning())
    sheet_->showProgress(scanProgressText(static_cast<size_t>(number), static_cast<size_t>(count)), number, count);
}

void AppController::scanned(const ScanResult& result) {
  if (quitting_) {
    quitWhenIdle();
    return;
  }
  window_->setBusy(false);
  const std::string line = scanOutcomeLine(result);
  window_->showScanProblem(QString::fromStdString(line));
  if (result.cancelled) {
    // The lists are half asked: none is used, and the selection stays as it was.
    rescanWanted_ = false;
    scanUsable_ = false;
    log_.addLogString("Scanning cancelled.", true, true);
    sheet_->showStopped(line);
    syncFactoryButtons();
    emit scanFinished();
    return;
  }
  sheetOKClicked();
  loadSelection();
  const bool listChanged = result.knownProducts != model_.knownProducts();
  applyScan(model_, result);
  if (listChanged) window_->productsBox()->setNames(model_.knownProducts());
  scanUsable_ = result.failure.empty();
  storeSelection();
  syncFactoryButtons();
  emit scanFinished();
  if (std::exchange(rescanWanted_, false)) scanBundle();
}

void AppController::rescan() {
  if (window_->isBusy() || settings_.stringForKey(kLastSourceSelectedKey).empty()) return;
  scanBundle();
}

void AppController::chooseSourcePath(const QString& path) {
  if (window_->isBusy() || path.isEmpty()) return;
  if (path.toStdString() == settings_.stringForKey(kLastSourceSelectedKey)) {
    rescan();
  } else {
    settings_.setString(kLastSourceSelectedKey, path.toStdString());  // scanned as it changes
  }
}

void AppController::cancelWork() {
  sheet_->cancelButton()->setEnabled(false);
  if (scanner_->isScanning()) {
    scanner_->cancel();
  } else if (stripProcess_->isRunning()) {
    stripProcess_->cancel();
  }
}

void AppController::askToQuit() {
  if (quitQuestion_) {
    quitQuestion_->raise();
    return;
  }
  const bool scanning = scanner_->isScanning();
  quitQuestion_ = new QMessageBox(QMessageBox::Question, window_->windowTitle(),
                                  scanning ? tr("A bundle is being scanned. Quit anyway?")
                                           : tr("velmarbs is still working on the bundle. Quit anyway?"),
                                  QMessageBox::NoButton, window_.get());
  quitQuestion_->setInformativeText(scanning ? tr("The scan is stopped.")
                                             : tr("The run is stopped; a strip leaves nothing behind."));
  QPushButton* quit = quitQuestion_->addButton(tr("Quit"), QMessageBox::DestructiveRole);
  quitQuestion_->addButton(tr("Don't Quit"), QMessageBox::RejectRole);
  quitQuestion_->setDefaultButton(quit);
  quitQuestion_->setAttribute(Qt::WA_DeleteOnClose);
  connect(quitQuestion_, &QMessageBox::finished, this, [this, quit] {
    if (quitQuestion_ && quitQuestion_->clickedButton() == quit) quitNow();
  });
  quitQuestion_->open();
}

void AppController::quitNow() {
  quitting_ = true;
  rescanWanted_ = false;
  scanner_->cancel();
  stripProcess_->cancel();
  quitWhenIdle();
}

void AppController::quitWhenIdle() {
  if (scanner_->isScanning() || stripProcess_->isRunning()) return;  // its end comes back here
  sheet_->end();
  window_->setBusy(false);
  window_->close();  // remembers where it was, then quits
}

void AppController::selectSource() {
  if (window_->isBusy() || sourceDialog_) return;
  sourceDialog_ = new SourceDialog(window_.get(), settings_.stringForKey(kLastSourceSelectedKey));
  SourceDialog* dialog = sourceDialog_;
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  connect(dialog, &QDialog::accepted, this, [this, dialog] {
    chooseSourcePath(dialog->chosenPath());
  });
  dialog->open();
}

void AppController::strip() {
  if (window_->isBusy() || saveDialog_ || !window_->stripButton()->isEnabled()) return;
  loadSelection();
  const std::string name =
      fittingStripFileName(model_.products(), model_.variants(), sourcePath(settings_.userDefaults()));
  const std::string folder = expandTilde(settings_.stringForKey(kDestinationPathKey));
  saveDialog_ = new SaveDialog(window_.get(), QString::fromStdString(folder), QString::fromStdString(name));
  SaveDialog* dialog = saveDialog_;
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  connect(dialog, &QDialog::accepted, this, [this, dialog] {
    const std::string path = dialog->chosenPath().toStdString();
    if (path.empty()) return;
    settings_.setString(kDestinationPathKey, parentFolder(path));
    startStripProcess(path);
  });
  dialog->open();
}

void AppController::validate() {
  if (window_->isBusy() || !window_->validateButton()->isEnabled()) return;
  startStripProcess(std::string());
}

void AppController::startStripProcess(const std::string& destinationPath) {
  if (stripProcess_->isRunning() || quitting_) return;
  UserDefaults defaults = settings_.userDefaults();
  const std::string source = sourcePath(defaults);
  window_->setBusy(true);
  sheet_->beginBusy(processingSheetText(source));
  stripProcess_->start(toolPath_, stripArguments(defaults, destinationPath, verbose_), source);
}

void AppController::runEnded(const RunEnd& end) {
  if (quitting_) {
    quitWhenIdle();
    return;
  }
  window_->setBusy(false);
  sheet_->showEnded(end.sheetText);
  QApplication::beep();
  emit runFinished(end.finished);
}

std::string AppController::stripperSessionOutput() const { return stripProcess_->sessionOutput(); }

void AppController::factoryStationHit(int tag, bool on) {
  loadSelection();
  model_.factoryStationHit(static_cast<size_t>(tag), on);
  storeSelection();
  syncFactoryButtons();
}

void AppController::productHit(int tag, bool on) {
  loadSelection();
  model_.productHit(static_cast<size_t>(tag), on);
  storeSelection();
  syncFactoryButtons();
}

void AppController::setAllStations() {
  loadSelection();
  model_.setAllStations();
  storeSelection();
  syncFactoryButtons();
}

void AppController::clearAllStations() {
  loadSelection();
  model_.clearAllStations();
  storeSelection();
  syncFactoryButtons();
}

void AppController::setAllProducts() {
  loadSelection();
  model_.setAllProducts();
  storeSelection();
  syncFactoryButtons();
}

void AppController::clearAllProducts() {
  loadSelection();
  model_.clearAllProducts();
  storeSelection();
  syncFactoryButtons();
}

void AppController::sheetOKClicked() { sheet_->end(); }

void AppController::sheetShowLogClicked() { log_.show(); }

void AppController::sheetMailLogClicked() {
  MailLog mail = mailLogFor(window_->windowTitle().toStdString(), stripperSessionOutput(),
                            settings_.arrayForKey(kMailLogRecipientsKey));
  mailer_->mailLog(mail, log_.logFilename(), log_.text());
  sheetOKClicked();
}

void AppController::toggleLogWindow() {
  if (log_.isLogWindowVisible()) {
    log_.hide();
  } else {
    log_.show();
  }
}

void AppController::updateToggleLogWindowTitle() {
  window_->toggleLogWindowAction()->setText(tr(toggleLogWindowTitle(log_.isLogWindowVisible())));
}

void AppController::clearLog() { log_.clearLog(); }

void AppController::showAbout() {
  if (aboutBox_) {
    aboutBox_->raise();
    return;
  }
  std::string versionOutput;
  RunTask(toolPath_, {"--version"}, std::string(), &versionOutput, nullptr, false);
  const std::string text =
      aboutText(QCoreApplication::applicationName().toStdString(), QCoreApplication::applicationVersion().toStdString(),
                toolVersionFromOutput(versionOutput), toolPath_, log_.logFilename());
  aboutBox_ = new QMessageBox(QMessageBox::Information, tr("About VelmarBS"), QString::fromStdString(text),
                              QMessageBox::Ok, window_.get());
  aboutBox_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  aboutBox_->setAttribute(Qt::WA_DeleteOnClose);
  aboutBox_->open();
}

void AppController::showHowTo() {
  if (howToBox_) {
    howToBox_->raise();
    return;
  }
  howToBox_ = new QMessageBox(QMessageBox::NoIcon, tr("How to Use VelmarBS"), QString::fromStdString(howToText()),
                              QMessageBox::Ok, window_.get());
  howToBox_->setTextFormat(Qt::RichText);
  howToBox_->setWindowModality(Qt::NonModal);
  howToBox_->setAttribute(Qt::WA_DeleteOnClose);
  howToBox_->show();
}

void AppController::applicationWillTerminate() {
  // However the application ends, no tool is left running.
  scanner_->stopAndWait();
  stripProcess_->stopAndWait();
  log_.writeLogFile();
}

}  // namespace velmar::app

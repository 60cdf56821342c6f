#include "app/ui/app_controller.h"

#include <QApplication>
#include <QCoreApplication>
#include <QFileDialog>
#include <QLineEdit>
#include <QPushButton>

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
      scanner_(std::make_unique<BundleScanner>(
          [this](const Arguments& arguments) { return toolQuery_.queryStripperWithArguments(arguments); })),
      stripProcess_(std::make_unique<StripProcess>(log_.sink())),
      mailer_(std::make_unique<LogMailer>(systemLog)) {
  MainWindow* w = window_.get();
  connect(w, &MainWindow::chooseSourceClicked, this, &AppController::selectSource);
  connect(w, &MainWindow::sourceEdited, this, [this](const QString& path) {
    settings_.setString(kLastSourceSelectedKey, path.toStdString());
  });
  connect(w, &MainWindow::stripClicked, this, &AppController::strip);
  connect(w, &MainWindow::validateClicked, this, &AppController::validate);
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
  connect(scanner_.get(), &BundleScanner::scanned, this, &AppController::scanned);
  connect(stripProcess_.get(), &StripProcess::ended, this, &AppController::runEnded);
}

AppController::~AppController() = default;

void AppController::start() {
  window_->setWindowTitle(QString::fromStdString(mainWindowTitle(
      QCoreApplication::applicationName().toStdString(), QCoreApplication::applicationVersion().toStdString())));
  log_.setLogFilename(expandTilde(settings_.stringForKey(kLogFilePathKey)));
  log_.readLogFile();
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
  w->stripButton()->setEnabled(states.stripAndValidate);
  w->validateButton()->setEnabled(states.stripAndValidate);
}

void AppController::scanBundle() {
  if (scanner_->isScanning()) {
    // The settings changed under a running scan: ask again with them after it.
    rescanWanted_ = true;
    return;
  }
  UserDefaults defaults = settings_.userDefaults();
  sheet_->beginBusy(scanningSheetText(sourcePath(defaults)));
  scanner_->start(defaults, model_.validProducts());
}

void AppController::scanned(const ScanResult& result) {
  sheetOKClicked();
  loadSelection();
  const bool listChanged = result.knownProducts != model_.knownProducts();
  applyScan(model_, result);
  if (listChanged) window_->productsBox()->setNames(model_.knownProducts());
  storeSelection();
  syncFactoryButtons();
  emit scanFinished();
  if (std::exchange(rescanWanted_, false)) scanBundle();
}

void AppController::selectSource() {
  auto* dialog = new SourceDialog(window_.get(), settings_.stringForKey(kLastSourceSelectedKey));
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  connect(dialog, &QDialog::accepted, this, [this, dialog] {
    settings_.setString(kLastSourceSelectedKey, dialog->chosenPath().toStdString());
  });
  dialog->open();
}

void AppController::strip() {
  loadSelection();
  const std::string name =
      defaultStripFileName(model_.products(), model_.variants(), sourcePath(settings_.userDefaults()));
  const std::string folder = expandTilde(settings_.stringForKey(kDestinationPathKey));
  auto* dialog = new QFileDialog(window_.get(), tr("Save the Stripped Bundle"));
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setOption(QFileDialog::DontUseNativeDialog);
  dialog->setAcceptMode(QFileDialog::AcceptSave);
  dialog->setFileMode(QFileDialog::AnyFile);
  dialog->setWindowModality(Qt::WindowModal);
  dialog->setDirectory(QString::fromStdString(folder));
  dialog->selectFile(QString::fromStdString(name));
  connect(dialog, &QDialog::accepted, this, [this, dialog] {
    const QStringList chosen = dialog->selectedFiles();
    if (chosen.isEmpty()) return;
    const std::string path = chosen.first().toStdString();
    settings_.setString(kDestinationPathKey, parentFolder(path));
    startStripProcess(path);
  });
  dialog->open();
}

void AppController::validate() { startStripProcess(std::string()); }

void AppController::startStripProcess(const std::string& destinationPath) {
  if (stripProcess_->isRunning()) return;
  UserDefaults defaults = settings_.userDefaults();
  const std::string source = sourcePath(defaults);
  sheet_->beginBusy(processingSheetText(source));
  stripProcess_->start(toolPath_, stripArguments(defaults, destinationPath, verbose_), source);
}

void AppController::runEnded(const RunEnd& end) {
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

void AppController::applicationWillTerminate() { log_.writeLogFile(); }

}  // namespace velmar::app

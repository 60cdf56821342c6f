#include "app/ui/main_window.h"

#include <QCloseEvent>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QMimeData>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QSettings>
#include <QVBoxLayout>

#include "app/log_text.h"
#include "app/paths.h"
#include "app/ui/check_box_panel.h"
#include "app/ui/setting_check_box.h"
#include "app/ui/settings_store.h"
#include "app/ui/source_dialog.h"
#include "app/user_defaults.h"

namespace velmar::app {

namespace {

// Wide enough for eight product columns and four station columns.
constexpr int kBoxWidth = 640;
// Kept free of the screen's height for the window frame.
constexpr int kFrameAllowance = 48;
// The products box never shrinks below a few rows.
constexpr int kLeastProductsHeight = 140;
constexpr char kGeometryKey[] = "mainWindowGeometry";

struct OptionSetting {
  const char* title;
  const char* key;
};

// In three columns, filled row by row: what is kept, then how it is checked,
// then how much the log is told.
constexpr OptionSetting kOptions[] = {
    {"Keep debug image", kKeepDebugImageKey},
    {"Keep RPKGs", kKeepRPKGsKey},
    {"Keep home diagnostics", kKeepHomeDiagsKey},
    {"Keep SDK", kKeepSDKKey},
    {"Keep dev firmware", kKeepDevFirmwareKey},
    {"Keep AP firmware", kKeepAPFirmwareKey},
    {"Generate symlinks", kGenerateSymlinksKey},
    {"Generate cookie", kGenerateCookieKey},
    {"Encrypt", kEncryptKey},
    {"Check personalized", kCheckPersonalizedKey},
    {"Check unpersonalized", kCheckUnpersonalizedKey},
    {"Verbose log", kVerboseKey},
};

// A scroll area as tall as what it shows, up to a limit: the window's
// layout follows its size hint, so the products box grows the window until
// the screen is full and scrolls from then on.
class FittingScrollArea : public QScrollArea {
 public:
  void setHeightLimit(int limit) {
    if (limit == limit_) return;
    limit_ = limit;
    updateGeometry();
  }
  bool scrolls() const { return contentHeight() > limit_; }

  QSize sizeHint() const override {
    const QWidget* shown = widget();
    if (!shown) return QScrollArea::sizeHint();
    const int frame = 2 * frameWidth();
    const int bar = scrolls() ? verticalScrollBar()->sizeHint().width() : 0;
    return QSize(shown->width() + frame + bar, std::min(contentHeight(), limit_));
  }
  QSize minimumSizeHint() const override { return sizeHint(); }

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override {
    // The box changed its height: so does the area, and with it the window.
    if (watched == widget() && event->type() == QEvent::Resize) updateGeometry();
    return QScrollArea::eventFilter(watched, event);
  }

 private:
  int contentHeight() const { return widget() ? widget()->height() + 2 * frameWidth() : 0; }
  int limit_ = 1 << 20;
};

}  // namespace

MainWindow::MainWindow(SettingsStore& settings, QWidget* parent) : QMainWindow(parent), settings_(settings) {
  productsBox_ = new CheckBoxPanel(tr("Products"), kProductsGrid, false, kBoxWidth);
  stationsBox_ = new CheckBoxPanel(tr("Stations"), kStationsGrid, true, kBoxWidth);
  auto* scroll = new FittingScrollArea;
  scroll->setFrameShape(QFrame::NoFrame);
  scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  scroll->setWidget(productsBox_);
  scroll->setAccessibleName(tr("Products list"));
  scroll->setFocusPolicy(Qt::NoFocus);
  productsScroll_ = scroll;

  validateButton_ = new QPushButton(tr("Validate"));
  stripButton_ = new QPushButton(tr("Strip…"));
  stripButton_->setDefault(true);
  validateButton_->setAccessibleName(tr("Validate"));
  validateButton_->setToolTip(tr("Check the selection without writing anything (Ctrl+Return)"));
  stripButton_->setAccessibleName(tr("Strip"));
  stripButton_->setToolTip(tr("Write the stripped bundle (Ctrl+S)"));
  connect(validateButton_, &QPushButton::clicked, this, &MainWindow::validateClicked);
  connect(stripButton_, &QPushButton::clicked, this, &MainWindow::stripClicked);

  auto* runRow = new QHBoxLayout;
  runRow->addStretch();
  runRow->addWidget(validateButton_);
  runRow->addWidget(stripButton_);

  auto* central = new QWidget;
  auto* layout = new QVBoxLayout(central);
  layout->addWidget(makeSourceRow());
  scanProblem_ = new QLabel;
  scanProblem_->setWordWrap(true);
  scanProblem_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  scanProblem_->setStyleSheet(QStringLiteral("color: #b00000;"));
  scanProblem_->setAccessibleName(tr("Scan problem"));
  scanProblem_->setMaximumWidth(kBoxWidth);
  scanProblem_->hide();
  layout->addWidget(scanProblem_);
  layout->addWidget(productsScroll_);
  layout->addWidget(stationsBox_);
  layout->addWidget(makeOptionsBox(settings));
  layout->addLayout(runRow);
  // The window takes the height the boxes need, as they grow or shrink.
  layout->setSizeConstraint(QLayout::SetFixedSize);
  setCentralWidget(central);
  // And the window follows it both ways (a main window would only grow).
  QMainWindow::layout()->setSizeConstraint(QLayout::SetFixedSize);
  makeMenu();
  setAcceptDrops(true);

  connect(&settings_, &SettingsStore::valueChanged, this, [this](const QString& key) {
    if (key == kLastSourceSelectedKey) showSource();
  });
  for (CheckBoxPanel* panel : {productsBox_, stationsBox_}) {
    connect(panel, &CheckBoxPanel::namesChanged, this, [this] {
      updateTabOrder();
      fitToScreen();
    });
  }
  showSource();
  updateTabOrder();
  updateActions();
}

QWidget* MainWindow::makeSourceRow() {
  auto* row = new QWidget;
  auto* layout = new QHBoxLayout(row);
  layout->setContentsMargins(0, 0, 0, 0);
  sourceField_ = new QLineEdit;
  sourceField_->setPlaceholderText(tr("A restore bundle: a folder or a .dmg image"));
  sourceField_->setAccessibleName(tr("Source bundle"));
  sourceField_->setToolTip(tr("Type or paste a path and press Enter to scan it"));
  chooseButton_ = new QPushButton(tr("Choose…"));
  chooseButton_->setAccessibleName(tr("Choose source"));
  chooseButton_->setToolTip(tr("Choose a bundle folder or .dmg image (Ctrl+O)"));
  connect(chooseButton_, &QPushButton::clicked, this, &MainWindow::chooseSourceClicked);
  connect(sourceField_, &QLineEdit::textChanged, this, &MainWindow::updateActions);
  connect(sourceField_, &QLineEdit::returnPressed, this, [this] {
    emit sourceEntered(typedSource());
  });
  connect(sourceField_, &QLineEdit::editingFinished, this, [this] {
    // Enter has been handled above; this is leaving the field with a new path.
    QString typed = typedSource();
    if (typed.toStdString() != settings_.stringForKey(kLastSourceSelectedKey)) emit sourceEdited(typed);
  });
  sourceLabel_ = new QLabel(tr("&Source:"));
  sourceLabel_->setBuddy(sourceField_);
  layout->addWidget(sourceLabel_);
  layout->addWidget(sourceField_, 1);
  layout->addWidget(chooseButton_);
  return row;
}

QWidget* MainWindow::makeOptionsBox(SettingsStore& settings) {
  auto* box = new QGroupBox(tr("Options"));
  box->setFixedWidth(kBoxWidth);
  auto* grid = new QGridLayout(box);
  int index = 0;
  for (const OptionSetting& option : kOptions) {
    auto* checkBox = new SettingCheckBox(tr(option.title), option.key, settings);
    checkBox->setAccessibleName(tr(option.title));
    grid->addWidget(checkBox, index / 3, index % 3);
    if (std::string_view(option.key) == kVerboseKey) {
      verboseBox_ = checkBox;
      checkBox->setToolTip(tr("Everything velmarbs finds goes into the log"));
    } else {
      optionBoxes_.push_back(checkBox);
    }
    ++index;
  }
  optionBoxes_.push_back(verboseBox_);
  return box;
}

void MainWindow::makeMenu() {
  QMenu* application = menuBar()->addMenu(tr("&VelmarBS"));
  choose_ = application->addAction(tr("Choose Source…"), this, &MainWindow::chooseSourceClicked);
  choose_->setShortcut(QKeySequence::Open);
  rescan_ = application->addAction(tr("Rescan"), this, &MainWindow::rescanClicked);
  rescan_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_R));
  application->addSeparator();
  validate_ = application->addAction(tr("Validate"), this, &MainWindow::validateClicked);
  validate_->setShortcuts({QKeySequence(Qt::CTRL | Qt::Key_Return), QKeySequence(Qt::CTRL | Qt::Key_Enter)});
  strip_ = application->addAction(tr("Strip…"), this, &MainWindow::stripClicked);
  strip_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_S));
  application->addSeparator();
  quit_ = application->addAction(tr("Quit"), this, &QWidget::close);
  quit_->setShortcut(QKeySequence::Quit);

  QMenu* log = menuBar()->addMenu(tr("&Log"));
  toggleLogWindow_ = log->addAction(tr(kShowLogWindowTitle));
  toggleLogWindow_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_L));
  clearLog_ = log->addAction(tr("Clear Log…"));
  connect(log, &QMenu::aboutToShow, this, &MainWindow::logMenuAboutToShow);

  QMenu* help = menuBar()->addMenu(tr("&Help"));
  howTo_ = help->addAction(tr("How to Use VelmarBS"), this, &MainWindow::howToClicked);
  howTo_->setShortcut(QKeySequence::HelpContents);
  about_ = help->addAction(tr("About VelmarBS"), this, &MainWindow::aboutClicked);
}

void MainWindow::setBusy(bool busy) {
  busy_ = busy;
  centralWidget()->setEnabled(!busy);
  updateActions();
}

void MainWindow::setRunEnabled(bool enabled) {
  runEnabled_ = enabled;
  stripButton_->setEnabled(enabled);
  validateButton_->setEnabled(enabled);
  updateActions();
}

void MainWindow::updateActions() {
  choose_->setEnabled(!busy_);
  rescan_->setEnabled(!busy_ && !sourceField_->text().trimmed().isEmpty());
  validate_->setEnabled(!busy_ && runEnabled_);
  strip_->setEnabled(!busy_ && runEnabled_);
}

void MainWindow::showScanProblem(const QString& text) {
  scanProblem_->setText(text);
  scanProblem_->setVisible(!text.isEmpty());
  // Read out with the field it is about, for those who do not see the line.
  sourceField_->setAccessibleDescription(text);
}

QString MainWindow::typedSource() const {
  const QString path = QString::fromStdString(pathFromPastedText(sourceField_->text().toStdString()));
  // What is scanned is what the field shows.
  if (path != sourceField_->text()) sourceField_->setText(path);
  return path;
}

void MainWindow::showSource() {
  sourceField_->setText(QString::fromStdString(settings_.stringForKey(kLastSourceSelectedKey)));
  updateActions();
}

std::vector<QWidget*> MainWindow::tabOrder() const {
  std::vector<QWidget*> order = {sourceField_, chooseButton_};
  for (CheckBoxPanel* panel : {productsBox_, stationsBox_}) {
    for (QWidget* box : panel->checkBoxes()) order.push_back(box);
    order.push_back(panel->setAllButton());
    order.push_back(panel->clearAllButton());
  }
  for (QWidget* option : optionBoxes_) order.push_back(option);
  order.push_back(validateButton_);
  order.push_back(stripButton_);
  return order;
}

void MainWindow::updateTabOrder() {
  std::vector<QWidget*> order = tabOrder();
  for (size_t i = 1; i < order.size(); ++i) setTabOrder(order[i - 1], order[i]);
}

void MainWindow::fitToScreen() {
  auto* scroll = static_cast<FittingScrollArea*>(productsScroll_);
  const QScreen* shown = screen();
  if (!shown || !centralWidget()) return;
  // What the window needs besides the products box.
  const int others = centralWidget()->layout()->sizeHint().height() - scroll->sizeHint().height() +
                     (menuBar() ? menuBar()->sizeHint().height() : 0);
  const int room = shown->availableGeometry().height() - kFrameAllowance - others;
  scroll->setHeightLimit(std::max(kLeastProductsHeight, room));
}

void MainWindow::showEvent(QShowEvent* event) {
  if (!placed_) {
    placed_ = true;
    // Where the user left it; the height still follows the boxes.
    restoreGeometry(QSettings().value(kGeometryKey).toByteArray());
  }
  fitToScreen();
  QMainWindow::showEvent(event);
}

void MainWindow::saveGeometryNow() { QSettings().setValue(kGeometryKey, saveGeometry()); }

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
  const QList<QUrl> urls = event->mimeData()->urls();
  if (!busy_ && urls.size() == 1 && urls.first().isLocalFile() &&
      SourceDialog::isSource(urls.first().toLocalFile()))
    event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event) {
  const QList<QUrl> urls = event->mimeData()->urls();
  if (busy_ || urls.size() != 1 || !urls.first().isLocalFile()) return;
  const QString path = urls.first().toLocalFile();
  if (!SourceDialog::isSource(path)) return;
  event->acceptProposedAction();
  emit sourceDropped(path);
}

void MainWindow::closeEvent(QCloseEvent* event) {
  if (busy_) {
    event->ignore();
    emit closeRequested();
    return;
  }
  saveGeometryNow();
  event->accept();
  emit closing();
}

}  // namespace velmar::app

#include "app/ui/main_window.h"

#include <QCloseEvent>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/log_text.h"
#include "app/paths.h"
#include "app/ui/check_box_panel.h"
#include "app/ui/setting_check_box.h"
#include "app/ui/settings_store.h"
#include "app/user_defaults.h"

namespace velmar::app {

namespace {

// Wide enough for eight product columns and four station columns.
constexpr int kBoxWidth = 640;

struct OptionSetting {
  const char* title;
  const char* key;
};

// In three columns, filled row by row: what is kept, then how it is checked.
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
};

}  // namespace

MainWindow::MainWindow(SettingsStore& settings, QWidget* parent) : QMainWindow(parent), settings_(settings) {
  productsBox_ = new CheckBoxPanel(tr("Products"), kProductsGrid, false, kBoxWidth);
  stationsBox_ = new CheckBoxPanel(tr("Stations"), kStationsGrid, true, kBoxWidth);
  validateButton_ = new QPushButton(tr("Validate"));
  stripButton_ = new QPushButton(tr("Strip…"));
  stripButton_->setDefault(true);
  connect(validateButton_, &QPushButton::clicked, this, &MainWindow::validateClicked);
  connect(stripButton_, &QPushButton::clicked, this, &MainWindow::stripClicked);

  auto* runRow = new QHBoxLayout;
  runRow->addStretch();
  runRow->addWidget(validateButton_);
  runRow->addWidget(stripButton_);

  auto* central = new QWidget;
  auto* layout = new QVBoxLayout(central);
  layout->addWidget(makeSourceRow());
  layout->addWidget(productsBox_);
  layout->addWidget(stationsBox_);
  layout->addWidget(makeOptionsBox(settings));
  layout->addLayout(runRow);
  // The window takes the height the boxes need, as they grow or shrink.
  layout->setSizeConstraint(QLayout::SetFixedSize);
  setCentralWidget(central);
  makeMenu();

  connect(&settings_, &SettingsStore::valueChanged, this, [this](const QString& key) {
    if (key == kLastSourceSelectedKey) showSource();
  });
  showSource();
}

QWidget* MainWindow::makeSourceRow() {
  auto* row = new QWidget;
  auto* layout = new QHBoxLayout(row);
  layout->setContentsMargins(0, 0, 0, 0);
  sourceField_ = new QLineEdit;
  sourceField_->setPlaceholderText(tr("A restore bundle: a folder or a .dmg image"));
  auto* choose = new QPushButton(tr("Choose…"));
  connect(choose, &QPushButton::clicked, this, &MainWindow::chooseSourceClicked);
  connect(sourceField_, &QLineEdit::editingFinished, this, [this] {
    QString typed = sourceField_->text().trimmed();
    if (typed.toStdString() != settings_.stringForKey(kLastSourceSelectedKey)) emit sourceEdited(typed);
  });
  layout->addWidget(new QLabel(tr("Source:")));
  layout->addWidget(sourceField_, 1);
  layout->addWidget(choose);
  return row;
}

QWidget* MainWindow::makeOptionsBox(SettingsStore& settings) {
  auto* box = new QGroupBox(tr("Options"));
  box->setFixedWidth(kBoxWidth);
  auto* grid = new QGridLayout(box);
  int index = 0;
  for (const OptionSetting& option : kOptions) {
    auto* checkBox = new SettingCheckBox(tr(option.title), option.key, settings);
    grid->addWidget(checkBox, index / 3, index % 3);
    optionBoxes_.push_back(checkBox);
    ++index;
  }
  return box;
}

void MainWindow::makeMenu() {
  QMenu* application = menuBar()->addMenu(tr("&VelmarBS"));
  application->addAction(tr("Choose Source…"), this, &MainWindow::chooseSourceClicked);
  application->addSeparator();
  QAction* quit = application->addAction(tr("Quit"), this, &QWidget::close);
  quit->setShortcut(QKeySequence::Quit);

  QMenu* log = menuBar()->addMenu(tr("&Log"));
  toggleLogWindow_ = log->addAction(tr(kShowLogWindowTitle));
  toggleLogWindow_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_L));
  clearLog_ = log->addAction(tr("Clear Log…"));
  connect(log, &QMenu::aboutToShow, this, &MainWindow::logMenuAboutToShow);
}

void MainWindow::showSource() {
  sourceField_->setText(QString::fromStdString(settings_.stringForKey(kLastSourceSelectedKey)));
}

void MainWindow::closeEvent(QCloseEvent* event) {
  event->accept();
  emit closing();
}

}  // namespace velmar::app

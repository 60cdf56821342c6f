#include "app/ui/log_window.h"

#include <QGuiApplication>
#include <QHBoxLayout>
#include <QPrintDialog>
#include <QPrinter>
#include <QPushButton>
#include <QScreen>
#include <QSettings>
#include <QVBoxLayout>

#include "app/log_text.h"
#include "app/ui/log_text_view.h"

namespace velmar::app {

namespace {
constexpr char kGeometryKey[] = "logWindowGeometry";
}

LogWindow::LogWindow(QWidget* parent) : QWidget(parent, Qt::Window), textView_(new LogTextView(this)) {
  auto* clear = new QPushButton(tr("Clear Log…"), this);
  auto* copyButton = new QPushButton(tr("Copy"), this);
  auto* print = new QPushButton(tr("Print…"), this);
  connect(clear, &QPushButton::clicked, this, &LogWindow::clearLogClicked);
  connect(copyButton, &QPushButton::clicked, this, &LogWindow::copy);
  connect(print, &QPushButton::clicked, this, &LogWindow::printDocument);

  auto* buttons = new QHBoxLayout;
  buttons->addWidget(clear);
  buttons->addStretch();
  buttons->addWidget(copyButton);
  buttons->addWidget(print);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(textView_);
  layout->addLayout(buttons);
  resize(760, 480);
  showLogFilename(std::string());
}

void LogWindow::showLogFilename(const std::string& logFilename) {
  setWindowTitle(QString::fromStdString(logWindowTitle(logFilename)));
  setWindowFilePath(QString::fromStdString(logFilename));
}

void LogWindow::copy() { textView_->copy(); }

void LogWindow::printDocument() {
  QPrinter printer;
  QPrintDialog dialog(&printer, this);
  dialog.setWindowTitle(tr("Print Log"));
  if (dialog.exec() == QDialog::Accepted) textView_->print(&printer);
}

void LogWindow::showEvent(QShowEvent* event) {
  if (!placed_) {
    placed_ = true;
    QSettings settings;
    if (!restoreGeometry(settings.value(kGeometryKey).toByteArray())) {
      // First time: centred on the screen.
      if (QScreen* screen = QGuiApplication::primaryScreen()) {
        QRect area = screen->availableGeometry();
        move(area.center() - rect().center());
      }
    }
  }
  QWidget::showEvent(event);
}

void LogWindow::hideEvent(QHideEvent* event) {
  QSettings().setValue(kGeometryKey, saveGeometry());
  QWidget::hideEvent(event);
}

}  // namespace velmar::app

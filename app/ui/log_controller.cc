#include "app/ui/log_controller.h"

#include <QMessageBox>
#include <QPushButton>
#include <QThread>

#include "app/log_text.h"
#include "app/ui/log_text_view.h"
#include "app/ui/log_window.h"

namespace velmar::app {

LogController::LogController(TextSink systemLog, QObject* parent)
    : QObject(parent), file_(std::move(systemLog)) {}

LogController::~LogController() = default;

void LogController::setLogFilename(const std::string& path) {
  file_.setLogFilename(path);
  if (window_) window_->showLogFilename(file_.logFilename());
}

void LogController::readLogFile() {
  std::string text = file_.readLogFile();
  if (window_) window_->textView()->setLogText(text);
}

void LogController::writeLogFile() { file_.writeLogFile(); }

void LogController::addString(const std::string& text) {
  if (QThread::currentThread() != thread()) {
    QMetaObject::invokeMethod(this, [this, text] { addString(text); }, Qt::QueuedConnection);
    return;
  }
  file_.addString(text);
  if (window_) window_->textView()->appendLogText(text);
}

void LogController::addLogString(const std::string& text, bool withTimeStamp, bool withNewLine) {
  addString(generateString(text, withTimeStamp, withNewLine));
}

TextSink LogController::sink() {
  return [this](const std::string& text) { addString(text); };
}

void LogController::show() {
  if (!window_) {
    window_ = std::make_unique<LogWindow>();
    window_->showLogFilename(file_.logFilename());
    window_->textView()->setLogText(file_.takeOffscreenBuffer());
    connect(window_.get(), &LogWindow::clearLogClicked, this, &LogController::clearLog);
  }
  window_->show();
  window_->raise();
  window_->activateWindow();
}

void LogController::hide() {
  if (window_) window_->close();
}

bool LogController::isLogWindowVisible() const { return window_ && window_->isVisible(); }

void LogController::clearLog() {
  const bool onLogWindow = isLogWindowVisible();
  auto* box = new QMessageBox(QMessageBox::Question, QString::fromUtf8(kClearLogTitle),
                              tr(kClearLogMessage), QMessageBox::NoButton,
                              onLogWindow ? window_.get() : nullptr);
  QPushButton* yes = box->addButton(tr(kClearLogDefaultButton), QMessageBox::YesRole);
  box->addButton(tr(kClearLogAlternateButton), QMessageBox::NoRole);
  box->setDefaultButton(yes);
  box->setWindowModality(onLogWindow ? Qt::WindowModal : Qt::ApplicationModal);
  box->setAttribute(Qt::WA_DeleteOnClose);
  connect(box, &QMessageBox::finished, this, [this, box, yes] {
    if (box->clickedButton() == yes) zapLogAndWindowContents();
  });
  box->open();
}

void LogController::zapLogAndWindowContents() {
  if (window_) window_->textView()->clear();
  file_.zapLogAndWindowContents();
}

std::string LogController::text() const {
  if (window_) return window_->textView()->toPlainText().toStdString();
  return file_.offscreenBuffer();
}

}  // namespace velmar::app

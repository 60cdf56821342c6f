#include "app/ui/progress_sheet.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

namespace velmar::app {

ProgressSheet::ProgressSheet(QWidget* parent)
    : QDialog(parent, Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint),
      text_(new QLabel(this)),
      detail_(new QLabel(this)),
      progress_(new QProgressBar(this)),
      ok_(new QPushButton(tr("OK"), this)),
      mailLog_(new QPushButton(tr("Mail Log"), this)),
      showLog_(new QPushButton(tr("Show Log"), this)),
      cancel_(new QPushButton(tr("Cancel"), this)) {
  setWindowModality(Qt::NonModal);
  text_->setWordWrap(true);
  text_->setMinimumWidth(380);
  text_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  text_->setAccessibleName(tr("Progress message"));
  detail_->setAccessibleName(tr("Progress detail"));
  progress_->setTextVisible(false);
  progress_->setAccessibleName(tr("Progress"));
  ok_->setDefault(true);
  ok_->setAccessibleName(tr("OK"));
  mailLog_->setAccessibleName(tr("Mail the log"));
  showLog_->setAccessibleName(tr("Show the log window"));
  cancel_->setAccessibleName(tr("Cancel the scan or run"));
  connect(ok_, &QPushButton::clicked, this, &ProgressSheet::okClicked);
  connect(mailLog_, &QPushButton::clicked, this, &ProgressSheet::mailLogClicked);
  connect(showLog_, &QPushButton::clicked, this, &ProgressSheet::showLogClicked);
  connect(cancel_, &QPushButton::clicked, this, &ProgressSheet::cancelClicked);

  auto* buttons = new QHBoxLayout;
  buttons->addWidget(showLog_);
  buttons->addWidget(mailLog_);
  buttons->addStretch();
  buttons->addWidget(cancel_);
  buttons->addWidget(ok_);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(text_);
  layout->addWidget(progress_);
  layout->addWidget(detail_);
  layout->addLayout(buttons);
  layout->setSizeConstraint(QLayout::SetFixedSize);
}

void ProgressSheet::beginBusy(const std::string& text) {
  busy_ = true;
  if (parentWidget()) setWindowTitle(parentWidget()->windowTitle());
  text_->setText(QString::fromStdString(text));
  detail_->clear();
  detail_->hide();
  showButtons(false);
  cancel_->show();
  cancel_->setEnabled(true);
  progress_->setRange(0, 0);  // indeterminate: the bar animates by itself
  progress_->show();
  show();
  raise();
  cancel_->setFocus();
}

void ProgressSheet::showProgress(const std::string& detail, int number, int count) {
  detail_->setText(QString::fromStdString(detail));
  detail_->show();
  progress_->setRange(0, count);
  progress_->setValue(number - 1);  // the one running is not done yet
}

void ProgressSheet::showEnded(const std::string& text) {
  busy_ = false;
  text_->setText(QString::fromStdString(text));
  stopBar();
  showButtons(true);
  ok_->setFocus();
  if (!isVisible()) show();
}

void ProgressSheet::showStopped(const std::string& text) {
  busy_ = false;
  text_->setText(QString::fromStdString(text));
  stopBar();
  showButtons(false);
  ok_->show();
  ok_->setFocus();
  if (!isVisible()) show();
}

void ProgressSheet::end() {
  busy_ = false;
  done(QDialog::Accepted);
}

QString ProgressSheet::text() const { return text_->text(); }

QString ProgressSheet::detail() const { return detail_->text(); }

void ProgressSheet::reject() {
  if (!busy_) emit okClicked();
}

void ProgressSheet::showButtons(bool shown) {
  ok_->setVisible(shown);
  mailLog_->setVisible(shown);
  showLog_->setVisible(shown);
}

void ProgressSheet::stopBar() {
  detail_->hide();
  cancel_->hide();
  progress_->setRange(0, 1);
  progress_->setValue(1);
}

}  // namespace velmar::app

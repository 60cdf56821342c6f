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
      progress_(new QProgressBar(this)),
      ok_(new QPushButton(tr("OK"), this)),
      mailLog_(new QPushButton(tr("Mail Log"), this)),
      showLog_(new QPushButton(tr("Show Log"), this)) {
  setWindowModality(Qt::WindowModal);
  text_->setWordWrap(true);
  text_->setMinimumWidth(380);
  text_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  progress_->setTextVisible(false);
  ok_->setDefault(true);
  connect(ok_, &QPushButton::clicked, this, &ProgressSheet::okClicked);
  connect(mailLog_, &QPushButton::clicked, this, &ProgressSheet::mailLogClicked);
  connect(showLog_, &QPushButton::clicked, this, &ProgressSheet::showLogClicked);

  auto* buttons = new QHBoxLayout;
  buttons->addWidget(showLog_);
  buttons->addWidget(mailLog_);
  buttons->addStretch();
  buttons->addWidget(ok_);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(text_);
  layout->addWidget(progress_);
  layout->addLayout(buttons);
  layout->setSizeConstraint(QLayout::SetFixedSize);
}

void ProgressSheet::beginBusy(const std::string& text) {
  busy_ = true;
  if (parentWidget()) setWindowTitle(parentWidget()->windowTitle());
  text_->setText(QString::fromStdString(text));
  showButtons(false);
  progress_->setRange(0, 0);  // indeterminate: the bar animates by itself
  progress_->show();
  open();
}

void ProgressSheet::showEnded(const std::string& text) {
  busy_ = false;
  text_->setText(QString::fromStdString(text));
  progress_->setRange(0, 1);
  progress_->setValue(1);
  showButtons(true);
  ok_->setFocus();
  if (!isVisible()) open();
}

void ProgressSheet::end() {
  busy_ = false;
  done(QDialog::Accepted);
}

QString ProgressSheet::text() const { return text_->text(); }

void ProgressSheet::reject() {
  if (!busy_) emit okClicked();
}

void ProgressSheet::showButtons(bool shown) {
  ok_->setVisible(shown);
  mailLog_->setVisible(shown);
  showLog_->setVisible(shown);
}

}  // namespace velmar::app

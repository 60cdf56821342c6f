#include "app/ui/strip_process.h"

#include <QStringList>

#include "base/format.h"

namespace velmar::app {

StripProcess::StripProcess(TextSink log, QObject* parent) : QObject(parent), log_(std::move(log)) {}

std::string StripProcess::sessionOutput() const { return run_ ? run_->sessionOutput() : std::string(); }

bool StripProcess::start(const std::string& launchPath, const Arguments& arguments,
                         const std::string& sourcePath) {
  if (process_) return false;
  run_ = std::make_unique<StripRun>(launchPath, arguments, sourcePath);
  for (const std::string& text : run_->startLogTexts()) log_(text);

  process_ = new QProcess(this);
  process_->setProcessChannelMode(QProcess::MergedChannels);
  process_->setInputChannelMode(QProcess::ManagedInputChannel);
  QStringList words;
  for (const auto& argument : arguments) words.append(QString::fromStdString(argument));
  connect(process_, &QProcess::readyRead, this, &StripProcess::readOutput);
  connect(process_, &QProcess::finished, this, [this](int exitCode, QProcess::ExitStatus status) {
    // A tool killed by a signal has no exit code of its own; it failed all the same.
    finish(status == QProcess::NormalExit ? exitCode : 1);
  });
  connect(process_, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
    if (error != QProcess::FailedToStart) return;  // the others end in finished
    log_(format("ERROR: unable to launch velmarbs tool at %@ - %@\n", run_->launchPath(),
                process_->errorString().toStdString()));
    finish(1);
  });
  process_->start(QString::fromStdString(launchPath), words, QIODevice::ReadOnly);
  process_->closeWriteChannel();
  return true;
}

void StripProcess::readOutput() {
  if (!process_) return;
  QByteArray bytes = process_->readAll();
  if (bytes.isEmpty()) return;
  std::string text = run_->appendOutput(std::string_view(bytes.constData(), static_cast<size_t>(bytes.size())));
  if (!text.empty()) log_(text);
}

void StripProcess::finish(int status) {
  readOutput();  // what the tool printed last, before its end line
  QProcess* process = std::exchange(process_, nullptr);
  process->disconnect(this);
  process->deleteLater();
  RunEnd end = run_->finish(status);
  log_(end.logText);
  emit ended(end);
}

}  // namespace velmar::app

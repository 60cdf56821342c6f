#include "app/ui/strip_process.h"

#include <signal.h>
#include <unistd.h>

#include <QStringList>
#include <QTimer>

#include "base/format.h"

namespace velmar::app {

StripProcess::StripProcess(TextSink log, QObject* parent)
    : QObject(parent), log_(std::move(log)), killTimer_(new QTimer(this)) {
  killTimer_->setSingleShot(true);
  connect(killTimer_, &QTimer::timeout, this, [this] {
    if (process_) signalChild(static_cast<pid_t>(process_->processId()), SIGKILL);
  });
}

StripProcess::~StripProcess() {
  // No one is left to hear how it ended.
  disconnect(this, &StripProcess::ended, nullptr, nullptr);
  stopAndWait();
}

qint64 StripProcess::processId() const { return process_ ? process_->processId() : 0; }

void StripProcess::cancel() {
  if (!process_ || cancelled_) return;
  cancelled_ = true;
  signalChild(static_cast<pid_t>(process_->processId()), SIGTERM);
  killTimer_->start(grace_);
}

void StripProcess::stopAndWait() {
  if (!process_) return;
  cancel();
  if (!process_->waitForFinished(static_cast<int>(grace_.count()))) {
    signalChild(static_cast<pid_t>(process_->processId()), SIGKILL);
    process_->waitForFinished(1000);
  }
  // waitForFinished has delivered `finished` (and with it `ended`) unless
  // the tool could not even be killed.
}

std::string StripProcess::sessionOutput() const { return run_ ? run_->sessionOutput() : std::string(); }

bool StripProcess::start(const std::string& launchPath, const Arguments& arguments,
                         const std::string& sourcePath) {
  if (process_) return false;
  run_ = std::make_unique<StripRun>(launchPath, arguments, sourcePath);
  for (const std::string& text : run_->startLogTexts()) log_(text);

  cancelled_ = false;
  process_ = new QProcess(this);
  // A process group of its own, so that Cancel reaches what the tool runs.
  process_->setChildProcessModifier([] { ::setpgid(0, 0); });
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
  killTimer_->stop();
  QProcess* process = std::exchange(process_, nullptr);
  process->disconnect(this);
  process->deleteLater();
  RunEnd end;
  // A tool that finished just as it was cancelled has done its work.
  if (std::exchange(cancelled_, false) && status != 0) {
    // Killed tools leave their staging folder beside the target.
    if (!run_->target().empty()) removeStagingLeftovers(run_->target());
    end = run_->cancelled();
  } else {
    end = run_->finish(status);
  }
  log_(end.logText);
  emit ended(end);
}

}  // namespace velmar::app

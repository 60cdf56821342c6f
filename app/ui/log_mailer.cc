#include "app/ui/log_mailer.h"

#include <QFile>
#include <QProcess>

#include "app/task_helper.h"
#include "base/format.h"

namespace velmar::app {

namespace {

bool writeAttachment(const QString& path, const std::string& logFilename, const std::string& fallbackText) {
  QFile::remove(path);
  if (!logFilename.empty() && QFile::copy(QString::fromStdString(logFilename), path)) return true;
  QFile file(path);
  if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) return false;
  return file.write(fallbackText.data(), static_cast<qint64>(fallbackText.size())) ==
         static_cast<qint64>(fallbackText.size());
}

}  // namespace

LogMailer::LogMailer(TextSink systemLog, QObject* parent) : QObject(parent), systemLog_(std::move(systemLog)) {}

void LogMailer::mailLog(const MailLog& mail, const std::string& logFilename, const std::string& fallbackText) {
  for (const std::string& attachment : mail.attachments)
    writeAttachment(QString::fromStdString(attachment), logFilename, fallbackText);

  std::vector<std::string> command = xdgEmailCommand(mail);
  const std::string commandLine = commandEchoLine(command.front(), {command.begin() + 1, command.end()});
  QStringList arguments;
  for (auto it = command.begin() + 1; it != command.end(); ++it) arguments.append(QString::fromStdString(*it));

  auto* process = new QProcess(this);
  process->setProcessChannelMode(QProcess::MergedChannels);
  connect(process, &QProcess::finished, this, [this, process, commandLine](int exitCode, QProcess::ExitStatus status) {
    process->deleteLater();
    if (status == QProcess::NormalExit && exitCode == 0) {
      emit done(true);
      return;
    }
    std::string said = process->readAll().trimmed().toStdString();
    fail(commandLine, format("exit status %d%s%s", exitCode, said.empty() ? "" : " - ", said));
  });
  connect(process, &QProcess::errorOccurred, this, [this, process, commandLine](QProcess::ProcessError error) {
    if (error != QProcess::FailedToStart) return;
    process->deleteLater();
    fail(commandLine, process->errorString().toStdString());
  });
  process->start(program_.isEmpty() ? QString::fromStdString(command.front()) : program_, arguments);
}

void LogMailer::fail(const std::string& commandLine, const std::string& error) {
  for (const std::string& text : mailFailureSystemLogTexts(commandLine, error)) systemLog_(text);
  emit done(false);
}

}  // namespace velmar::app

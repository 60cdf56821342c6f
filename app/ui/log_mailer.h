// LogMailer: hands a run's record to the desktop's mail composer through
// xdg-email (the command line of app/mail.h). The mail is only prepared;
// the user sends it. xdg-email refuses a missing attachment, so the log is
// copied to the attachment's place first. A failure leaves two lines in the
// system log and nothing else.

#ifndef VELMAR_APP_UI_LOG_MAILER_H_
#define VELMAR_APP_UI_LOG_MAILER_H_

#include <QObject>
#include <QString>
#include <string>

#include "app/mail.h"
#include "app/system_log.h"

namespace velmar::app {

class LogMailer : public QObject {
  Q_OBJECT

 public:
  explicit LogMailer(TextSink systemLog = writeSystemLog, QObject* parent = nullptr);

  // Writes the attachment (a copy of `logFilename`, or `fallbackText` when
  // there is no log file) and starts the composer. Returns at once.
  void mailLog(const MailLog& mail, const std::string& logFilename, const std::string& fallbackText);

  // The program run instead of the command's first word (tests).
  void setProgram(const QString& program) { program_ = program; }

 signals:
  // The composer has taken the mail, or the failure has been logged.
  void done(bool prepared);

 private:
  void fail(const std::string& commandLine, const std::string& error);

  TextSink systemLog_;
  QString program_;
};

}  // namespace velmar::app

#endif  // VELMAR_APP_UI_LOG_MAILER_H_

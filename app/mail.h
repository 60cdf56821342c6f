// Mailing a run's record: the mail's parts, the script text for a mail
// application that takes scripts, and the xdg-email command line that hands
// the same parts to the desktop's mail composer. The mail is only prepared;
// the user sends it.

#ifndef VELMAR_APP_MAIL_H_
#define VELMAR_APP_MAIL_H_

#include <string>
#include <string_view>
#include <vector>

namespace velmar::app {

// The attachment every log mail names. The application does not write it.
inline constexpr char kMailLogAttachment[] = "/tmp/VelmarBS.log";

struct MailLog {
  std::string subject;
  std::string content;
  std::vector<std::string> recipients;
  std::vector<std::string> attachments;
};

// Subject "%@ Log" with the main window's title, content "%@\n\nDetails:"
// with the run record, the recipients as given (mailLogRecipients), and the
// one attachment above.
MailLog mailLogFor(const std::string& windowTitle, const std::string& sessionOutput,
                   const std::vector<std::string>& recipients);

// Each double quote preceded by a backslash; nothing else changes.
std::string escapeQuotes(std::string_view text);

// The script that makes the mail application show a new message with these
// parts. Line breaks inside the content stay literal inside the script.
std::string mailScript(const MailLog& mail);

// {"xdg-email", "--utf8", "--subject", subject, "--body", content and two
// line breaks (as the script adds two returns), "--attach", path per
// attachment, then the recipients}. Words go to the program unquoted, so
// nothing is escaped. xdg-email refuses an attachment that does not exist.
std::vector<std::string> xdgEmailCommand(const MailLog& mail);

// The two system-log texts when the mail could not be prepared: "executing
// script FAILED\n%@" with the script (or the command line) and "script
// returned %@" with the error's description.
std::vector<std::string> mailFailureSystemLogTexts(const std::string& script,
                                                   const std::string& errorDescription);

}  // namespace velmar::app

#endif  // VELMAR_APP_MAIL_H_

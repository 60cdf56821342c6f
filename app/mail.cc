#include "app/mail.h"

#include "base/format.h"

namespace velmar::app {

MailLog mailLogFor(const std::string& windowTitle, const std::string& sessionOutput,
                   const std::vector<std::string>& recipients) {
  return MailLog{format("%@ Log", windowTitle), format("%@\n\nDetails:", sessionOutput), recipients,
                 {kMailLogAttachment}};
}

std::string escapeQuotes(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (char c : text) {
    if (c == '"') escaped.push_back('\\');
    escaped.push_back(c);
  }
  return escaped;
}

std::string mailScript(const MailLog& mail) {
  std::string script = "tell application \"Mail\" \n";
  script += "\tset newMessage to make new outgoing message with properties {visible:true";
  if (!mail.subject.empty()) script += format(", subject:\"%@\"", escapeQuotes(mail.subject));
  if (!mail.content.empty())
    script += format(", content:\"%@\" & return & return", escapeQuotes(mail.content));
  script += "}\n";
  script += "\ttell newMessage\n";
  for (const auto& recipient : mail.recipients)
    script += format("\t\tmake new to recipient with properties {address:\"%@\"}\n", escapeQuotes(recipient));
  if (!mail.attachments.empty()) {
    script += "\t\ttell content\n";
    for (const auto& attachment : mail.attachments) {
      script += format(
          "\t\t\tmake new attachment with properties {file name:\"%@\"} at after the last paragraph\n",
          escapeQuotes(attachment));
    }
    script += "\t\tend tell\n";
  }
  script += "\tend tell\n";
  script += "\tactivate\n";
  script += "end tell\n";
  return script;
}

std::vector<std::string> xdgEmailCommand(const MailLog& mail) {
  std::vector<std::string> command = {"xdg-email", "--utf8"};
  if (!mail.subject.empty()) {
    command.push_back("--subject");
    command.push_back(mail.subject);
  }
  if (!mail.content.empty()) {
    command.push_back("--body");
    command.push_back(mail.content + "\n\n");
  }
  for (const auto& attachment : mail.attachments) {
    command.push_back("--attach");
    command.push_back(attachment);
  }
  for (const auto& recipient : mail.recipients) command.push_back(recipient);
  return command;
}

std::vector<std::string> mailFailureSystemLogTexts(const std::string& script,
                                                   const std::string& errorDescription) {
  return {format("executing script FAILED\n%@", script), format("script returned %@", errorDescription)};
}

}  // namespace velmar::app

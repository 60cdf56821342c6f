#include "app/mail.h"

#include <gtest/gtest.h>

namespace velmar::app {
namespace {

TEST(MailScriptTest, DefaultMailHasOneRecipientAndTheLogAttached) {
  MailLog mail = mailLogFor("VelmarBS 1.0", "/t --ov\nok\n", {"a@example.com"});
  EXPECT_EQ(mail.subject, "VelmarBS 1.0 Log");
  EXPECT_EQ(mailScript(mail),
            "tell application \"Mail\" \n"
            "\tset newMessage to make new outgoing message with properties {visible:true, "
            "subject:\"VelmarBS 1.0 Log\", content:\"/t --ov\nok\n\n\nDetails:\" & return & return}\n"
            "\ttell newMessage\n"
            "\t\tmake new to recipient with properties {address:\"a@example.com\"}\n"
            "\t\ttell content\n"
            "\t\t\tmake new attachment with properties {file name:\"/tmp/VelmarBS.log\"} at after "
            "the last paragraph\n"
            "\t\tend tell\n"
            "\tend tell\n"
            "\tactivate\n"
            "end tell\n");
}

TEST(MailScriptTest, QuotesAreEscapedAndNothingElse) {
  EXPECT_EQ(escapeQuotes("say \"hi\" \\ now\n"), "say \\\"hi\\\" \\ now\n");
  std::string script = mailScript(mailLogFor("T", "path \"a b\"", {}));
  EXPECT_NE(script.find("content:\"path \\\"a b\\\"\n\nDetails:\""), std::string::npos);
}

TEST(MailScriptTest, NoRecipientsOrAttachmentsKeepsTheMessageBlock) {
  MailLog mail{"", "", {}, {}};
  EXPECT_EQ(mailScript(mail),
            "tell application \"Mail\" \n"
            "\tset newMessage to make new outgoing message with properties {visible:true}\n"
            "\ttell newMessage\n"
            "\tend tell\n"
            "\tactivate\n"
            "end tell\n");
}

TEST(XdgEmailTest, SamePartsAsSeparateWordsUnescaped) {
  MailLog mail = mailLogFor("VelmarBS 1.0", "say \"x\"", {"a@example.com", "b@example.com"});
  std::vector<std::string> expected = {"xdg-email", "--utf8", "--subject", "VelmarBS 1.0 Log",
                                       "--body", "say \"x\"\n\nDetails:\n\n",
                                       "--attach", "/tmp/VelmarBS.log", "a@example.com",
                                       "b@example.com"};
  EXPECT_EQ(xdgEmailCommand(mail), expected);
}

TEST(MailFailureTest, TwoSystemLogTexts) {
  std::vector<std::string> expected = {"executing script FAILED\nscript text", "script returned boom"};
  EXPECT_EQ(mailFailureSystemLogTexts("script text", "boom"), expected);
}

}  // namespace
}  // namespace velmar::app

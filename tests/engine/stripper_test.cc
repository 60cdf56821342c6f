#include "engine/stripper.h"

#include <gtest/gtest.h>

#include "engine/log_object.h"

namespace velmar {
namespace {

// An engine whose steps answer the statuses a test gives them.
class ScriptedStripper : public Stripper {
 public:
  int32_t pass(Value& entry) {
    ran.push_back(entry.get("workName").str());
    return 0;
  }
  int32_t fail(Value& entry) {
    ran.push_back(entry.get("workName").str());
    return 1;
  }
  void add(const char* selector, const char* name) {
    Value entry = Value::makeDict();
    entry.set("workSelector", selector);
    entry.set("workName", name);
    mutableWorkList().append(entry);
  }
  std::vector<std::string> ran;

 protected:
  Status performStep(std::string_view selector, Value& entry) override {
    static const StepTable<ScriptedStripper> table = {
        {"pass:", &ScriptedStripper::pass},
        {"fail:", &ScriptedStripper::fail},
    };
    return table.perform(*this, selector, entry);
  }
};

class StripperTest : public ::testing::Test {
 protected:
  void SetUp() override { LogObject::sharedLogger().setHistoricalLog(""); }
  const std::string& log() { return LogObject::sharedLogger().historicalLog(); }
};

TEST_F(StripperTest, BaseClassAnswersNothingAndCannotStrip) {
  Stripper base;
  base.initWithPath("/x", Value::makeArray({"r13"}), Value(), Value());
  EXPECT_EQ(base.strip(), 22);
  EXPECT_TRUE(base.validProducts().isNull());
  EXPECT_TRUE(base.validFactoryVariants().isNull());
  EXPECT_TRUE(base.bundleRoot().isNull());
  EXPECT_TRUE(base.strippedManifest().isNull());
  EXPECT_TRUE(base.modifiedFiles().isNull());
  EXPECT_FALSE(base.verbose());
}

TEST_F(StripperTest, StopsAtTheFirstFailingStepWithPaddedBanners) {
  ScriptedStripper engine;
  engine.add("pass:", "One");
  engine.add("fail:", "Two");
  engine.add("pass:", "Three");
  engine.add("pass:", "Four");
  engine.add("pass:", "Five");
  Status status = engine.performWork();
  ASSERT_TRUE(status.has_value());
  EXPECT_EQ(*status, 1);
  EXPECT_EQ(engine.ran, (std::vector<std::string>{"One", "Two"}));
  EXPECT_EQ(log(),
            ">>> ==========  1/ 5 One ==========\n"
            ">>> ==========  2/ 5 Two ==========\n");
}

TEST_F(StripperTest, EmptyListAnswersNothingAndLongListsPadToTwoPlaces) {
  ScriptedStripper empty;
  EXPECT_FALSE(empty.performWork().has_value());

  ScriptedStripper engine;
  for (int i = 0; i < 12; ++i) engine.add("pass:", "Step");
  EXPECT_EQ(engine.performWork(), Status(0));
  EXPECT_NE(log().find(">>> ==========  9/12 Step =========="), std::string::npos);
  EXPECT_NE(log().find(">>> ========== 12/12 Step =========="), std::string::npos);
}

TEST_F(StripperTest, UnknownSelectorFailsTheStep) {
  ScriptedStripper engine;
  engine.add("noSuchStep:", "Odd");
  engine.add("pass:", "Never");
  EXPECT_EQ(engine.performWork(), Status(1));
  EXPECT_TRUE(engine.ran.empty());
  EXPECT_NE(log().find("XXX ERROR"), std::string::npos);
}

}  // namespace
}  // namespace velmar

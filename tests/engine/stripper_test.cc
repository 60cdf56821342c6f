#include "engine/stripper.h"

#include <gtest/gtest.h>

#include "tests/engine/test_support.h"

namespace velmar::testing {
namespace {

// An engine whose one step answers the status its entry names.
class ScriptedStripper : public Stripper {
 public:
  int32_t step(Value& entry) {
    ran.push_back(entry.get("workName").str());
    return static_cast<int32_t>(entry.get("status").intValue());
  }
  void add(const char* name, int status, const char* selector = "step:") {
    mutableWorkList().append(dictOf({{"workSelector", selector}, {"workName", name}, {"status", status}}));
  }
  std::vector<std::string> ran;

 protected:
  Status performStep(std::string_view selector, Value& entry) override {
    static const StepTable<ScriptedStripper> table = {{"step:", &ScriptedStripper::step}};
    return table.perform(*this, selector, entry);
  }
};

TEST(StripperTest, BaseClassAnswersNothingAndCannotStrip) {
  Stripper base;
  base.initWithPath("/x", arrayOf({"r13"}), Value(), Value());
  EXPECT_EQ(base.strip(), 22);
  EXPECT_TRUE(base.validProducts().isNull() && base.validFactoryVariants().isNull());
  EXPECT_TRUE(base.strippedManifest().isNull() && base.modifiedFiles().isNull());
}

TEST(StripperTest, StopsAtTheFirstFailingStepWithPaddedBanners) {
  LogObject::sharedLogger().setHistoricalLog("");
  ScriptedStripper engine;
  EXPECT_FALSE(engine.performWork().has_value());
  for (const char* name : {"One", "Two", "Three", "Four", "Five"}) engine.add(name, name[1] == 'w');
  EXPECT_EQ(engine.performWork(), Status(1));
  EXPECT_EQ(engine.ran, (std::vector<std::string>{"One", "Two"}));
  EXPECT_EQ(takeLog(), ">>> ==========  1/ 5 One ==========\n>>> ==========  2/ 5 Two ==========\n");

  ScriptedStripper unknown;
  unknown.add("Odd", 0, "noSuchStep:");
  unknown.add("Never", 0);
  EXPECT_EQ(unknown.performWork(), Status(1));
  EXPECT_EQ(logText(),
            ">>> ==========  1/ 2 Odd ==========\nXXX ERROR: no work step named \"noSuchStep:\".\n");
}

}  // namespace
}  // namespace velmar::testing

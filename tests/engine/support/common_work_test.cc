// "Strip support files" runs its sub-steps on one copy of the entry.

#include "engine/support/common_work.h"

#include <gtest/gtest.h>

#include "tests/engine/test_support.h"

namespace velmar::testing {
namespace {

// Each step notes what the one before left in the entry.
struct ToyEngine {
  std::string seen;
  int32_t pass(Value& e) { return note(e, 0); }
  int32_t fail(Value& e) { return note(e, 3); }
  int32_t note(Value& e, int32_t status) {
    seen += e.get("seen").str() + " ";
    e.set("seen", "step");
    return status;
  }
};

TEST(RunSubstepsTest, OneCopyForAllAndStopAtTheFirstFailure) {
  ToyEngine engine;
  Value entry = dictOf({{"seen", "none"}});
  EXPECT_EQ(runSubsteps(engine, entry, {&ToyEngine::pass, &ToyEngine::fail, &ToyEngine::pass}), 3);
  EXPECT_EQ(engine.seen, "none step ");
  EXPECT_EQ(entry.get("seen"), Value("none"));
}

}  // namespace
}  // namespace velmar::testing

// "Strip support files" reads the request once and runs the shared steps on
// it, stopping at the first failure; a shared step also stands alone in a
// work list.

#include "engine/support/common_work.h"

#include <gtest/gtest.h>

#include "tests/engine/support/fake_support_host.h"

namespace velmar::testing {
namespace {

std::string seen;
int32_t pass(SupportHost&, const SupportRequest& request) {
  seen += niceDescription(request.products) + (request.reportScrubs ? "+ " : " ");
  return 0;
}
int32_t fail(SupportHost& host, const SupportRequest& request) {
  pass(host, request);
  return 3;
}

TEST_F(SupportStepTest, SubstepsShareOneRequestAndStopAtTheFirstFailure) {
  seen.clear();
  Value entry = dictOf({{"workAllProducts", setOf({"r13"})}, {"workProductList", arrayOf({"r11"})}});
  EXPECT_EQ(runSupportSteps(manifest_, entry, {pass, fail, pass}), 3);
  EXPECT_EQ(runSupportSteps(legacy_, entry, {pass, pass}), 0);
  EXPECT_EQ(seen, "r13 r13 r11+ r11+ ");
  EXPECT_EQ(runSupportSteps(legacy_, entry, {}), 0);

  seen.clear();
  EXPECT_EQ(supportWorkStep<fail>(legacy_, entry), 3);
  EXPECT_EQ(seen, "r11+ ");
}

}  // namespace
}  // namespace velmar::testing

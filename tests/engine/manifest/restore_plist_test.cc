// The closing Restore.plist rewrite, on the sample bundle with a restore
// property list of its own and image sets filled as the file-list steps do.

#include <gtest/gtest.h>

#include "tests/engine/manifest/engine_fixture.h"

namespace velmar::testing {
namespace {

// Kernel caches filed under the "wrong" table each way, and r13 in both.
Value restorePlist() {
  return dictOf({
      {"ProductVersion", "7.0"},
      {"KernelCachesByPlatform",
       dictOf({{"xr2120x", dictOf({{"Release", "kc.release"}, {"Development", "kc.dev"}})},
               {"r13", dictOf({{"Release", "kc.platform"}})},
               {"j99", dictOf({{"Release", "kc.j99"}, {"Debug", "kc.gone"}})}})},
      {"KernelCachesByTarget",
       dictOf({{"r13", dictOf({{"Release", "kc.target"}})}, {"xr2100x", dictOf({{"Release", "kc.r11"}})}})},
      {"RamDisksByPlatform", dictOf({{"xr2120x", dictOf({{"User", "rd13"}, {"Update", "upd13"}})},
                                     {"xr2100x", dictOf({{"User", "rd11"}})}})},
      {"SystemRestoreImagesByTarget", dictOf({{"r13", dictOf({{"User", "sys13"}, {"Internal", "int13"}})},
                                              {"r11", dictOf({{"User", "sys11"}})}})},
      {"SupportedProductTypes", arrayOf({"Corvid1,1", "corvid2,1", "Corvid2,1", "Bogus9,9"})},
      {"SystemPartitionPadding", dictOf({{"r13", 160}, {"r11", 320}})},
      {"MinimumSystemPartition", dictOf({{"sys13", 2048}, {"sys11", 4096}})},
  });
}

class RestorePlistTest : public EngineTest {
 protected:
  // Rewrites `plist` for `products`, the file-list steps having chosen r11's
  // images as well as r13's.
  Value strip(const Value& plist, Value products) {
    BundleDescription d = synth::sampleBundle();
    d.editPlist(synth::kRestorePlistPath, [plist](Value& v) { v = plist; });
    write(d);
    auto e = engine(products, arrayOf({"ss"}));
    Value entry = entryFor(*e, "stripRestorePlist:");
    e->restoreImagesSet() = setOf({"sys13", "sys11"});
    e->ramDisksSet() = setOf({"rd13", "rd11"});
    e->kernelCachesSet() = setOf({"kc.release", "kc.target", "kc.platform", "kc.j99", "kc.r11", "Kc.Y"});
    EXPECT_TRUE(e->restorePlist().load());
    EXPECT_EQ(e->stripRestorePlist(entry), 0);
    EXPECT_EQ(e->restorePlist().entries(), plist);  // the loaded file is left as it was
    return e->modifiedFilelist().get("Restore/Restore.plist");
  }
};

TEST_F(RestorePlistTest, KeepsRequestedProductsAndChosenImagesAndRefilesKernelCaches) {
  Value r = strip(restorePlist(), arrayOf({"r13"}));
  // A processor id goes under the platform table and anything else under the
  // target table, whichever table it came from; on "r13" the target wins.
  EXPECT_EQ(r.get("KernelCachesByPlatform"), dictOf({{"xr2120x", dictOf({{"Release", "kc.release"}})},
                                                     {"xr2100x", dictOf({{"Release", "kc.r11"}})}}));
  EXPECT_EQ(r.get("KernelCachesByTarget"),
            dictOf({{"r13", dictOf({{"Release", "kc.target"}})}, {"j99", dictOf({{"Release", "kc.j99"}})}}));
  EXPECT_EQ(logText(), "!!! WARNING: Restore.plist missing reference to kernelcaches kc.platform, Kc.Y.\n");
  EXPECT_EQ(r.get("RamDisksByPlatform"), dictOf({{"xr2120x", dictOf({{"User", "rd13"}})}}));
  EXPECT_EQ(r.get("SystemRestoreImagesByTarget"), dictOf({{"r13", dictOf({{"User", "sys13"}})}}));
  // Membership is exact: another spelling of the model goes.
  EXPECT_EQ(r.get("SupportedProductTypes"), arrayOf({"Corvid2,1"}));
  EXPECT_EQ(r.get("SystemPartitionPadding"), dictOf({{"r13", 160}}));
  // Keyed by image, so r11's chosen image stays.
  EXPECT_EQ(r.get("MinimumSystemPartition"), dictOf({{"sys13", 2048}, {"sys11", 4096}}));
  EXPECT_EQ(r.dict().keys(), restorePlist().dict().keys());
}

TEST_F(RestorePlistTest, NoProductsRequestedDropsEveryTargetImageAndPadding) {
  Value r = strip(restorePlist(), arrayOf({}));
  EXPECT_EQ(r.get("SystemRestoreImagesByTarget"), Value::makeDict());
  EXPECT_EQ(r.get("SystemPartitionPadding"), Value::makeDict());
  EXPECT_EQ(r.get("RamDisksByPlatform"),
            dictOf({{"xr2120x", dictOf({{"User", "rd13"}})}, {"xr2100x", dictOf({{"User", "rd11"}})}}));
  EXPECT_EQ(r.get("SupportedProductTypes"), arrayOf({"Corvid1,1", "Corvid2,1"}));
}

TEST_F(RestorePlistTest, MissingTablesComeBackEmptyAndOptionalOnesStayAbsent) {
  EXPECT_EQ(strip(dictOf({{"ProductVersion", "7.0"}}), arrayOf({"r13"})),
            dictOf({{"ProductVersion", "7.0"}, {"KernelCachesByPlatform", Value::makeDict()},
                    {"KernelCachesByTarget", Value::makeDict()}, {"RamDisksByPlatform", Value::makeDict()},
                    {"SystemRestoreImagesByTarget", Value::makeDict()},
                    {"SupportedProductTypes", arrayOf({})}}));
}

}  // namespace
}  // namespace velmar::testing

// velmarbs on bundles whose property lists are built to exhaust a reader:
// every one is refused with its error line, within seconds and bounded
// memory, and a refused run leaves nothing behind.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <functional>

#include "synth/bundle_builder.h"
#include "synth/hostile_plists.h"
#include "synth/sample_bundles.h"
#include "synth/temp_dir.h"
#include "tests/tool/tool_test_support.h"

namespace velmar::tool {
namespace {

namespace fs = std::filesystem;
using testing::ChildSetup;
using testing::listTree;
using testing::namesStartingWith;
using testing::readText;
using testing::ToolRun;
using testing::writeText;

struct HostileList {
  const char* name;
  std::function<std::string()> bytes;
};

const std::vector<HostileList>& hostileLists() {
  static const std::vector<HostileList> lists = {
      {"UTF-16 key holding U+0000", [] { return synth::nulKeyBinaryPlist(); }},
      {"XML nested 200,000 deep", [] { return synth::nestedXmlPlist(200000); }},
      {"binary nested 100,000 deep", [] { return synth::nestedBinaryPlist(100000); }},
      {"shared references, 10 a level, 9 levels", [] { return synth::sharedReferencesPlist(10, 9); }},
      // Text and dates an XML property list cannot carry: written into the
      // stripped bundle or printed by --results they would make it broken.
      {"one-byte string that is not UTF-8",
       [] { return synth::binaryPlist({"\xD1\x01\x02", "\x51" "a", "\x52\xFF\xFE"}, 1); }},
      {"string holding an escape character",
       [] { return synth::binaryPlist({"\xD1\x01\x02", "\x51" "a", "\x53\x1B[m"}, 1); }},
      {"date that is not a number",
       [] {
         return synth::binaryPlist(
             {"\xD1\x01\x02", "\x51" "a", std::string("\x33\x7F\xF8\x00\x00\x00\x00\x00\x00", 9)}, 1);
       }},
  };
  return lists;
}

// The tool may use a few hundred MB; a list that expanded would need many
// GB and end in an allocation failure, which the limit turns into a crash
// the test sees. Address sanitizer reserves terabytes of address space, so
// its builds go without.
ChildSetup boundedMemory() {
  ChildSetup setup;
#if !defined(__SANITIZE_ADDRESS__)
  setup.beforeExec = [] {
    struct rlimit limit = {rlim_t{2} << 30, rlim_t{2} << 30};
    ::setrlimit(RLIMIT_AS, &limit);
  };
#endif
  return setup;
}

class HostilePlistTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(synth::writeBundle(synth::sampleBundle(), bundle_, &error)) << error;
  }

  ToolRun strip(const std::vector<std::string>& extra = {}) {
    std::vector<std::string> args = {"--source", bundle_, "--target", target_, "--product", "r13"};
    args.insert(args.end(), extra.begin(), extra.end());
    auto started = std::chrono::steady_clock::now();
    ToolRun r = testing::runVelmarbs(args, scratch_.path(), boundedMemory());
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(30));
    return r;
  }

  synth::TempDir work_{"velmar-hostile-plist"};
  synth::TempDir scratch_{"velmar-scratch"};
  std::string bundle_ = work_ / "Bundle";
  std::string target_ = work_ / "Stripped";
};

TEST_F(HostilePlistTest, HostileBuildManifestIsRefusedAndNothingIsWritten) {
  const std::string manifest = bundle_ + "/Restore/BuildManifest.plist";
  for (const HostileList& list : hostileLists()) {
    SCOPED_TRACE(list.name);
    writeText(manifest, list.bytes());
    const std::set<std::string> withList = listTree(work_.path());
    ToolRun r = strip();
    EXPECT_EQ(r.signal, 0) << r.out << r.err;
    EXPECT_EQ(r.status, 1) << r.out << r.err;
    EXPECT_NE((r.out + r.err).find("XXX ERROR: BuildManifest.plist cannot be read."), std::string::npos)
        << r.out << r.err;
    EXPECT_EQ(listTree(work_.path()), withList);
    EXPECT_TRUE(namesStartingWith(work_.path(), ".Stripped.velmarbs-").empty());

    // The queries answer too, without the bundle's products.
    ToolRun q = testing::runVelmarbs({"--validproducts", "--source", bundle_}, scratch_.path(),
                                     boundedMemory());
    EXPECT_EQ(q.signal, 0);
    EXPECT_NE(q.out.find("<key>validProducts</key>"), std::string::npos) << q.out << q.err;
  }
}

// Restore.plist is needed to strip; the device map is not (the built-in
// table stands in for it), so that run goes on and succeeds.
TEST_F(HostilePlistTest, HostileRestoreAndMapListsGetTheirErrorLine) {
  struct File {
    const char* path;
    const char* line;
    int status;
  };
  for (const File& file : {File{"Restore/Restore.plist", "XXX ERROR: Restore.plist cannot be read.", 1},
                           File{"Restore/Firmware/Device_map.plist",
                                "XXX ERROR: Device_map.plist cannot be read.", 0}}) {
    const std::string path = bundle_ + "/" + file.path;
    const std::string original = readText(path);
    for (const HostileList& list : hostileLists()) {
      SCOPED_TRACE(std::string(file.path) + ": " + list.name);
      std::error_code ec;
      fs::remove_all(target_, ec);
      writeText(path, list.bytes());
      ToolRun r = strip();
      EXPECT_EQ(r.signal, 0) << r.out << r.err;
      EXPECT_EQ(r.status, file.status) << r.out << r.err;
      EXPECT_NE((r.out + r.err).find(file.line), std::string::npos) << r.out << r.err;
      EXPECT_EQ(fs::exists(target_), file.status == 0);
      EXPECT_TRUE(namesStartingWith(work_.path(), ".Stripped.velmarbs-").empty());
    }
    writeText(path, original);
  }
}

TEST_F(HostilePlistTest, ManifestWithAByteOrderMarkIsRead) {
  const std::string manifest = bundle_ + "/Restore/BuildManifest.plist";
  writeText(manifest, "\xEF\xBB\xBF" + readText(manifest));
  ToolRun r = strip();
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_TRUE(fs::exists(target_ + "/Restore/BuildManifest.plist"));
}

}  // namespace
}  // namespace velmar::tool

// The test-bundle builder: what guards the other tests' footing.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include "synth/bundle_builder.h"
#include "synth/sample_bundles.h"
#include "synth/temp_dir.h"

namespace velmar::synth {
namespace {

namespace fs = std::filesystem;

// A committed demo bundle must not drift from the description it came from.
void expectCommittedBundle(const BundleDescription& description, const char* folder) {
  const fs::path root = fs::path(VELMAR_SOURCE_DIR) / folder;
  std::set<std::string> expected;
  for (const BundleEntry& e : layoutBundle(description)) {
    expected.insert(e.path);
    std::ifstream in(root / e.path, std::ios::binary);  // a folder reads as empty
    EXPECT_EQ(e.kind == BundleEntry::Kind::Link
                  ? fs::read_symlink(root / e.path).string()
                  : std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()),
              e.contents)
        << e.path;
  }
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    if (entry.is_directory() && !entry.is_symlink()) continue;
    EXPECT_TRUE(expected.count(fs::relative(entry.path(), root).string())) << "unexpected " << entry.path();
  }
}

TEST(SynthBundleTest, CommittedSamplesMatchTheirDescriptions) {
  expectCommittedBundle(sampleBundle(), "sample/Bundle");
  expectCommittedBundle(legacyBundle(false), "sample/Legacy");
}

TEST(SynthBundleTest, WritingNeverLeavesTheRoot) {
  TempDir dir;
  std::string error;
  BundleDescription escape = sampleBundle();
  escape.addFile("../../escaped.txt", "x");
  EXPECT_FALSE(writeBundle(escape, dir / "Bundle", &error));
  EXPECT_FALSE(fs::exists(fs::path(dir.path()).parent_path() / "escaped.txt"));
  // A link written earlier is never written through.
  fs::create_directory(dir / "outside");
  BundleDescription through;
  through.addLink("Out", dir / "outside");
  through.addLink("Out/inner", "x");
  EXPECT_FALSE(writeBundle(through, dir / "Bundle2", &error));
  EXPECT_TRUE(fs::is_empty(dir / "outside"));
}

}  // namespace
}  // namespace velmar::synth

#include "base/safe_path.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "synth/temp_dir.h"
#include "tests/tool/tool_test_support.h"
#include "base/unique_fd.h"

namespace velmar::tool {
namespace {

using testing::readText;
using testing::writeText;

TEST(RelativePathProblem, AcceptsPlainPathsAndNamesEachFault) {
  EXPECT_EQ(relativePathProblem("Restore/Firmware/all_flash/x.img"), "");
  EXPECT_EQ(relativePathProblem("a..b/.hidden/..."), "");
  EXPECT_EQ(relativePathProblem(""), "is empty");
  EXPECT_EQ(relativePathProblem("/etc/passwd"), "is absolute");
  EXPECT_EQ(relativePathProblem("../../x"), "has a \"..\" component");
  EXPECT_EQ(relativePathProblem("Restore/../../x"), "has a \"..\" component");
  EXPECT_EQ(relativePathProblem("Restore//x"), "has an empty component");
  EXPECT_EQ(relativePathProblem("Restore/"), "has an empty component");
  EXPECT_EQ(relativePathProblem("./Restore"), "has a \".\" component");
  EXPECT_EQ(relativePathProblem(std::string("a\0b", 3)), "holds a NUL character");
}

TEST(ResolveLinkText, ResolvesFromTheLinksFolderAndRefusesEscapes) {
  EXPECT_EQ(resolveLinkText("RestoreTools.dmg", "038-9003-001.dmg"), "038-9003-001.dmg");
  EXPECT_EQ(resolveLinkText("Restore/x.dmg", "018-1.dmg"), "Restore/018-1.dmg");
  EXPECT_EQ(resolveLinkText("Restore/Firmware/x", "../y/./z"), "Restore/y/z");
  EXPECT_EQ(resolveLinkText("Restore/x", "../../y"), std::nullopt);
  EXPECT_EQ(resolveLinkText("x", "/etc/passwd"), std::nullopt);
  EXPECT_EQ(resolveLinkText("x", ""), std::nullopt);
  EXPECT_EQ(resolveLinkText("Restore/x", ".."), std::nullopt);  // the root is no file
}

// Both lookups must give the same answers; the walk stands in where the
// kernel has no openat2.
class OpenBeneath : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    writeText(root_ / "Restore/Firmware/x.img", "x");
    writeText(outside_ / "secret", "secret");
    ::symlink("Firmware", (root_ / "Restore/fw").c_str());                 // stays inside
    ::symlink("../Restore/Firmware", (root_ / "Restore/dbg").c_str());     // up and back down
    ::symlink(outside_.path().c_str(), (root_ / "Restore/abs").c_str());   // absolute
    ::symlink("../../../../../../../..", (root_ / "Restore/up").c_str());  // climbs out
    ::symlink("loop2", (root_ / "loop1").c_str());
    ::symlink("loop1", (root_ / "loop2").c_str());
    rootFd_.reset(::open(root_.path().c_str(), O_PATH | O_DIRECTORY));
  }

  int open(const std::string& path, int flags = O_RDONLY) {
    int fd = GetParam() ? openBeneathByWalk(rootFd_.get(), path, flags)
                        : openBeneath(rootFd_.get(), path, flags);
    if (fd >= 0) ::close(fd);
    return fd >= 0 ? 0 : fd;
  }

  synth::TempDir root_{"velmar-root"};
  synth::TempDir outside_{"velmar-outside"};
  UniqueFd rootFd_;
};

TEST_P(OpenBeneath, FollowsLinksThatStayInside) {
  EXPECT_EQ(open("Restore/Firmware/x.img"), 0);
  EXPECT_EQ(open("Restore/fw/x.img"), 0);
  EXPECT_EQ(open("Restore/dbg/x.img"), 0);
  EXPECT_EQ(open("Restore/Firmware", O_PATH | O_DIRECTORY), 0);
  EXPECT_EQ(open("", O_PATH | O_DIRECTORY), 0);
}

TEST_P(OpenBeneath, RefusesEveryWayOut) {
  EXPECT_EQ(open("Restore/abs/secret"), -EXDEV);
  EXPECT_EQ(open("Restore/up/etc/passwd"), -EXDEV);
  EXPECT_EQ(open("../x"), -EXDEV);
  EXPECT_EQ(open("Restore/../../x"), -EXDEV);
  EXPECT_EQ(open("loop1"), -ELOOP);
  EXPECT_EQ(open("Restore/missing"), -ENOENT);
  EXPECT_EQ(open("Restore/Firmware/x.img/y"), -ENOTDIR);
}

TEST_P(OpenBeneath, NoFollowKeepsTheLastLink) {
  EXPECT_EQ(open("Restore/fw", O_RDONLY | O_NOFOLLOW), -ELOOP);
  EXPECT_EQ(open("Restore/fw", O_PATH | O_NOFOLLOW), 0);
}

INSTANTIATE_TEST_SUITE_P(KernelAndWalk, OpenBeneath, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "Walk" : "Openat2"; });

TEST(MakeFoldersBeneath, CreatesMissingFoldersButNeverPassesALink) {
  synth::TempDir root("velmar-target");
  synth::TempDir outside("velmar-outside");
  UniqueFd rootFd(::open(root.path().c_str(), O_RDONLY | O_DIRECTORY));
  UniqueFd made(makeFoldersBeneath(rootFd.get(), "a/b/c"));
  ASSERT_TRUE(made.valid());
  EXPECT_TRUE(std::filesystem::is_directory(root / "a/b/c"));
  UniqueFd again(makeFoldersBeneath(rootFd.get(), "a/b"));
  EXPECT_TRUE(again.valid());

  ::symlink(outside.path().c_str(), (root / "a/out").c_str());
  int through = makeFoldersBeneath(rootFd.get(), "a/out/x");
  EXPECT_TRUE(through == -ELOOP || through == -ENOTDIR) << through;
  EXPECT_FALSE(std::filesystem::exists(outside / "x"));
  writeText(root / "file", "");
  EXPECT_EQ(makeFoldersBeneath(rootFd.get(), "file/x"), -ENOTDIR);
  EXPECT_EQ(makeFoldersBeneath(rootFd.get(), "a/../x"), -EINVAL);
}

TEST(CanonicalPaths, ResolveTheExistingPartAndDetectOverlap) {
  synth::TempDir dir("velmar-canon");
  std::filesystem::create_directories(dir / "src/Restore");
  ::symlink("src", (dir / "alias").c_str());
  std::string real = *canonicalPath(dir.path());
  EXPECT_EQ(canonicalPath(dir / "alias"), real + "/src");
  EXPECT_EQ(canonicalPath(dir / "alias/new"), real + "/src/new");
  EXPECT_EQ(canonicalPath(dir / "src/"), real + "/src");
  EXPECT_EQ(canonicalPath(dir / "missing/new"), std::nullopt);
  // The entry a rename would replace is the link, not where it leads.
  EXPECT_EQ(canonicalEntryPath(dir / "alias"), real + "/alias");
  EXPECT_EQ(canonicalEntryPath(dir / "src/."), real + "/src");

  EXPECT_TRUE(pathsOverlap("/a/b", "/a/b"));
  EXPECT_TRUE(pathsOverlap("/a/b", "/a/b/c"));
  EXPECT_TRUE(pathsOverlap("/a/b/c", "/a/b"));
  EXPECT_TRUE(pathsOverlap("/", "/a"));
  EXPECT_FALSE(pathsOverlap("/a/b", "/a/bc"));
  EXPECT_FALSE(pathsOverlap("/a/b", "/a/c"));
}

TEST(AnticipatedPath, ResolvesTheExistingPartAndTakesTheRestAsWritten) {
  synth::TempDir dir("velmar-anticipated");
  std::filesystem::create_directories(dir / "src/Restore");
  ::symlink("src", (dir / "alias").c_str());
  std::string real = *canonicalPath(dir.path());
  EXPECT_EQ(anticipatedPath(dir / "alias/missing/deeper"), real + "/src/missing/deeper");
  EXPECT_EQ(anticipatedPath(dir / "alias/missing/../x"), real + "/src/x");
  EXPECT_EQ(anticipatedPath(dir / "missing/./a/../../src"), real + "/src");
  EXPECT_EQ(anticipatedPath(dir / "src/Restore"), real + "/src/Restore");
  EXPECT_EQ(anticipatedPath("/"), "/");
}

TEST(NameTextProblem, RefusesControlCharactersAndBrokenUtf8) {
  EXPECT_EQ(nameTextProblem("Restore/Firmware/dfu/iBSS.r13.RELEASE.dfu"), "");
  EXPECT_EQ(nameTextProblem("Orrin RPKGs/caf\xc3\xa9 \xe2\x9c\x93"), "");
  EXPECT_EQ(nameTextProblem("a\nb"), "holds a control character");
  EXPECT_EQ(nameTextProblem("a\tb"), "holds a control character");
  EXPECT_EQ(nameTextProblem("a\x1b[0m"), "holds a control character");
  EXPECT_EQ(nameTextProblem("a\x7f"), "holds a control character");
  EXPECT_EQ(nameTextProblem("a\xff"), "is not valid UTF-8");
  EXPECT_EQ(nameTextProblem("a\xc3"), "is not valid UTF-8");
  EXPECT_EQ(nameTextProblem("a\xef\xbf\xbf"), "holds a character a property list cannot hold");
}

}  // namespace
}  // namespace velmar::tool

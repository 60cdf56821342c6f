// The on-disk store of parsed property lists, on its own and behind
// readBundlePropertyList.

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "base/bundle_plist.h"
#include "base/parsed_file_store.h"
#include "base/plist_io.h"
#include "synth/temp_dir.h"
#include "tests/base/value_literals.h"

namespace velmar {
namespace {

namespace fs = std::filesystem;
using testing::arrayOf;
using testing::dictOf;

FileIdentity identity(uint64_t inode) {
  FileIdentity id;
  id.device = 0x801;
  id.inode = inode;
  id.size = 4096;
  id.modifiedNs = 1000000000;
  id.changedNs = 2000000000;
  return id;
}

// A value whose snapshot takes about `bytes`, unlike any other `seed`.
Value bulky(int seed, size_t bytes = 8000) {
  Value v = Value::makeArray();
  for (size_t i = 0; i * 40 < bytes; ++i) v.append(std::to_string(seed) + "-" + std::to_string(i) + std::string(30, 'x'));
  return v;
}

std::string readAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void writeAll(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(folder, ec)) names.push_back(entry.path().filename());
  return names;
}

class ParsedFileStoreTest : public ::testing::Test {
 protected:
  void TearDown() override {
    setParsedFileStore(nullptr);
    clearParsedFileCache();
  }

  ParsedFileStore makeStore(ParsedFileStoreLimits limits = settled()) { return ParsedFileStore(folder_, limits); }
  static ParsedFileStoreLimits settled() {
    ParsedFileStoreLimits limits;
    limits.settleNs = 0;
    return limits;
  }
  std::string entryPath(const FileIdentity& id) { return folder_ + "/" + ParsedFileStore::entryName(id); }

  synth::TempDir dir_;
  // Its parents do not exist yet either.
  std::string folder_ = dir_ / "cache/velmarbs/parsed";
};

TEST_F(ParsedFileStoreTest, AnEntryServesOnlyTheIdentityItWasStoredFor) {
  ParsedFileStore store = makeStore();
  const Value v = dictOf({{"k", arrayOf({1, "two", true})}});
  EXPECT_TRUE(store.load(identity(1)).isNull());
  store.store(identity(1), v);
  EXPECT_EQ(store.load(identity(1)), v);

  for (int field = 0; field < 5; ++field) {
    FileIdentity changed = identity(1);
    if (field == 0) changed.device++;
    if (field == 1) changed.inode++;
    if (field == 2) changed.size++;
    if (field == 3) changed.modifiedNs++;
    if (field == 4) changed.changedNs++;
    EXPECT_TRUE(store.load(changed).isNull()) << "field " << field;
  }
  // The entry renamed to another identity's name is no entry for that one:
  // the identity inside counts, not the name.
  fs::copy_file(entryPath(identity(1)), entryPath(identity(2)));
  EXPECT_TRUE(store.load(identity(2)).isNull());
}

TEST_F(ParsedFileStoreTest, DamagedEntriesAreIgnoredAndStoredAgain) {
  ParsedFileStore store = makeStore();
  const Value v = dictOf({{"a", bulky(1, 2000)}, {"b", Value::makeData("bytes")}});
  store.store(identity(1), v);
  const std::string good = readAll(entryPath(identity(1)));
  ASSERT_GT(good.size(), 64u);

  std::vector<std::pair<std::string, std::string>> damages = {
      {"empty", ""},
      {"header only", good.substr(0, 64)},
      {"cut short", good.substr(0, good.size() / 2)},
      {"one byte short", good.substr(0, good.size() - 1)},
      {"longer", good + "x"},
      {"garbage", std::string(good.size(), '\x5a')},
  };
  for (size_t at : {size_t{3}, size_t{20}, size_t{60}, size_t{100}, good.size() - 1}) {
    std::string flipped = good;
    flipped[at] = static_cast<char>(flipped[at] ^ 0x10);
    damages.emplace_back("byte " + std::to_string(at) + " changed", flipped);
  }
  for (const auto& [what, bytes] : damages) {
    writeAll(entryPath(identity(1)), bytes);
    EXPECT_TRUE(store.load(identity(1)).isNull()) << what;
    // Removed, so the next parse stores it again.
    EXPECT_FALSE(fs::exists(entryPath(identity(1)))) << what;
    store.store(identity(1), v);
    EXPECT_EQ(store.load(identity(1)), v) << what;
  }

  // A link or a device in an entry's place is not followed or read.
  fs::remove(entryPath(identity(1)));
  fs::create_symlink("/dev/zero", entryPath(identity(1)));
  EXPECT_TRUE(store.load(identity(1)).isNull());
  store.store(identity(1), v);
  EXPECT_EQ(store.load(identity(1)), v);
  ASSERT_EQ(::mkfifo(entryPath(identity(2)).c_str(), 0600), 0);
  EXPECT_TRUE(store.load(identity(2)).isNull());
}

TEST_F(ParsedFileStoreTest, ProcessesStoringAndLoadingAtOnceSeeWholeEntriesOrNone) {
  const int kProcesses = 4, kRounds = 30;
  std::vector<Value> values;
  for (int i = 0; i < 4; ++i) values.push_back(bulky(i, 60000));
  std::vector<pid_t> children;
  for (int p = 0; p < kProcesses; ++p) {
    pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      ParsedFileStore store = makeStore();
      int wrong = 0;
      for (int round = 0; round < kRounds; ++round) {
        for (int i = 0; i < 4; ++i) {
          const int which = (i + p) % 4;
          Value loaded = store.load(identity(which));
          if (!loaded.isNull() && loaded != values[which]) ++wrong;
          if (loaded.isNull()) store.store(identity(which), values[which]);
          // Now and then one goes, as when the cache makes room.
          if (round % 7 == p) ::unlink(entryPath(identity(which)).c_str());
        }
      }
      ::_exit(wrong == 0 ? 0 : 1);
    }
    children.push_back(pid);
  }
  for (pid_t pid : children) {
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "a process loaded a wrong value";
  }
  ParsedFileStore store = makeStore();
  for (int i = 0; i < 4; ++i) {
    store.store(identity(i), values[i]);
    EXPECT_EQ(store.load(identity(i)), values[i]);
  }
  // Nothing but entries is left.
  for (const std::string& name : namesIn(folder_)) EXPECT_EQ(name.rfind("p-", 0), 0u) << name;
}

TEST_F(ParsedFileStoreTest, StaysWithinItsSizeDroppingTheLeastRecentlyUsed) {
  ParsedFileStoreLimits limits = settled();
  limits.totalBytes = 48 * 1024;
  limits.entryBytes = 20 * 1024;
  ParsedFileStore store = makeStore(limits);
  // Too large for one entry: not kept at all.
  store.store(identity(100), bulky(100, 40000));
  EXPECT_TRUE(store.load(identity(100)).isNull());

  for (int i = 0; i < 12; ++i) {
    store.store(identity(i), bulky(i));
    // The first one stays in use, so it stays.
    EXPECT_FALSE(store.load(identity(0)).isNull()) << i;
    struct timespec pause = {0, 20 * 1000 * 1000};
    ::nanosleep(&pause, nullptr);
  }
  uint64_t total = 0;
  for (const std::string& name : namesIn(folder_)) {
    struct stat st;
    ASSERT_EQ(::stat((folder_ + "/" + name).c_str(), &st), 0);
    total += static_cast<uint64_t>(st.st_blocks) * 512;
  }
  EXPECT_LE(total, limits.totalBytes);
  EXPECT_EQ(store.load(identity(11)), bulky(11));
  EXPECT_TRUE(store.load(identity(1)).isNull());
}

TEST_F(ParsedFileStoreTest, AFolderThatCannotBeMadeOnlyMeansParsingEachTime) {
  writeAll(dir_ / "cache", "a file where the folder would go");
  auto store = std::make_shared<ParsedFileStore>(folder_, settled());
  store->store(identity(1), Value("v"));
  EXPECT_TRUE(store->load(identity(1)).isNull());

  fs::create_directories(dir_ / "Bundle/Restore");
  writeAll(dir_ / "Bundle/Restore/Restore.plist", toXml(arrayOf({"read"})));
  setParsedFileStore(store);
  auto view = openFolderView(dir_ / "Bundle");
  Value root;
  ASSERT_EQ(readBundlePropertyList(*view, "Restore/Restore.plist", &root), 0);
  EXPECT_EQ(root, arrayOf({"read"}));
}

class BundleStoreTest : public ParsedFileStoreTest {
 protected:
  void SetUp() override {
    fs::create_directories(bundle_ + "/Restore");
    write(toXml(arrayOf({"first"})));
    view_ = openFolderView(bundle_);
  }
  void write(const std::string& text) { writeAll(bundle_ + "/" + kPath, text); }
  FileIdentity fileIdentity() {
    EntryInfo info;
    EXPECT_EQ(view_->targetInfo(kPath, &info), 0);
    return info.identity;
  }
  Value read() {
    clearParsedFileCache();  // as a new process would
    Value root;
    EXPECT_EQ(readBundlePropertyList(*view_, kPath, &root), 0);
    return root;
  }

  static constexpr const char* kPath = "Restore/Restore.plist";
  std::string bundle_ = dir_ / "Bundle";
  std::unique_ptr<BundleView> view_;
};

TEST_F(BundleStoreTest, AStoredFileIsTakenFromTheStoreUntilItChanges) {
  auto store = std::make_shared<ParsedFileStore>(folder_, settled());
  setParsedFileStore(store);
  EXPECT_EQ(read(), arrayOf({"first"}));
  ASSERT_TRUE(fs::exists(entryPath(fileIdentity())));
  // What the store holds for the file is what a reader gets.
  fs::remove(entryPath(fileIdentity()));
  store->store(fileIdentity(), arrayOf({"from the store"}));
  EXPECT_EQ(read(), arrayOf({"from the store"}));

  // Changed in place to the same size, its modification time put back:
  // read afresh all the same.
  struct stat before;
  ASSERT_EQ(::stat((bundle_ + "/" + kPath).c_str(), &before), 0);
  write(toXml(arrayOf({"other"})));
  struct timespec times[2] = {before.st_atim, before.st_mtim};
  ASSERT_EQ(::utimensat(AT_FDCWD, (bundle_ + "/" + kPath).c_str(), times, 0), 0);
  EXPECT_EQ(read(), arrayOf({"other"}));
}

TEST_F(BundleStoreTest, AFileChangedJustNowIsNotStored) {
  auto store = std::make_shared<ParsedFileStore>(folder_);  // the default two seconds
  setParsedFileStore(store);
  EXPECT_EQ(read(), arrayOf({"first"}));
  EXPECT_FALSE(fs::exists(entryPath(fileIdentity())));
  // Nor noted for later, so a run has nothing to write after its answer.
  setParsedFileStore(store, /*deferred=*/true);
  EXPECT_EQ(read(), arrayOf({"first"}));
  EXPECT_FALSE(parsedFilesToStore());
}

TEST_F(BundleStoreTest, DeferredStoresWaitUntilAsked) {
  auto store = std::make_shared<ParsedFileStore>(folder_, settled());
  setParsedFileStore(store, /*deferred=*/true);
  EXPECT_FALSE(parsedFilesToStore());
  EXPECT_EQ(read(), arrayOf({"first"}));
  EXPECT_FALSE(fs::exists(entryPath(fileIdentity())));
  EXPECT_TRUE(parsedFilesToStore());
  storeParsedFiles();
  EXPECT_FALSE(parsedFilesToStore());
  EXPECT_EQ(store->load(fileIdentity()), arrayOf({"first"}));
}

}  // namespace
}  // namespace velmar

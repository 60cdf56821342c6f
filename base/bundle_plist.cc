#include "base/bundle_plist.h"

#include <errno.h>

#include <list>
#include <mutex>
#include <utility>
#include <vector>

#include "base/plist_io.h"

namespace velmar {

namespace {

// A few entries are enough: a run reads a handful of property lists. The
// oldest goes first when a new one arrives.
class ParsedFileCache {
 public:
  static ParsedFileCache& shared() {
    static ParsedFileCache cache;
    return cache;
  }

  bool find(const FileIdentity& id, Value* root) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto it = entries_.begin(); it != entries_.end(); ++it) {
      if (it->first == id) {
        *root = it->second;
        entries_.splice(entries_.begin(), entries_, it);
        return true;
      }
    }
    return false;
  }

  void store(const FileIdentity& id, const Value& root) {
    std::lock_guard<std::mutex> lock(mutex_);
    entries_.emplace_front(id, root);
    if (entries_.size() > kCapacity) entries_.pop_back();
  }

  void clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    entries_.clear();
  }

  void setStore(std::shared_ptr<ParsedFileStore> store, bool deferred) {
    std::lock_guard<std::mutex> lock(mutex_);
    store_ = std::move(store);
    deferred_ = deferred;
    toStore_.clear();
  }

  std::shared_ptr<ParsedFileStore> store() {
    std::lock_guard<std::mutex> lock(mutex_);
    return store_;
  }

  // Stores `root` now, or notes it for takeToStore when deferred.
  void keep(const std::shared_ptr<ParsedFileStore>& store, const FileIdentity& id,
            const Value& root) {
    // Nothing is noted that would not be kept: a run on a bundle written
    // just now has nothing to leave for later.
    if (!store->accepts(id)) return;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (deferred_ && store == store_) {
        toStore_.emplace_back(id, root);
        return;
      }
    }
    store->store(id, root);
  }

  bool hasToStore() {
    std::lock_guard<std::mutex> lock(mutex_);
    return !toStore_.empty();
  }

  std::pair<std::shared_ptr<ParsedFileStore>, std::vector<std::pair<FileIdentity, Value>>>
  takeToStore() {
    std::lock_guard<std::mutex> lock(mutex_);
    return {store_, std::exchange(toStore_, {})};
  }

 private:
  static constexpr size_t kCapacity = 16;
  std::mutex mutex_;
  std::list<std::pair<FileIdentity, Value>> entries_;
  std::shared_ptr<ParsedFileStore> store_;
  bool deferred_ = false;
  std::vector<std::pair<FileIdentity, Value>> toStore_;
};

}  // namespace

int readBundlePropertyList(BundleView& view, std::string_view path, Value* root) {
  EntryInfo info;
  if (int err = view.targetInfo(path, &info)) return err;
  if (info.kind != EntryKind::File) return EINVAL;
  // Identities of 0 mean the view cannot tell one file from another.
  const bool cacheable = info.identity.inode != 0 || info.identity.device != 0;
  ParsedFileCache& cache = ParsedFileCache::shared();
  if (cacheable && cache.find(info.identity, root)) return 0;
  std::shared_ptr<ParsedFileStore> store = cacheable ? cache.store() : nullptr;
  if (store) {
    Value stored = store->load(info.identity);
    if (!stored.isNull()) {
      cache.store(info.identity, stored);
      *root = std::move(stored);
      return 0;
    }
  }

  std::string bytes;
  FileIdentity identity;
  if (int err = view.readFile(path, kMaxPropertyListBytes, &bytes, &identity)) return err;
  Value parsed = parsePropertyList(bytes);
  if (parsed.isNull()) return EBADMSG;
  if (cacheable) cache.store(identity, parsed);
  if (store) cache.keep(store, identity, parsed);
  *root = std::move(parsed);
  return 0;
}

void setParsedFileStore(std::shared_ptr<ParsedFileStore> store, bool deferred) {
  ParsedFileCache::shared().setStore(std::move(store), deferred);
}

bool parsedFilesToStore() { return ParsedFileCache::shared().hasToStore(); }

void storeParsedFiles() {
  auto [store, files] = ParsedFileCache::shared().takeToStore();
  if (!store) return;
  for (const auto& [id, root] : files) store->store(id, root);
}

void clearParsedFileCache() { ParsedFileCache::shared().clear(); }

}  // namespace velmar

#include "base/bundle_plist.h"

#include <errno.h>

#include <list>
#include <mutex>
#include <utility>

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

 private:
  static constexpr size_t kCapacity = 16;
  std::mutex mutex_;
  std::list<std::pair<FileIdentity, Value>> entries_;
};

}  // namespace

int readBundlePropertyList(BundleView& view, std::string_view path, Value* root) {
  EntryInfo info;
  if (int err = view.targetInfo(path, &info)) return err;
  if (info.kind != EntryKind::File) return EINVAL;
  // Identities of 0 mean the view cannot tell one file from another.
  const bool cacheable = info.identity.inode != 0 || info.identity.device != 0;
  if (cacheable && ParsedFileCache::shared().find(info.identity, root)) return 0;

  std::string bytes;
  FileIdentity identity;
  if (int err = view.readFile(path, kMaxPropertyListBytes, &bytes, &identity)) return err;
  Value parsed = parsePropertyList(bytes);
  if (parsed.isNull()) return EBADMSG;
  if (cacheable) ParsedFileCache::shared().store(identity, parsed);
  *root = std::move(parsed);
  return 0;
}

void clearParsedFileCache() { ParsedFileCache::shared().clear(); }

}  // namespace velmar

// ParsedFileStore: parsed property lists kept on disk between runs.
//
// The desktop application asks the tool a dozen questions about one bundle,
// each in a new process, and each would parse the same 10 MB build manifest
// again: most of a query's time. The store keeps the parsed value as a
// snapshot (value_snapshot.h) in a per-user folder, so the next process reads
// a few hundred kilobytes instead of parsing.
//
// An entry is named after the file's identity (device, inode, size,
// modification and change time), so a file that changed never finds the old
// entry. A file changed less than `settleNs` ago is not kept: a second change
// within the file system's clock tick could leave the identity as it was.
// Entries are written as unnamed files linked into place when complete, so
// two processes at once each see a whole entry or none. Every entry is
// checked before use (its identity, length, checksum and every record); one
// that fails is removed, and the caller parses the file and stores it again.
// The folder is bounded: storing drops the least recently used entries.
//
// Nothing here fails a run: a folder that cannot be made or written just
// means every file is parsed.

#ifndef VELMAR_BASE_PARSED_FILE_STORE_H_
#define VELMAR_BASE_PARSED_FILE_STORE_H_

#include <cstdint>
#include <string>

#include "base/bundle_view.h"
#include "base/value.h"

namespace velmar {

struct ParsedFileStoreLimits {
  uint64_t totalBytes = uint64_t{64} << 20;  // every entry together
  uint64_t entryBytes = uint64_t{16} << 20;  // one entry
  int64_t settleNs = int64_t{2} * 1000000000;
};

class ParsedFileStore {
 public:
  // Entries go into `folder`, made (with its parents) on the first store.
  explicit ParsedFileStore(std::string folder, ParsedFileStoreLimits limits = {});

  const std::string& folder() const { return folder_; }

  // The value stored for the file with identity `id`, or null.
  Value load(const FileIdentity& id);

  // Whether a file with identity `id` would be kept now: it has settled and
  // the folder is usable.
  bool accepts(const FileIdentity& id) const;

  // Keeps `root`, parsed from the file with identity `id`, when accepts(id)
  // and the snapshot fits the limits.
  void store(const FileIdentity& id, const Value& root);

  // The entry's file name for `id` (for tests that damage one).
  static std::string entryName(const FileIdentity& id);

 private:
  bool makeFolder();
  // Drops the least recently used entries but `kept` until all fit.
  void makeRoom(const std::string& kept);

  std::string folder_;
  ParsedFileStoreLimits limits_;
  bool unusable_ = false;  // the folder could not be made: stop trying
};

}  // namespace velmar

#endif  // VELMAR_BASE_PARSED_FILE_STORE_H_

// A view of the source that says what it could not read.
//
// An engine lists the folders it walks and leaves out what it cannot list,
// which is right for a folder that does not exist but wrong, silently, for
// one that exists and cannot be read (mode 000 for the user running the
// tool): the stripped bundle would lack it and nobody would know. This view
// passes every question on and logs a warning, once per folder, for each
// folder that exists but cannot be listed.

#ifndef VELMAR_TOOL_REPORTING_VIEW_H_
#define VELMAR_TOOL_REPORTING_VIEW_H_

#include <memory>
#include <set>
#include <string>

#include "base/bundle_view.h"

namespace velmar::tool {

class ReportingView : public BundleView {
 public:
  explicit ReportingView(std::shared_ptr<BundleView> inner) : inner_(std::move(inner)) {}

  const std::string& location() const override { return inner_->location(); }
  int entryInfo(std::string_view path, EntryInfo* info) override {
    return inner_->entryInfo(path, info);
  }
  int targetInfo(std::string_view path, EntryInfo* info) override {
    return inner_->targetInfo(path, info);
  }
  int listFolder(std::string_view path, std::vector<FolderEntry>* entries) override;
  int readFile(std::string_view path, size_t limit, std::string* bytes,
               FileIdentity* identity) override {
    return inner_->readFile(path, limit, bytes, identity);
  }
  int openFile(std::string_view path, UniqueFd* fd) override { return inner_->openFile(path, fd); }
  int copyFile(std::string_view path, int out,
               const std::function<void(uint64_t)>& progress) override {
    return inner_->copyFile(path, out, progress);
  }
  void prepareFiles(const std::vector<std::string>& paths) override { inner_->prepareFiles(paths); }
  std::vector<std::string> caseConflicts() const override { return inner_->caseConflicts(); }

 private:
  std::shared_ptr<BundleView> inner_;
  std::set<std::string, std::less<>> warned_;
};

}  // namespace velmar::tool

#endif  // VELMAR_TOOL_REPORTING_VIEW_H_

// Reading a bundle's property lists through its view, each file parsed once
// per process.
//
// Queries and strips read the same build manifest several times (analysis at
// creation, the strip itself, the support steps); the parsed value is kept by
// the file's identity, so a later reader of the same unchanged file gets it
// without reading or parsing again, and a file that changed is read afresh.
// Readers get their own Value: copy-on-write keeps one reader's changes from
// the others. With a ParsedFileStore set, a file parsed by an earlier process
// is taken from the store instead, and a file parsed here is stored for the
// next one.

#ifndef VELMAR_BASE_BUNDLE_PLIST_H_
#define VELMAR_BASE_BUNDLE_PLIST_H_

#include <memory>
#include <string_view>

#include "base/bundle_view.h"
#include "base/parsed_file_store.h"
#include "base/value.h"

namespace velmar {

// Answers 0 and the parsed root in *root, an errno value from the view, or
// EBADMSG when the file is not a property list.
int readBundlePropertyList(BundleView& view, std::string_view path, Value* root);

// Keeps parsed files in `store` between processes too; null (the default)
// keeps them only in this one. The tool sets it once at its start. With
// `deferred`, files parsed here are only noted, and written by
// storeParsedFiles: writing a snapshot costs about a quarter of the parse, which a
// process whose answer is out need not wait for.
void setParsedFileStore(std::shared_ptr<ParsedFileStore> store, bool deferred = false);

// Whether files parsed so far wait to be stored (deferred mode only).
bool parsedFilesToStore();
// Writes what waits to be stored.
void storeParsedFiles();

// Forgets every parsed file (for tests and benchmarks that measure a cold read).
void clearParsedFileCache();

}  // namespace velmar

#endif  // VELMAR_BASE_BUNDLE_PLIST_H_

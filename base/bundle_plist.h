// Reading a bundle's property lists through its view, each file parsed once
// per process.
//
// Queries and strips read the same build manifest several times (analysis at
// creation, the strip itself, the support steps); the parsed value is kept by
// the file's identity, so a later reader of the same unchanged file gets it
// without reading or parsing again, and a file that changed is read afresh.
// Readers get their own Value: copy-on-write keeps one reader's changes from
// the others.

#ifndef VELMAR_BASE_BUNDLE_PLIST_H_
#define VELMAR_BASE_BUNDLE_PLIST_H_

#include <string_view>

#include "base/bundle_view.h"
#include "base/value.h"

namespace velmar {

// Answers 0 and the parsed root in *root, an errno value from the view, or
// EBADMSG when the file is not a property list.
int readBundlePropertyList(BundleView& view, std::string_view path, Value* root);

// Forgets every parsed file (for tests and benchmarks that measure a cold read).
void clearParsedFileCache();

}  // namespace velmar

#endif  // VELMAR_BASE_BUNDLE_PLIST_H_

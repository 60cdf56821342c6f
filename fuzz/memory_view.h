// A bundle held in memory, built from fuzzed bytes, for the engine target.
//
// The bytes are records separated by a line "%%":
//
//   F <path>            a regular file; the lines after the header are its
//                       contents
//   D <path>            a folder (folders on the way are made anyway)
//   L <path>\t<target>  a symbolic link with the target text as it stands
//   Q                   the request: an XML property list dictionary with
//                       Products, FactoryVariants (arrays) and Options
//
// The view answers as a folder view does: links are followed while they
// stay inside, a path that leaves answers EXDEV, too many links ELOOP, a
// file that is not regular EINVAL, one above the limit EFBIG.

#ifndef VELMAR_FUZZ_MEMORY_VIEW_H_
#define VELMAR_FUZZ_MEMORY_VIEW_H_

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "base/bundle_view.h"
#include "base/value.h"

namespace velmar::fuzz {

struct FuzzBundle {
  std::shared_ptr<BundleView> view;
  Value request;  // the Q record, parsed; null when there is none
};

FuzzBundle parseFuzzBundle(std::string_view bytes);

}  // namespace velmar::fuzz

#endif  // VELMAR_FUZZ_MEMORY_VIEW_H_

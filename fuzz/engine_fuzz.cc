// The manifest engine on a bundle built from fuzzed bytes (see
// memory_view.h): manifest and restore property lists, map texts, names and
// link targets. Then the writer plans the results against the same bundle,
// which checks every path the engine handed over; nothing is written.

#include <cstdint>
#include <cstdio>
#include <string_view>

#include "base/bundle_plist.h"
#include "base/plist_io.h"
#include "engine/log_object.h"
#include "engine/manifest/stripper3.h"
#include "fuzz/memory_view.h"
#include "tool/bundle_writer.h"

namespace {

velmar::Value field(const velmar::Value& request, const char* key) {
  if (!request.isDict()) return velmar::Value();
  const velmar::Value* v = request.find(key);
  return v ? *v : velmar::Value();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace velmar;
  static FILE* devNull = std::fopen("/dev/null", "w");
  LogObject& log = LogObject::sharedLogger();
  log.setStreams(devNull, devNull);
  log.setHistoricalLog(std::string());
  clearParsedFileCache();

  fuzz::FuzzBundle bundle =
      fuzz::parseFuzzBundle(std::string_view(reinterpret_cast<const char*>(data), size));
  Value options = field(bundle.request, "Options");
  if (!options.isDict()) options = Value::makeDict();
  std::unique_ptr<Stripper3> engine =
      Stripper3::stripperForView(bundle.view, field(bundle.request, "Products"),
                                 field(bundle.request, "FactoryVariants"), options);
  if (!engine) return 0;
  engine->validProducts();
  engine->validFactoryVariants();
  if (engine->strip() != 0) return 0;
  Value kept = engine->strippedManifest();
  Value modified = engine->modifiedFiles();
  if (!kept.isArray()) kept = Value::makeArray();
  if (!modified.isDict()) modified = Value::makeDict();
  toXml(kept);
  toXml(modified);
  tool::BundleWriter writer(*bundle.view, tool::BundleWriterOptions());
  writer.plan(kept, modified);
  return 0;
}

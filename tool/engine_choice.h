// Which engine class serves a bundle.
//
// The tool talks to an engine class through this small record, so queries
// and runs read the class operations (knownProducts, knownFactoryVariants)
// of the same class that strips.

#ifndef VELMAR_TOOL_ENGINE_CHOICE_H_
#define VELMAR_TOOL_ENGINE_CHOICE_H_

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/bundle_view.h"
#include "engine/stripper.h"
#include "base/value.h"
#include "tool/command_line.h"

namespace velmar::tool {

struct EngineClass {
  const char* name;
  std::vector<std::string> (*knownProducts)();
  std::vector<std::string> (*knownFactoryVariants)();
  std::unique_ptr<Stripper> (*create)(std::shared_ptr<BundleView> bundle, const Value& products,
                                      const Value& factoryVariants, const Value& options);
};

struct EngineChoice {
  const EngineClass* engineClass = nullptr;
  // When there is no class: the "XXX ERROR: ..." line to log.
  std::string error;
};

// `bundle` is the source bundle, or null for a query without --source (auto
// then means the manifest engine's class).
EngineChoice chooseEngine(EngineKind kind, BundleView* bundle);

// The engine a strip of the bundle uses for this request, created
// (which analyses the bundle) and set verbose as asked. Logs the choice's
// error and answers nullptr when no engine class serves the bundle. The
// class chosen goes to `*chosen` when given.
std::unique_ptr<Stripper> createEngine(const ToolRequest& request,
                                       std::shared_ptr<BundleView> bundle,
                                       const EngineClass** chosen = nullptr);

}  // namespace velmar::tool

#endif  // VELMAR_TOOL_ENGINE_CHOICE_H_

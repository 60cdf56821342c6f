#include "tool/engine_choice.h"

#include "engine/log_object.h"
#include "engine/legacy/stripper2.h"
#include "engine/manifest/stripper3.h"

namespace velmar::tool {

namespace {

template <class Engine>
const EngineClass* engineClassOf(const char* name) {
  static const EngineClass engineClass = {
      name,
      &Engine::knownProducts,
      &Engine::knownFactoryVariants,
      [](std::shared_ptr<BundleView> bundle, const Value& products, const Value& variants,
         const Value& options) -> std::unique_ptr<Stripper> {
        return Engine::stripperForView(std::move(bundle), products, variants, options);
      },
  };
  return &engineClass;
}

bool hasBuildManifest(BundleView& bundle) {
  EntryInfo info;
  return bundle.targetInfo("Restore/BuildManifest.plist", &info) == 0 &&
         info.kind == EntryKind::File;
}

}  // namespace

EngineChoice chooseEngine(EngineKind kind, BundleView* bundle) {
  bool manifest = kind == EngineKind::Manifest ||
                  (kind == EngineKind::Auto && (!bundle || hasBuildManifest(*bundle)));
  if (manifest) return {engineClassOf<Stripper3>("Stripper3"), ""};
  // Every bundle has an engine: one without a build manifest is an older
  // bundle, which the legacy engine strips from its restore property list.
  return {engineClassOf<Stripper2>("Stripper2"), ""};
}

std::unique_ptr<Stripper> createEngine(const ToolRequest& request,
                                       std::shared_ptr<BundleView> bundle,
                                       const EngineClass** chosen) {
  EngineChoice choice = chooseEngine(request.engine, bundle.get());
  if (!choice.engineClass) {
    LogObject::sharedLogger().Log(choice.error);
    return nullptr;
  }
  if (chosen) *chosen = choice.engineClass;
  std::unique_ptr<Stripper> engine = choice.engineClass->create(
      std::move(bundle), request.products, request.factoryVariants, request.options);
  engine->setVerbose(request.verbose);
  return engine;
}

}  // namespace velmar::tool

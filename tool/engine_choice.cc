#include "tool/engine_choice.h"

#include "engine/log_object.h"
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
  // The legacy engine (Stripper2) is not built yet; once it is, this line
  // becomes: return {engineClassOf<Stripper2>("Stripper2"), ""};
  return {nullptr,
          kind == EngineKind::Legacy
              ? "XXX ERROR: the legacy engine (Stripper2) is not available in this velmarbs."
              : "XXX ERROR: the bundle has no Restore/BuildManifest.plist and the legacy engine "
                "(Stripper2) it needs is not available in this velmarbs."};
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

#include "tool/engine_choice.h"

#include <sys/stat.h>

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
      [](const std::string& path, const Value& products, const Value& variants,
         const Value& options) -> std::unique_ptr<Stripper> {
        return Engine::stripperForPath(path, products, variants, options);
      },
  };
  return &engineClass;
}

bool hasBuildManifest(const std::string& bundle) {
  struct stat st;
  return ::stat((bundle + "/Restore/BuildManifest.plist").c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

}  // namespace

EngineChoice chooseEngine(EngineKind kind, const std::optional<std::string>& bundle) {
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

std::unique_ptr<Stripper> createEngine(const ToolRequest& request, const std::string& bundleFolder,
                                       const EngineClass** chosen) {
  EngineChoice choice = chooseEngine(request.engine, bundleFolder);
  if (!choice.engineClass) {
    LogObject::sharedLogger().Log(choice.error);
    return nullptr;
  }
  if (chosen) *chosen = choice.engineClass;
  std::unique_ptr<Stripper> engine = choice.engineClass->create(
      bundleFolder, request.products, request.factoryVariants, request.options);
  engine->setVerbose(request.verbose);
  return engine;
}

}  // namespace velmar::tool

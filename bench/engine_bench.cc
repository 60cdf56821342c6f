// The engine on a bundle whose build manifest is about 10 MB: reading it,
// copying it the way the closing steps do, and a whole strip.
//
//   build/bench/velmar_bench --benchmark_filter=Engine

#include <benchmark/benchmark.h>

#include "engine/log_object.h"
#include "engine/manifest/stripper3.h"
#include "base/file_bytes.h"
#include "base/plist_io.h"
#include "synth/bundle_builder.h"
#include "synth/sample_bundles.h"
#include "synth/temp_dir.h"

namespace velmar {
namespace {

// One large bundle per process, written on first use.
const std::string& largeBundleRoot() {
  static synth::TempDir dir("velmar-bench");
  static const std::string root = [] {
    std::string path = dir / "Large";
    std::string error;
    if (!synth::writeBundle(synth::largeBundle(synth::kLargeBundleProducts), path, &error))
      std::fprintf(stderr, "cannot write the large bundle: %s\n", error.c_str());
    return path;
  }();
  return root;
}

void BM_EngineReadLargeManifest(benchmark::State& state) {
  const std::string path = largeBundleRoot() + "/Restore/BuildManifest.plist";
  for (auto _ : state) {
    Value manifest = readPropertyListFile(path);
    benchmark::DoNotOptimize(manifest);
  }
}
BENCHMARK(BM_EngineReadLargeManifest)->Unit(benchmark::kMillisecond);

// The parse alone: the file's bytes are in memory and the previous Value is
// freed outside the timed part.
void BM_EngineParseLargeManifest(benchmark::State& state) {
  std::string bytes;
  readFileBytes(largeBundleRoot() + "/Restore/BuildManifest.plist", &bytes);
  Value manifest;
  for (auto _ : state) {
    state.PauseTiming();
    manifest = Value();
    state.ResumeTiming();
    manifest = parsePropertyList(bytes);
    benchmark::DoNotOptimize(manifest);
  }
}
BENCHMARK(BM_EngineParseLargeManifest)->Unit(benchmark::kMillisecond);

// The closing steps copy the loaded manifest and replace a key or two; the
// copy must cost the top-level dictionary, not the file.
void BM_EngineCopyManifestAndReplaceKey(benchmark::State& state) {
  const Value manifest = readPropertyListFile(largeBundleRoot() + "/Restore/BuildManifest.plist");
  for (auto _ : state) {
    Value copy = manifest;
    copy.set("BuildIdentities", Value::makeArray());
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(BM_EngineCopyManifestAndReplaceKey)->Unit(benchmark::kMicrosecond);

void BM_EngineStripLargeBundle(benchmark::State& state) {
  const std::string& root = largeBundleRoot();
  Value products = Value::makeArray({"r13"});
  Value variants = Value::makeArray({"ss", "swdl"});
  for (auto _ : state) {
    Stripper3::tables().knownProducts = builtInKnownProducts();
    LogObject::sharedLogger().setHistoricalLog("");
    auto engine = Stripper3::stripperForPath(root, products, variants, Value());
    int32_t status = engine->strip();
    if (status != 0) state.SkipWithError("strip failed");
    benchmark::DoNotOptimize(engine->strippedManifest());
  }
}
BENCHMARK(BM_EngineStripLargeBundle)->Unit(benchmark::kMillisecond);

void BM_EngineXmlWriteLargeManifest(benchmark::State& state) {
  const Value manifest = readPropertyListFile(largeBundleRoot() + "/Restore/BuildManifest.plist");
  for (auto _ : state) benchmark::DoNotOptimize(toXml(manifest));
}
BENCHMARK(BM_EngineXmlWriteLargeManifest)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace velmar

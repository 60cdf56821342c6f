// Ready-made bundle descriptions: a small modern bundle for tests and the
// demo, a large one for benchmarks, and the per-product recipe both use.

#ifndef VELMAR_SYNTH_SAMPLE_BUNDLES_H_
#define VELMAR_SYNTH_SAMPLE_BUNDLES_H_

#include <cstddef>
#include <string>
#include <vector>

#include "synth/bundle_builder.h"

namespace velmar::synth {

// What a product contributes to a bundle. Files are named so that the
// conventional names a strip records differ from them: system images
// "038-<partBase>-00n.dmg", ramdisks "018-<processor digits>-00n.dmg",
// kernel caches "kernelcache.<release|development>.<processor>".
struct ProductRecipe {
  std::string board;         // "r13"; device classes are board + "ap" / "dev"
  std::string processor;     // "xr2120x"
  std::string model;         // "Corvid2,1"
  std::string partBase;      // "1300"
  std::string basebandFile;  // in Restore/Firmware, named by ap identities; empty: none
  long long boardId = 0;     // ap; dev takes boardId + 1
  std::vector<std::string> apVariants;   // personalization variant names
  std::vector<std::string> devVariants;
  int extraFirmwareItems = 0;  // more all_flash items, with digests, per identity
};

// Adds the product's identities, images, firmware, map rows and restore
// table rows. Per-processor files (kernel caches, ramdisks, platform keys)
// are added once however many products share the processor. Variant names
// outside the usual factory variants get a shipping-settings layout.
void addProduct(BundleDescription& d, const ProductRecipe& p);

// The recipes of the sample's two products.
ProductRecipe r13Recipe();
ProductRecipe r11Recipe();

// Products r13 (device classes r13ap, r13dev) and r11 (r11ap, r11dev) with
// shipping-settings, software-download, recovery, support, DFU, macOS
// software-download and internal-development identities, baseband firmware,
// kernel caches, ramdisks, system images, diagnostics, every support item and
// a few housekeeping files.
BundleDescription sampleBundle();

// An older bundle, as the legacy engine strips it: products r13 (stations
// shipping settings and software download on r13ap, internal development on
// r13dev) and r11 (shipping settings on r11ap), whose Restore.plist names the
// kernel caches by platform and by target, the ramdisks by platform and the
// system images by target; kernel caches directly in Restore/, all_flash and
// dfu folders named by device class and type, baseband firmware, the
// firmware maps and the usual support items. With `withBuildManifest` false
// the bundle has no Restore/BuildManifest.plist at all.
BundleDescription legacyBundle(bool withBuildManifest);

// The sample plus `products` synthetic products ("q0000", "q0001", ...) on
// the built-in processors, each with eight identities of 24 items carrying
// digests. kLargeBundleProducts products make a build manifest of about 10 MB.
BundleDescription largeBundle(size_t products);
inline constexpr size_t kLargeBundleProducts = 150;

}  // namespace velmar::synth

#endif  // VELMAR_SYNTH_SAMPLE_BUNDLES_H_

// velmar-mkbundle OUTDIR [--large N | --factory N [--items K] | --legacy [--no-manifest]]:
// writes the sample bundle, the large benchmark bundle with N synthetic
// products, a factory-like bundle of N products, or the older (legacy)
// sample, to a new folder.

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include "synth/bundle_builder.h"
#include "synth/factory_bundle.h"
#include "synth/sample_bundles.h"

namespace {

int usage() {
  std::fprintf(stderr,
               "usage: velmar-mkbundle OUTDIR [--large N | --factory N [--items K] |\n"
               "                              --legacy [--no-manifest]]\n"
               "  writes the sample restore bundle to OUTDIR, which must not exist;\n"
               "  --large N adds N synthetic products (%zu make a build manifest of about 10 MB);\n"
               "  --factory N writes a factory-like bundle instead: N products, both device\n"
               "  classes, every station's variant, K extra items per identity (default %zu;\n"
               "  %zu products and the default make a build manifest of about 10 MB);\n"
               "  --legacy writes the older sample instead, --no-manifest without its build manifest\n",
               velmar::synth::kLargeBundleProducts, velmar::synth::kFactoryBundleExtraItems,
               velmar::synth::kFactoryBundleProducts);
  return 2;
}

bool parseCount(const char* text, size_t* out) {
  char* end = nullptr;
  unsigned long long n = std::strtoull(text, &end, 10);
  if (!*text || *end || text[0] == '-' || n > 100000) return false;
  *out = static_cast<size_t>(n);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::string outDir;
  bool large = false;
  bool legacy = false;
  bool noManifest = false;
  size_t products = 0;
  bool factory = false;
  size_t items = velmar::synth::kFactoryBundleExtraItems;
  bool itemsGiven = false;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--large") {
      if (i + 1 >= argc || !parseCount(argv[++i], &products)) return usage();
      large = true;
    } else if (arg == "--factory") {
      if (i + 1 >= argc || !parseCount(argv[++i], &products)) return usage();
      factory = true;
    } else if (arg == "--items") {
      if (i + 1 >= argc || !parseCount(argv[++i], &items)) return usage();
      itemsGiven = true;
    } else if (arg == "--legacy") {
      legacy = true;
    } else if (arg == "--no-manifest") {
      noManifest = true;
    } else if (arg == "--help" || arg == "-h") {
      usage();
      return 0;
    } else if (!arg.empty() && arg[0] != '-' && outDir.empty()) {
      outDir = arg;
    } else {
      return usage();
    }
  }
  if (outDir.empty() || int(large) + int(factory) + int(legacy) > 1 || (itemsGiven && !factory) ||
      (noManifest && !legacy))
    return usage();

  std::error_code ec;
  if (std::filesystem::symlink_status(outDir, ec).type() != std::filesystem::file_type::not_found) {
    std::fprintf(stderr, "velmar-mkbundle: %s already exists\n", outDir.c_str());
    return 2;
  }
  velmar::synth::BundleDescription bundle = legacy    ? velmar::synth::legacyBundle(!noManifest)
                                            : factory ? velmar::synth::factoryBundle(products, items)
                                            : large   ? velmar::synth::largeBundle(products)
                                                      : velmar::synth::sampleBundle();
  std::string error;
  if (!velmar::synth::writeBundle(bundle, outDir, &error)) {
    std::fprintf(stderr, "velmar-mkbundle: %s\n", error.c_str());
    return 1;
  }
  std::printf("wrote %s: %zu build identities, %zu files\n", outDir.c_str(), bundle.identities.size(),
              bundle.files.size());
  return 0;
}

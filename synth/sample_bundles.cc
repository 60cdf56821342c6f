#include "synth/sample_bundles.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>

#include "engine/collection_extras.h"
#include "base/format.h"

namespace velmar::synth {

namespace {

// How an identity of a personalization variant is laid out: which system
// image it installs, which ramdisk, kernel cache, flash and DFU flavours.
struct VariantLayout {
  const char* name;
  const char* osType;  // VariantContents.SystemImage; "" names no OS image
  bool supportRamDisk;
  const char* installedKernelCache;  // "Release" or "Development"
  const char* flashType;             // all_flash.<class>.<flashType>
  const char* dfuType;               // stage1.<class>.<dfuType>.dfu
  const char* macOSVariant;          // the variant this one is built on, or ""
};

// The support identity names an OS image even though its station installs
// none, as real manifests do; a strip then skips the image.
constexpr VariantLayout kLayouts[] = {
    {"Factory - Shipping Settings", "UserOS", false, "Release", "production", "RELEASE", ""},
    {"Factory - Software Download", "NonUIOS", false, "Release", "factoryfa", "DEVELOPMENT", ""},
    {"macOS Factory - Software Download", "NonUIOS", false, "Release", "factoryfa", "DEVELOPMENT",
     "Factory - Software Download"},
    {"Recovery Customer Install", "UserOS", false, "Release", "production", "RELEASE", ""},
    {"Research Customer Erase Install", "UserOS", false, "Release", "production", "RELEASE", ""},
    {"Factory - Support", "UserOS", true, "Development", "factoryfa", "DEVELOPMENT", ""},
    {"Factory - DFU", "", false, "Release", "factoryfa", "DEVELOPMENT", ""},
    {"Factory - Baseband DFU", "", false, "Release", "factoryfa", "DEVELOPMENT", ""},
    {"Internal Install", "FullInternalOS", false, "Release", "production", "DEVELOPMENT", ""},
    {"Internal Development", "FullInternalOS", false, "Development", "firmwaredevelopment",
     "DEVELOPMENT", ""},
};
constexpr VariantLayout kDefaultLayout = {"", "UserOS", false, "Release", "production", "RELEASE", ""};

const VariantLayout& layoutFor(const std::string& variant) {
  for (const VariantLayout& l : kLayouts)
    if (variant == l.name) return l;
  return kDefaultLayout;
}

// System image per OS image type: file-name suffix, its kind in
// SystemRestoreImagesByTarget, and its minimum partition in MB.
struct OSImageKind {
  const char* osType;
  const char* suffix;
  const char* restoreKind;
  long long minimumMB;
};
constexpr OSImageKind kOSImages[] = {
    {"UserOS", "001", "User", 1536},
    {"NonUIOS", "002", "NonUI Internal", 1024},
    {"FullInternalOS", "003", "Internal", 2048},
};

const char* const kProcessors[] = {"xr2100x", "xr2120x", "xr2122x", "xr2130x", "xr1920x",
                                   "xr2140x", "xr2142x", "xr2145x", "xr2147x", "xr2150x",
                                   "xr2155x", "xr2160x", "u9000"};

std::string digitsOf(const std::string& s) {
  std::string out;
  for (char c : s)
    if (c >= '0' && c <= '9') out += c;
  return out;
}

std::string osImageName(const ProductRecipe& p, const OSImageKind& k) {
  return format("038-%@-%@.dmg", p.partBase, k.suffix);
}

// 48 stable bytes per path, so the large manifest carries digest-sized data.
std::string digestFor(const std::string& path) {
  uint64_t h = 1469598103934665603ull;
  for (unsigned char c : path) h = (h ^ c) * 1099511628211ull;
  std::string out;
  for (int i = 0; i < 48; ++i) {
    h = h * 6364136223846793005ull + 1442695040888963407ull;
    out += static_cast<char>(h >> 56);
  }
  return out;
}

template <class T>
void addOnce(std::vector<T>& list, const T& item) {
  if (std::find(list.begin(), list.end(), item) == list.end()) list.push_back(item);
}

// Kernel caches, ramdisks and platform keys are per processor.
void addProcessor(BundleDescription& d, const std::string& proc) {
  if (std::find(d.maps.platformKeys.begin(), d.maps.platformKeys.end(), proc) !=
      d.maps.platformKeys.end())
    return;
  d.maps.platformKeys.push_back(proc);
  for (const char* kind : {"Release", "Development"}) {
    std::string name = format("kernelcache.%@.%@", lower(kind), proc);
    d.addFile("Restore/" + name);
    d.restore.kernelCachesByPlatform.push_back({proc, kind, name});
  }
  std::string ramDisk = format("018-%@-001.dmg", digitsOf(proc));
  d.addFile("Restore/" + ramDisk);
  d.restore.ramDisksByPlatform.push_back({proc, "User", ramDisk});
}

}  // namespace

void addProduct(BundleDescription& d, const ProductRecipe& p) {
  addProcessor(d, p.processor);
  const std::string digits = digitsOf(p.processor);
  const std::string restoreRamDisk = format("018-%@-001.dmg", digits);
  const std::string supportRamDisk = format("018-%@-002.dmg", digits);
  const std::string releaseCache = "kernelcache.release." + p.processor;
  const std::string developmentCache = "kernelcache.development." + p.processor;

  addOnce(d.manifestProductTypes, p.model);
  addOnce(d.restore.supportedProductTypes, p.model);
  d.restore.systemPartitionPadding.push_back({p.board, 256});
  d.maps.targetMapRows.push_back(format("%@ %@ %@", p.board, p.processor, p.model));
  d.addFile(format("Restore/Diags/diag-%@.img", p.board));
  if (!p.basebandFile.empty()) d.addFile("Restore/Firmware/" + p.basebandFile);

  std::set<std::string> osTypes;
  std::map<std::string, std::set<std::string>> flashFolders;  // folder -> image names
  const std::pair<const char*, const std::vector<std::string>*> classes[] = {
      {"ap", &p.apVariants}, {"dev", &p.devVariants}};
  for (const auto& [suffix, variants] : classes) {
    const std::string dc = p.board + suffix;
    const bool ap = std::string_view(suffix) == "ap";
    const long long boardId = p.boardId + (ap ? 0 : 1);
    d.maps.deviceMap.push_back({dc, p.processor, p.model, boardId});
    // BoardID Platform ProductType Board DeviceClass: the label is field five.
    d.maps.deviceMapRows.push_back(
        format("0x%02llX %@ %@ %@ %@", boardId, p.processor, p.model, p.board, dc));

    for (const std::string& variant : *variants) {
      const VariantLayout& l = layoutFor(variant);
      const bool heavy = p.extraFirmwareItems > 0;
      BuildIdentity id;
      id.deviceClass = dc;
      id.variant = variant;
      id.macOSVariant = l.macOSVariant;
      id.variantContents = Value::makeDict();
      auto item = [&](std::string name, std::string path) {
        std::string digest = heavy ? digestFor(path) : std::string();
        id.manifest.push_back({std::move(name), std::move(path), std::move(digest)});
      };

      std::string osType = l.osType;
      if (!osType.empty()) {
        id.variantContents.set("SystemImage", osType);
        for (const OSImageKind& k : kOSImages)
          if (osType == k.osType) item("OS", osImageName(p, k));
        osTypes.insert(osType);
      }
      id.variantContents.set("RestoreRamDisk", l.supportRamDisk ? "FactorySupportRamDisk" : "RestoreRamDisk");
      id.variantContents.set("RestoreKernelCache", "Release");
      id.variantContents.set("InstalledKernelCache", l.installedKernelCache);

      if (l.supportRamDisk) d.addFile("Restore/" + supportRamDisk);
      item("RestoreRamDisk", l.supportRamDisk ? supportRamDisk : restoreRamDisk);
      item("RestoreKernelCache", releaseCache);
      item("KernelCache",
           std::string_view(l.installedKernelCache) == "Development" ? developmentCache : releaseCache);
      if (ap && !p.basebandFile.empty()) item("BasebandFirmware", "Firmware/" + p.basebandFile);

      const std::string folder = format("Firmware/all_flash/all_flash.%@.%@", dc, l.flashType);
      std::set<std::string>& images = flashFolders[folder];
      auto flashItem = [&](std::string name, const std::string& stem) {
        std::string image = format("%@.%@.img", stem, dc);
        images.insert(image);
        item(std::move(name), folder + "/" + image);
      };
      flashItem("Bootloader", "bootloader");
      for (int i = 0; i < p.extraFirmwareItems; ++i)
        flashItem(format("Aux%02d", i), format("aux%02d", i));

      const std::string stage1 = format("Firmware/dfu/stage1.%@.%@.dfu", dc, l.dfuType);
      d.addFile("Restore/" + stage1);
      item("Stage1", stage1);

      d.identities.push_back(std::move(id));
    }
  }

  // Each flash folder carries a "manifest" naming its images, one a line.
  for (const auto& [folder, images] : flashFolders) {
    std::string manifest;
    for (const std::string& image : images) {
      d.addFile("Restore/" + folder + "/" + image);
      manifest += image + "\n";
    }
    d.addFile("Restore/" + folder + "/manifest", manifest);
  }
  for (const OSImageKind& k : kOSImages) {
    if (!osTypes.count(k.osType)) continue;
    std::string image = osImageName(p, k);
    d.addFile("Restore/" + image);
    d.restore.systemRestoreImagesByTarget.push_back({p.board, k.restoreKind, image});
    d.restore.minimumSystemPartition.push_back({image, k.minimumMB});
  }
}

ProductRecipe r13Recipe() {
  ProductRecipe p;
  p.board = "r13";
  p.processor = "xr2120x";
  p.model = "Corvid2,1";
  p.partBase = "1300";
  p.basebandFile = "BBX2_3.04.25.Release.bbfw";
  p.boardId = 0x02;
  p.apVariants = {"Factory - Shipping Settings", "Factory - Software Download",
                  "Recovery Customer Install",   "Factory - Support",
                  "Factory - DFU",               "macOS Factory - Software Download"};
  p.devVariants = {"Factory - Software Download", "Internal Development"};
  return p;
}

ProductRecipe r11Recipe() {
  ProductRecipe p;
  p.board = "r11";
  p.processor = "xr2100x";
  p.model = "Corvid1,1";
  p.partBase = "1100";
  p.basebandFile = "BBX0_5.11.07.Release.bbfw";
  p.boardId = 0x04;
  p.apVariants = {"Factory - Shipping Settings", "Factory - Software Download", "Factory - Support"};
  p.devVariants = {"Factory - Software Download"};
  return p;
}

BundleDescription sampleBundle() {
  BundleDescription d;
  d.productVersion = "7.0";
  d.buildVersion = "7A123";
  addProduct(d, r13Recipe());
  addProduct(d, r11Recipe());
  // r11 shares its processor with other boards, so it also names its kernel
  // cache by target.
  d.restore.kernelCachesByTarget.push_back({"r11", "Release", "kernelcache.release.xr2100x"});

  SupportItems& s = d.support;
  s.debugFiles = {"r13ap.symbols", "r11ap.symbols", ".DS_Store"};
  s.rpkgs = {"r13_7A123.RPKG", "r11_7A123.RPKG", "FullInternal_7A123.RPKG"};
  s.bundleImages = {"r13-front.png", "r11-front.png", ".BC_index"};
  s.unencryptedImages = {"038-1300-001.dmg"};
  s.homeDiagnosticTarget = "038-9001-001.dmg";
  s.sdkTarget = "038-9002-001.dmg";
  s.restoreToolsTarget = "038-9003-001.dmg";
  s.factoryDiskImage = true;
  s.factoryDiskImageSignature = true;
  d.addFile("Orrin RPKGs/ReadMe.txt", "Firmware packages, one per board.\n");

  for (const char* path : {".DS_Store", "Restore/.DS_Store",
                           "Restore/Firmware/all_flash/all_flash.r13ap.production/.DS_Store"})
    d.addFile(path);
  return d;
}

BundleDescription legacyBundle(bool withBuildManifest) {
  BundleDescription d;
  d.productVersion = "5.1";
  d.buildVersion = "5B42";
  ProductRecipe r13 = r13Recipe();
  r13.apVariants = {"Factory - Shipping Settings", "Factory - Software Download"};
  r13.devVariants = {"Internal Development"};
  ProductRecipe r11 = r11Recipe();
  r11.apVariants = {"Factory - Shipping Settings"};
  r11.devVariants = {};
  addProduct(d, r13);
  addProduct(d, r11);
  // Older restore property lists also name kernel caches per target.
  d.restore.kernelCachesByTarget.push_back({"r13", "Release", "kernelcache.release.xr2120x"});
  d.restore.kernelCachesByTarget.push_back({"r11", "Release", "kernelcache.release.xr2100x"});

  SupportItems& s = d.support;
  s.debugFiles = {"r13ap.symbols", ".DS_Store"};
  s.rpkgs = {"r13_5B42.RPKG", "r11_5B42.RPKG"};
  s.unencryptedImages = {"038-1300-001.dmg"};
  s.homeDiagnosticTarget = "038-9001-001.dmg";
  s.restoreToolsTarget = "038-9003-001.dmg";
  for (const char* path : {".DS_Store", "Restore/.DS_Store"}) d.addFile(path);
  if (!withBuildManifest) d.omitPath(kBuildManifestPath);
  return d;
}

BundleDescription largeBundle(size_t products) {
  BundleDescription d = sampleBundle();
  const ProductRecipe r13 = r13Recipe();
  const size_t processorCount = sizeof(kProcessors) / sizeof(kProcessors[0]);
  for (size_t i = 0; i < products; ++i) {
    ProductRecipe p;
    // Fixed width keeps one board code from being a substring of another.
    p.board = format("q%04lu", static_cast<unsigned long>(i));
    p.processor = kProcessors[i % processorCount];
    p.model = format("Synth%lu,1", static_cast<unsigned long>(i + 1));
    p.partBase = std::to_string(5000 + i);
    p.boardId = 0x100 + 2 * static_cast<long long>(i);
    p.apVariants = r13.apVariants;
    p.devVariants = r13.devVariants;
    p.extraFirmwareItems = 16;
    addProduct(d, p);
  }
  return d;
}

}  // namespace velmar::synth

// Synthetic restore bundles for tests, the demo and the benchmarks.
//
// A bundle is a folder that holds:
//
//   Restore/BuildManifest.plist   BuildIdentities: per device class and
//                                 variant, Info (DeviceClass, Variant,
//                                 VariantContents, optional MacOSVariant) and
//                                 Manifest (item name -> Info.Path, relative
//                                 to Restore/); SupportedProductTypes.
//   Restore/Restore.plist         KernelCachesByPlatform, KernelCachesByTarget,
//                                 RamDisksByPlatform, SystemRestoreImagesByTarget
//                                 (key -> kind -> file name), SupportedProductTypes,
//                                 SystemPartitionPadding, MinimumSystemPartition.
//   Restore/kernelcache.*, Restore/*.dmg (ramdisks, system images),
//   Restore/Diags/                per-product diagnostics.
//   Restore/Firmware/             Device_map.plist and device_map.plist (device
//                                 class -> Platform, ProductType), device_map.txt
//                                 (one device class a line, label in field 5),
//                                 target_map.txt (one board code a line),
//                                 platform_keys.plist (PlatformKeys[].PlatformName),
//                                 all_flash/all_flash.<class>.<type>/ (with a
//                                 "manifest"), dfu/*.dfu, baseband firmware.
//   Debug/, "Orrin RPKGs"/*.RPKG/, BundleImages/, UnencryptedImages/,
//   HomeDiagnostic.dmg, CorvidSDKInternalNonUI.dmg, RestoreTools.dmg (links to
//   images beside them), FactoryDiskImage.dmg and its .signature, and the
//   housekeeping files (.DS_Store, .BC_*) that a stripped bundle drops.
//
// A BundleDescription says all of that as plain structs; layoutBundle() turns
// it into the entries to write and writeBundle() puts them on disk. Tests take
// a ready-made description (sample_bundles.h), change one thing and write it.

#ifndef VELMAR_SYNTH_BUNDLE_BUILDER_H_
#define VELMAR_SYNTH_BUNDLE_BUILDER_H_

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/value.h"

namespace velmar::synth {

// One entry of an identity's Manifest: name -> {Info: {Path: path}}.
struct ManifestItem {
  std::string name;
  std::string path;    // relative to Restore/, written as it stands
  std::string digest;  // non-empty: written as data under "Digest", with "Trusted"
};

struct BuildIdentity {
  std::string deviceClass;   // Info.DeviceClass; empty leaves the key out
  std::string variant;       // Info.Variant; empty leaves the key out
  std::string macOSVariant;  // Info.MacOSVariant; empty leaves the key out
  Value variantContents;     // Info.VariantContents; null leaves the key out
  std::vector<ManifestItem> manifest;
};

// One cell of a two-level restore table: table[key][kind] = file.
struct TableRow {
  std::string key;
  std::string kind;
  std::string file;
};

// Restore/Restore.plist.
struct RestoreTables {
  std::vector<TableRow> kernelCachesByPlatform;
  std::vector<TableRow> kernelCachesByTarget;
  std::vector<TableRow> ramDisksByPlatform;
  std::vector<TableRow> systemRestoreImagesByTarget;
  std::vector<std::string> supportedProductTypes;
  std::vector<std::pair<std::string, long long>> systemPartitionPadding;  // product -> MB
  std::vector<std::pair<std::string, long long>> minimumSystemPartition;  // image -> MB
};

// A row of the device map plists; empty strings leave their key out.
struct DeviceMapEntry {
  std::string deviceClass;
  std::string platform;     // processor id
  std::string productType;  // model identifier
  long long boardId = 0;
};

// The index files of Restore/Firmware.
struct FirmwareMaps {
  // Written to both "Device_map.plist" (read by bundle analysis) and
  // "device_map.plist" (rewritten by a strip); on a case-insensitive disk
  // they are one file, so they always hold the same.
  std::vector<DeviceMapEntry> deviceMap;
  std::vector<std::string> deviceMapRows;  // device_map.txt lines, as written
  std::vector<std::string> targetMapRows;  // target_map.txt lines, as written
  std::vector<std::string> platformKeys;   // PlatformName of each PlatformKeys entry
};

// Companions of the restore images at the bundle root.
struct SupportItems {
  std::vector<std::string> debugFiles;         // names in Debug/
  std::vector<std::string> rpkgs;              // package folders in "Orrin RPKGs/", each with a Payload
  std::vector<std::string> bundleImages;       // names in BundleImages/
  std::vector<std::string> unencryptedImages;  // names in UnencryptedImages/
  // Root links and the root images they name; an empty target writes neither.
  std::string homeDiagnosticTarget;  // HomeDiagnostic.dmg ->
  std::string sdkTarget;             // CorvidSDKInternalNonUI.dmg ->
  std::string restoreToolsTarget;    // RestoreTools.dmg ->
  bool factoryDiskImage = false;           // FactoryDiskImage.dmg
  bool factoryDiskImageSignature = false;  // FactoryDiskImage.dmg.signature
};

struct FileEntry {
  std::string path;      // bundle-relative
  std::string contents;  // empty: a one-line placeholder naming the file
};

struct LinkEntry {
  std::string path;    // bundle-relative
  std::string target;  // written as it stands: relative, absolute or dangling
};

// A last-moment change to a rendered property list, for what the structs
// cannot say (a missing top-level key, a value of the wrong type).
struct PlistEdit {
  std::string path;
  std::function<void(Value&)> edit;
};

struct BundleDescription {
  std::string productVersion;  // ProductVersion of both manifests
  std::string buildVersion;    // ProductBuildVersion, and Info.BuildNumber

  std::vector<BuildIdentity> identities;            // in manifest order
  std::vector<std::string> manifestProductTypes;    // BuildManifest SupportedProductTypes
  RestoreTables restore;
  FirmwareMaps maps;
  SupportItems support;

  std::vector<FileEntry> files;      // images, kernel caches, firmware, diags, anything else
  std::vector<std::string> folders;  // folders to create even when empty
  std::vector<LinkEntry> links;      // written last; not subject to `omit`
  std::vector<std::string> omit;     // paths left out, with everything below them
  std::vector<PlistEdit> edits;      // applied in order after rendering

  // Small conveniences for tests that tweak a ready-made bundle.
  BuildIdentity* findIdentity(std::string_view deviceClass, std::string_view variant);
  std::vector<BuildIdentity*> identitiesOf(std::string_view deviceClass);
  void addFile(std::string path, std::string contents = {});
  bool hasFile(std::string_view path) const;
  void addLink(std::string path, std::string target) { links.push_back({std::move(path), std::move(target)}); }
  void omitPath(std::string path) { omit.push_back(std::move(path)); }
  void editPlist(std::string path, std::function<void(Value&)> edit) {
    edits.push_back({std::move(path), std::move(edit)});
  }
};

// The property lists and map texts of a description, before edits.
Value buildManifestPlist(const BundleDescription& d);
Value restorePlist(const BundleDescription& d);
Value deviceMapPlist(const BundleDescription& d);
Value platformKeysPlist(const BundleDescription& d);
std::string deviceMapText(const BundleDescription& d);
std::string targetMapText(const BundleDescription& d);

// Bundle-relative paths of the files layoutBundle() writes for the manifests.
inline constexpr char kBuildManifestPath[] = "Restore/BuildManifest.plist";
inline constexpr char kRestorePlistPath[] = "Restore/Restore.plist";
inline constexpr char kCapitalDeviceMapPath[] = "Restore/Firmware/Device_map.plist";
inline constexpr char kDeviceMapPlistPath[] = "Restore/Firmware/device_map.plist";
inline constexpr char kDeviceMapTextPath[] = "Restore/Firmware/device_map.txt";
inline constexpr char kTargetMapTextPath[] = "Restore/Firmware/target_map.txt";
inline constexpr char kPlatformKeysPath[] = "Restore/Firmware/platform_keys.plist";

struct BundleEntry {
  enum class Kind { Folder, File, Link };
  std::string path;
  Kind kind = Kind::File;
  std::string contents;  // file bytes, or the link's target
};

// Everything the bundle holds, in writing order: folders and files by path,
// then links. Property lists carry their edits and are XML.
std::vector<BundleEntry> layoutBundle(const BundleDescription& d);

// Writes the bundle under `root`, which must be missing or an empty folder.
// Entry paths must stay inside the root (no "..", no absolute paths, no
// writing through a link); link targets are written as they stand. On
// failure returns false with a reason in *error; what was written stays.
bool writeBundle(const BundleDescription& d, const std::string& root, std::string* error = nullptr);

// Moves root/path to `newHome` (outside the bundle, say) and leaves a link
// to it in its place, for bundles whose folders lead elsewhere.
bool replaceWithLink(const std::string& root, const std::string& path, const std::string& newHome,
                     std::string* error = nullptr);

}  // namespace velmar::synth

#endif  // VELMAR_SYNTH_BUNDLE_BUILDER_H_

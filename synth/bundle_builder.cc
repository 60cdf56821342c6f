#include "synth/bundle_builder.h"

#include <filesystem>
#include <fstream>
#include <map>
#include <system_error>

#include "base/plist_io.h"

namespace velmar::synth {

namespace fs = std::filesystem;

BuildIdentity* BundleDescription::findIdentity(std::string_view deviceClass, std::string_view variant) {
  for (BuildIdentity& id : identities)
    if (id.deviceClass == deviceClass && id.variant == variant) return &id;
  return nullptr;
}

std::vector<BuildIdentity*> BundleDescription::identitiesOf(std::string_view deviceClass) {
  std::vector<BuildIdentity*> out;
  for (BuildIdentity& id : identities)
    if (id.deviceClass == deviceClass) out.push_back(&id);
  return out;
}

void BundleDescription::addFile(std::string path, std::string contents) {
  for (FileEntry& f : files) {
    if (f.path == path) {
      f.contents = std::move(contents);
      return;
    }
  }
  files.push_back({std::move(path), std::move(contents)});
}

bool BundleDescription::hasFile(std::string_view path) const {
  for (const FileEntry& f : files)
    if (f.path == path) return true;
  return false;
}

namespace {

void setIfNotEmpty(Value& dict, const char* key, const std::string& s) {
  if (!s.empty()) dict.set(key, s);
}

// table[key][kind] = file, keys and kinds in first-seen order.
Value tableValue(const std::vector<TableRow>& rows) {
  Value table = Value::makeDict();
  for (const TableRow& row : rows) {
    Value* inner = table.dictMut().find(row.key);
    if (!inner) {
      table.set(row.key, Value::makeDict());
      inner = table.dictMut().find(row.key);
    }
    inner->set(row.kind, row.file);
  }
  return table;
}

Value numberTable(const std::vector<std::pair<std::string, long long>>& rows) {
  Value table = Value::makeDict();
  for (const auto& [key, n] : rows) table.set(key, n);
  return table;
}

Value identityValue(const BuildIdentity& id, const std::string& buildVersion) {
  Value info = Value::makeDict();
  setIfNotEmpty(info, "BuildNumber", buildVersion);
  setIfNotEmpty(info, "DeviceClass", id.deviceClass);
  info.set("RestoreBehavior", "Erase");
  setIfNotEmpty(info, "Variant", id.variant);
  setIfNotEmpty(info, "MacOSVariant", id.macOSVariant);
  if (!id.variantContents.isNull()) info.set("VariantContents", id.variantContents);

  Value manifest = Value::makeDict();
  for (const ManifestItem& item : id.manifest) {
    Value entry = Value::makeDict();
    if (!item.digest.empty()) entry.set("Digest", Value::makeData(item.digest));
    Value itemInfo = Value::makeDict();
    itemInfo.set("Path", item.path);
    entry.set("Info", itemInfo);
    if (!item.digest.empty()) entry.set("Trusted", true);
    manifest.set(item.name, entry);
  }

  Value identity = Value::makeDict();
  identity.set("Info", info);
  identity.set("Manifest", manifest);
  return identity;
}

std::string linesText(const std::vector<std::string>& rows) {
  std::string out;
  for (const std::string& row : rows) out += row + "\n";
  return out;
}

std::string placeholder(const std::string& path) { return "placeholder: " + path + "\n"; }

bool isUnder(const std::string& path, const std::string& top) {
  return path == top || (path.size() > top.size() && path.compare(0, top.size(), top) == 0 &&
                         path[top.size()] == '/');
}

// A plain relative path without "." or ".." components, so writing it
// cannot leave the root.
bool isSafeRelative(const std::string& path) {
  if (path.empty() || path.front() == '/') return false;
  size_t start = 0;
  while (start <= path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    std::string_view part(path.data() + start, end - start);
    if (part.empty() || part == "." || part == "..") return false;
    start = end + 1;
  }
  return true;
}

bool fail(std::string* error, std::string message) {
  if (error) *error = std::move(message);
  return false;
}

// Creates the folders above `rel` under root, refusing to pass through
// anything that is not a real folder.
bool makeParents(const fs::path& root, const std::string& rel, std::string* error) {
  fs::path at = root;
  fs::path relPath(rel);
  auto last = std::prev(relPath.end());
  for (auto it = relPath.begin(); it != last; ++it) {
    at /= *it;
    std::error_code ec;
    fs::file_status st = fs::symlink_status(at, ec);
    if (st.type() == fs::file_type::not_found) {
      if (!fs::create_directory(at, ec) && ec)
        return fail(error, "cannot create folder " + at.string() + ": " + ec.message());
    } else if (st.type() != fs::file_type::directory) {
      return fail(error, "refusing to write " + rel + " through " + at.string());
    }
  }
  return true;
}

bool writeEntry(const fs::path& root, const BundleEntry& e, std::string* error) {
  if (!isSafeRelative(e.path)) return fail(error, "unsafe bundle path \"" + e.path + "\"");
  if (!makeParents(root, e.path, error)) return false;
  fs::path target = root / e.path;
  std::error_code ec;
  switch (e.kind) {
    case BundleEntry::Kind::Folder: {
      fs::file_status st = fs::symlink_status(target, ec);
      if (st.type() == fs::file_type::directory) return true;
      if (!fs::create_directory(target, ec))
        return fail(error, "cannot create folder " + target.string() + ": " + ec.message());
      return true;
    }
    case BundleEntry::Kind::File: {
      std::ofstream out(target, std::ios::binary | std::ios::trunc);
      out.write(e.contents.data(), static_cast<std::streamsize>(e.contents.size()));
      out.close();
      if (!out) return fail(error, "cannot write " + target.string());
      return true;
    }
    case BundleEntry::Kind::Link:
      fs::create_symlink(e.contents, target, ec);
      if (ec) return fail(error, "cannot link " + target.string() + ": " + ec.message());
      return true;
  }
  return true;
}

}  // namespace

Value buildManifestPlist(const BundleDescription& d) {
  Value ids = Value::makeArray();
  ids.arrMut().reserve(d.identities.size());
  for (const BuildIdentity& id : d.identities) ids.append(identityValue(id, d.buildVersion));
  Value m = Value::makeDict();
  m.set("BuildIdentities", ids);
  m.set("ManifestVersion", 1);
  setIfNotEmpty(m, "ProductBuildVersion", d.buildVersion);
  setIfNotEmpty(m, "ProductVersion", d.productVersion);
  m.set("SupportedProductTypes", Value::stringArray(d.manifestProductTypes));
  return m;
}

Value restorePlist(const BundleDescription& d) {
  const RestoreTables& t = d.restore;
  Value r = Value::makeDict();
  setIfNotEmpty(r, "ProductBuildVersion", d.buildVersion);
  setIfNotEmpty(r, "ProductVersion", d.productVersion);
  r.set("KernelCachesByPlatform", tableValue(t.kernelCachesByPlatform));
  r.set("KernelCachesByTarget", tableValue(t.kernelCachesByTarget));
  r.set("RamDisksByPlatform", tableValue(t.ramDisksByPlatform));
  r.set("SystemRestoreImagesByTarget", tableValue(t.systemRestoreImagesByTarget));
  r.set("SupportedProductTypes", Value::stringArray(t.supportedProductTypes));
  // Optional in real bundles: absent when there is nothing to say.
  if (!t.systemPartitionPadding.empty())
    r.set("SystemPartitionPadding", numberTable(t.systemPartitionPadding));
  if (!t.minimumSystemPartition.empty())
    r.set("MinimumSystemPartition", numberTable(t.minimumSystemPartition));
  return r;
}

Value deviceMapPlist(const BundleDescription& d) {
  Value map = Value::makeDict();
  for (const DeviceMapEntry& e : d.maps.deviceMap) {
    Value row = Value::makeDict();
    setIfNotEmpty(row, "BoardConfig", e.deviceClass);
    row.set("BoardID", e.boardId);
    setIfNotEmpty(row, "Platform", e.platform);
    setIfNotEmpty(row, "ProductType", e.productType);
    map.set(e.deviceClass, row);
  }
  return map;
}

Value platformKeysPlist(const BundleDescription& d) {
  Value keys = Value::makeArray();
  for (const std::string& name : d.maps.platformKeys) {
    Value entry = Value::makeDict();
    entry.set("KeyID", "pk-" + name);
    entry.set("PlatformName", name);
    keys.append(entry);
  }
  Value root = Value::makeDict();
  root.set("PlatformKeys", keys);
  root.set("Version", 1);
  return root;
}

std::string deviceMapText(const BundleDescription& d) { return linesText(d.maps.deviceMapRows); }
std::string targetMapText(const BundleDescription& d) { return linesText(d.maps.targetMapRows); }

std::vector<BundleEntry> layoutBundle(const BundleDescription& d) {
  using Kind = BundleEntry::Kind;
  std::map<std::string, BundleEntry> entries;
  auto put = [&](const std::string& path, Kind kind, std::string contents) {
    entries[path] = BundleEntry{path, kind, std::move(contents)};
  };
  auto file = [&](const std::string& path) { put(path, Kind::File, placeholder(path)); };

  std::map<std::string, Value> plists;
  plists[kBuildManifestPath] = buildManifestPlist(d);
  plists[kRestorePlistPath] = restorePlist(d);
  Value deviceMap = deviceMapPlist(d);
  plists[kCapitalDeviceMapPath] = deviceMap;
  plists[kDeviceMapPlistPath] = deviceMap;
  plists[kPlatformKeysPath] = platformKeysPlist(d);
  put(kDeviceMapTextPath, Kind::File, deviceMapText(d));
  put(kTargetMapTextPath, Kind::File, targetMapText(d));

  const SupportItems& s = d.support;
  for (const std::string& name : s.debugFiles) file("Debug/" + name);
  for (const std::string& name : s.rpkgs) file("Orrin RPKGs/" + name + "/Payload");
  for (const std::string& name : s.bundleImages) file("BundleImages/" + name);
  for (const std::string& name : s.unencryptedImages) file("UnencryptedImages/" + name);
  const std::pair<const char*, const std::string*> rootLinks[] = {
      {"HomeDiagnostic.dmg", &s.homeDiagnosticTarget},
      {"CorvidSDKInternalNonUI.dmg", &s.sdkTarget},
      {"RestoreTools.dmg", &s.restoreToolsTarget},
  };
  for (const auto& [name, target] : rootLinks) {
    if (target->empty()) continue;
    put(name, Kind::Link, *target);
    if (isSafeRelative(*target)) file(*target);
  }
  if (s.factoryDiskImage) file("FactoryDiskImage.dmg");
  if (s.factoryDiskImageSignature) file("FactoryDiskImage.dmg.signature");

  for (const FileEntry& f : d.files)
    put(f.path, Kind::File, f.contents.empty() ? placeholder(f.path) : f.contents);
  for (const std::string& folder : d.folders) put(folder, Kind::Folder, {});

  // Edits may also create a property list (from null) or drop one (to null).
  for (const PlistEdit& e : d.edits) {
    if (e.edit) e.edit(plists[e.path]);
  }
  for (const auto& [path, root] : plists)
    if (!root.isNull()) put(path, Kind::File, toXml(root));

  std::vector<BundleEntry> out;
  out.reserve(entries.size() + d.links.size());
  for (auto& [path, entry] : entries) {
    bool omitted = false;
    for (const std::string& top : d.omit) omitted = omitted || isUnder(path, top);
    if (!omitted) out.push_back(std::move(entry));
  }
  for (const LinkEntry& link : d.links) out.push_back(BundleEntry{link.path, Kind::Link, link.target});
  return out;
}

bool writeBundle(const BundleDescription& d, const std::string& root, std::string* error) {
  std::error_code ec;
  fs::path rootPath(root);
  fs::file_status st = fs::status(rootPath, ec);
  if (st.type() == fs::file_type::not_found) {
    fs::create_directories(rootPath, ec);
    if (ec) return fail(error, "cannot create " + root + ": " + ec.message());
  } else if (st.type() != fs::file_type::directory) {
    return fail(error, root + " is not a folder");
  } else if (!fs::is_empty(rootPath, ec)) {
    return fail(error, root + " is not empty");
  }
  for (const BundleEntry& e : layoutBundle(d))
    if (!writeEntry(rootPath, e, error)) return false;
  return true;
}

bool replaceWithLink(const std::string& root, const std::string& path, const std::string& newHome,
                     std::string* error) {
  if (!isSafeRelative(path)) return fail(error, "unsafe bundle path \"" + path + "\"");
  fs::path from = fs::path(root) / path;
  fs::path to(newHome);
  std::error_code ec;
  if (fs::is_directory(to, ec) && fs::is_empty(to, ec)) fs::remove(to, ec);
  fs::rename(from, to, ec);
  if (ec) {
    // Across file systems: copy, then remove the original.
    ec.clear();
    fs::copy(from, to, fs::copy_options::recursive | fs::copy_options::copy_symlinks, ec);
    if (ec) return fail(error, "cannot move " + from.string() + ": " + ec.message());
    fs::remove_all(from, ec);
    if (ec) return fail(error, "cannot remove " + from.string() + ": " + ec.message());
  }
  fs::create_symlink(to, from, ec);
  if (ec) return fail(error, "cannot link " + from.string() + ": " + ec.message());
  return true;
}

}  // namespace velmar::synth

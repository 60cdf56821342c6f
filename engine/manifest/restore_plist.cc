// The closing rewrite of the restore property list: keep only the images the
// file-list steps chose and the requested products, models and processors,
// and warn about kept kernel caches the restore process would never find.

#include <algorithm>
#include <string>
#include <vector>

#include "engine/collection_extras.h"
#include "engine/log_object.h"
#include "engine/manifest/stripper3.h"

namespace velmar {

namespace {

// A table of outer key -> {kind: file name}, keeping the outer keys in
// `outerKeys` and, under them, the files in `files`. An outer key left with
// nothing is dropped.
Value filterImageTable(const Value& table, const Value& outerKeys, const Value& files) {
  Value result = Value::makeDict();
  for (const auto& [outer, inner] : table.dict()) {
    if (!outerKeys.containsMember(Value(outer))) continue;
    for (const auto& [kind, file] : inner.dict())
      if (files.containsMember(file)) result.slot(outer).set(kind, file);
  }
  return result;
}

// The entries of a dictionary whose keys are in `keys`, in their order.
Value filterKeys(const Value& dict, const Value& keys) {
  Value result = Value::makeDict();
  for (const auto& [key, value] : dict.dict())
    if (keys.containsMember(Value(key))) result.set(key, value);
  return result;
}

}  // namespace

int32_t Stripper3::stripRestorePlist(Value& entry) {
  const Value allProducts = entry.get("workAllProducts");
  const Value allModels = entry.get("workAllModels");
  const Value allProcessorIDs = entry.get("workAllProcessorIDs");
  const Value& loaded = restorePlist_->entries();
  // The copy shares every key it does not replace with the loaded file.
  Value plist = loaded;

  // Kernel caches: the restore process looks a cache up by platform for a
  // processor id and by target otherwise, whichever table a bundle filed it
  // under, so both tables are merged and refiled by the outer key. On equal
  // outer keys the target entry wins. Rewritten keys are replaced in place
  // so the file keeps its key order.
  Value merged = Value::makeDict();
  for (const char* key : {"KernelCachesByPlatform", "KernelCachesByTarget"}) {
    const Value table = loaded.get(key);
    for (const auto& [outer, inner] : table.dict()) merged.set(outer, inner);
  }
  const Value& processorMap = tables().processorMap;
  Value byPlatform = Value::makeDict();
  Value byTarget = Value::makeDict();
  Value referenced = Value::makeSet();
  for (const auto& [outer, inner] : merged.dict()) {
    Value& table = processorMap.contains(outer) ? byPlatform : byTarget;
    for (const auto& [kind, file] : inner.dict()) {
      if (!kernelCachesSet_.containsMember(file)) continue;
      referenced.insert(file);
      table.slot(outer).set(kind, file);
    }
  }

  // A kept cache that no table names would be shipped but never booted.
  std::vector<std::string> unreferenced;
  for (const Value& cache : kernelCachesSet_.setItems())
    if (!referenced.containsMember(cache)) unreferenced.push_back(cache.description());
  if (!unreferenced.empty()) {
    LogObject::sharedLogger().Log("!!! WARNING: Restore.plist missing reference to kernelcaches %@.",
                                  joinSortedNames(unreferenced));
  }
  plist.set("KernelCachesByPlatform", byPlatform);
  plist.set("KernelCachesByTarget", byTarget);

  plist.set("RamDisksByPlatform",
            filterImageTable(loaded.get("RamDisksByPlatform"), allProcessorIDs, ramDisksSet_));
  plist.set("SystemRestoreImagesByTarget",
            filterImageTable(loaded.get("SystemRestoreImagesByTarget"), allProducts,
                             restoreImagesSet_));

  std::vector<std::string> supported;
  const Value types = loaded.get("SupportedProductTypes");
  for (const Value& type : types.arr())
    if (type.isString() && allModels.containsMember(type)) supported.push_back(type.str());
  sortIgnoringCase(supported);
  plist.set("SupportedProductTypes", Value::stringArray(supported));

  // These two stay absent when the bundle has none.
  if (loaded.contains("SystemPartitionPadding"))
    plist.set("SystemPartitionPadding", filterKeys(loaded.get("SystemPartitionPadding"), allProducts));
  if (loaded.contains("MinimumSystemPartition"))
    plist.set("MinimumSystemPartition",
              filterKeys(loaded.get("MinimumSystemPartition"), restoreImagesSet_));

  modifiedFilelist_.set("Restore/Restore.plist", plist);
  return 0;
}

}  // namespace velmar

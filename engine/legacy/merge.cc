// The two merge steps: every restore and support step left a partial keep
// list and, usually, a modified-files record; these fold them into the
// engine's two results.

#include <algorithm>

#include "engine/collection_extras.h"
#include "engine/legacy/stripper2.h"
#include "engine/log_object.h"

namespace velmar {

namespace {

// Text records are fragments of one file: each fragment once, each ending
// in a line feed.
void mergeText(std::string& merged, const std::string& fragment) {
  // A search for the empty text finds nothing, so an empty fragment still
  // ends the text so far with a line feed.
  if (!fragment.empty() && merged.find(fragment) != std::string::npos) return;
  if (!merged.empty() && merged.back() != '\n') merged.push_back('\n');
  merged += fragment;
  if (!fragment.empty() && fragment.back() != '\n') merged.push_back('\n');
}

}  // namespace

const char* modifiedFileType(const Value& contents) {
  if (contents.isData()) return "symlink";
  if (contents.isString()) return "text file";
  if (contents.isDict()) return "plist";
  return "file";
}

bool mergeModifiedFileRecord(Value& merged, const Value& record) {
  LogObject& log = LogObject::sharedLogger();
  std::vector<std::string> added;
  std::vector<std::string> common;
  for (const auto& [path, contents] : record.dict())
    (merged.contains(path) ? common : added).push_back(path);

  for (const std::string& path : added) {
    const Value contents = record.get(path);
    log.Log("+++ adding %@ %@.", modifiedFileType(contents), path);
    merged.set(path, contents);
  }
  for (const std::string& path : common) {
    const Value incoming = record.get(path);
    log.Log("||| merging %@ %@.", modifiedFileType(incoming), path);
    Value& existing = merged.slot(path);
    if (existing.isDict() && incoming.isDict()) {
      if (!deepMergeDictionary(existing, incoming)) {
        log.Log("XXX ERROR: Cannot merge dictionaries at %@.", path);
        return false;
      }
    } else if (existing.isString() && incoming.isString()) {
      std::string text = existing.str();
      mergeText(text, incoming.str());
      existing = Value(std::move(text));
    } else if (existing.isData() && incoming.isData()) {
      // The first step to name a link decides where it leads.
      if (existing != incoming) log.Log("!!! WARNING: multiple values to create symlink %@.", path);
    } else {
      log.Log("XXX ERROR: Cannot merge modified files at %@.", path);
      return false;
    }
  }
  return true;
}

int32_t Stripper2::mergeStrippedManifests(Value& entry) {
  LogObject& log = LogObject::sharedLogger();
  strippedManifest_ = Value();
  Value all = Value::makeSet();
  const int count = static_cast<int>(strippedManifestsList_.count());
  int number = 1;
  for (const Value& list : strippedManifestsList_.arr()) {
    log.Log("||| merging %2d/%2d stripped manifests.", number++, count);
    for (const Value& path : list.arr()) all.insert(path);
  }
  std::vector<std::string> paths = all.strings();
  sortIgnoringCase(paths);
  strippedManifest_ = Value::stringArray(paths);
  return 0;
}

int32_t Stripper2::mergeModifiedFiles(Value& entry) {
  LogObject& log = LogObject::sharedLogger();
  Value merged = Value::makeDict();
  const int count = static_cast<int>(modifiedFilesList_.count());
  int number = 1;
  for (const Value& record : modifiedFilesList_.arr()) {
    log.Log("||| merging %2d/%2d modified file lists.", number++, count);
    if (!mergeModifiedFileRecord(merged, record)) {
      modifiedFiles_ = Value();
      return 1;
    }
  }
  modifiedFiles_ = merged;
  modifiedFilesMerged_ = true;
  return 0;
}

}  // namespace velmar

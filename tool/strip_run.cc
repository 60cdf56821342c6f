#include "tool/strip_run.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <map>
#include <memory>
#include <vector>

#include "engine/log_object.h"
#include "tool/disk_image.h"
#include "tool/engine_choice.h"
#include "tool/exit_status.h"
#include "tool/queries.h"
#include "tool/reporting_view.h"
#include "base/safe_path.h"
#include "tool/source_bundle.h"

namespace velmar::tool {

namespace {

// An engine status as an exit status: one that the 8 bits of an exit status
// would turn into success, or a negative one, reads as 1.
int exitStatusFor(int32_t engineStatus) {
  return engineStatus > 0 && engineStatus < 256 ? engineStatus : 1;
}

// Every name in the results must be one a property list and a log line can
// carry: no control characters, valid UTF-8.
bool checkResultNames(const Value& strippedManifest, const Value& modifiedFiles) {
  auto check = [](const std::string& name) {
    std::string problem = nameTextProblem(name);
    if (problem.empty()) return true;
    LogObject::sharedLogger().Log("XXX ERROR: refusing \"%s\": the path %s.", name, problem);
    return false;
  };
  if (strippedManifest.isArray())
    for (const Value& path : strippedManifest.arr())
      if (path.isString() && !check(path.str())) return false;
  if (modifiedFiles.isDict())
    for (const auto& [path, contents] : modifiedFiles.dict())
      if (!check(path)) return false;
  return true;
}

// A name the engine looked up that two entries match ignoring case counts
// as missing; say which entries they were, once each group.
void warnAboutCaseConflicts(const BundleView& view) {
  std::map<std::string, std::vector<std::string>> groups;
  for (const std::string& path : view.caseConflicts()) {
    std::string key = path;
    for (char& c : key) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    groups[key].push_back(path);
  }
  for (auto& [key, paths] : groups) {
    std::string names;
    for (const std::string& path : paths) names += (names.empty() ? "\"" : ", \"") + path + "\"";
    LogObject::sharedLogger().Log(
        "!!! WARNING: the bundle holds %s, names that differ only in case; none of them stands "
        "for the other spellings.",
        names);
  }
}

}  // namespace

int checkTarget(const ToolRequest& request, TargetOptions& target) {
  LogObject& log = LogObject::sharedLogger();
  const std::string& path = *request.target;
  if (request.encrypt) {
    log.Log(
        "XXX ERROR: --encrypt: velmarbs cannot make an encrypted target on this system; "
        "leave out --encrypt.");
    return kExitUsage;
  }
  // A target inside the source (or around it) is refused first, whatever
  // else is true of it: even a target whose folder is still missing would
  // be written into the bundle being read.
  std::optional<std::string> sourcePath = canonicalPath(*request.source);
  std::optional<std::string> targetPath = canonicalEntryPath(path);
  if (!targetPath) targetPath = anticipatedPath(path);
  if (sourcePath && targetPath && pathsOverlap(*sourcePath, *targetPath)) {
    log.Log(
        "XXX ERROR: the target \"%s\" and the source \"%s\" overlap; "
        "the stripped bundle must go outside the source and the other way round.",
        path, *request.source);
    return kExitUsage;
  }
  struct stat st;
  if (::lstat(path.c_str(), &st) == 0 && !request.overwrite) {
    log.Log("XXX ERROR: the target \"%s\" exists; give --ov to replace it.", path);
    return kExitUsage;
  }
  if (!canonicalEntryPath(path)) {
    log.Log("XXX ERROR: cannot write the target \"%s\": its folder does not exist.", path);
    return kExitIO;
  }
  target.path = path;
  target.overwrite = request.overwrite;
  if (isDiskImagePath(path)) {
    std::optional<std::string> xorriso = findXorriso();
    if (!xorriso) {
      log.Log(
          "XXX ERROR: cannot make the disk image \"%s\": xorriso is not on PATH; "
          "install the xorriso package or give a folder as the target.",
          path);
      return kExitUsage;
    }
    target.imageTool = *xorriso;
  }
  return kExitSuccess;
}

int runStrip(const ToolRequest& request) {
  LogObject& log = LogObject::sharedLogger();
  TargetOptions target;
  if (request.target)
    if (int status = checkTarget(request, target)) return status;

  SourceBundle source;
  if (int status = source.open(*request.source)) return status;
  // Folders the engine cannot list are named, not silently left out.
  auto view = std::make_shared<ReportingView>(source.view());
  std::unique_ptr<Stripper> engine = createEngine(request, view);
  if (!engine) return kExitUsage;

  int32_t status = engine->strip();
  warnAboutCaseConflicts(*view);
  if (status != 0) return exitStatusFor(status);

  Value strippedManifest = engine->strippedManifest();
  Value modifiedFiles = engine->modifiedFiles();
  if (strippedManifest.isNull()) strippedManifest = Value::makeArray();
  if (modifiedFiles.isNull()) modifiedFiles = Value::makeDict();

  // The results are printed as a property list and their paths written to
  // disk: a name neither can hold faithfully is refused before either.
  if (!checkResultNames(strippedManifest, modifiedFiles)) {
    if (request.target)
      log.Log("XXX ERROR: the stripped bundle was not written to \"%s\".", request.target->c_str());
    return kExitIO;
  }

  if (request.target) {
    BundleWriterOptions options;
    options.noSymLinks = request.noSymLinks;
    options.showProgress = ::isatty(2);
    if (int written =
            writeStrippedBundle(*view, target, options, strippedManifest, modifiedFiles))
      return written;
    log.Log(">>> stripped bundle written to \"%s\".", target.path);
  }
  if (request.printResults) {
    Value results = Value::makeDict();
    results.set("strippedManifest", strippedManifest);
    results.set("modifiedFiles", modifiedFiles);
    printReply(results);
  }
  return kExitSuccess;
}

}  // namespace velmar::tool

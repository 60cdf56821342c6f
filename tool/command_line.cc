#include "tool/command_line.h"

#include <string_view>

namespace velmar::tool {

namespace {

constexpr std::string_view kHint = "; see velmarbs --help";

// Words that set one boolean engine option.
struct OptionWord {
  std::string_view word;
  std::string_view key;
  bool value;
};

constexpr OptionWord kOptionWords[] = {
    {"--keepDebug", "keepDebug", true},
    {"--stripDebug", "keepDebug", false},
    {"--keepBundleImages", "keepBundleImages", true},
    {"--stripBundleImages", "keepBundleImages", false},
    {"--keepRPKGs", "keepRPKGs", true},
    {"--stripRPKGs", "keepRPKGs", false},
    {"--keepHomeDiags", "keepHomeDiagnostics", true},
    {"--stripHomeDiags", "keepHomeDiagnostics", false},
    {"--keepSDK", "keepSDK", true},
    {"--stripSDK", "keepSDK", false},
    {"--keepDevFirmware", "keepDevFirmware", true},
    {"--stripDevFirmware", "keepDevFirmware", false},
    {"--keepAPFirmware", "stripAPFirmware", false},
    {"--stripAPFirmware", "stripAPFirmware", true},
    {"--noSymLinks", "noSymLinks", true},
    {"--noCookie", "noCookie", true},
    {"--useRestorePlist", "useRestorePlistInsteadOfBuildManifest", true},
};

// Words that set one switch of the request itself.
struct FlagWord {
  std::string_view word;
  bool ToolRequest::*flag;
};

constexpr FlagWord kFlagWords[] = {
    {"--verbose", &ToolRequest::verbose},
    {"--encrypt", &ToolRequest::encrypt},
    {"--ov", &ToolRequest::overwrite},
    {"--results", &ToolRequest::printResults},
};

struct QueryWord {
  std::string_view word;
  Command command;
};

constexpr QueryWord kQueryWords[] = {
    {"--knownProducts", Command::KnownProducts},
    {"--knownvariants", Command::KnownVariants},
    {"--validproducts", Command::ValidProducts},
    {"--validvariants", Command::ValidVariants},
};

std::string_view queryWord(Command command) {
  for (const QueryWord& q : kQueryWords)
    if (q.command == command) return q.word;
  return "";
}

ParsedCommandLine failure(std::string message) {
  ParsedCommandLine parsed;
  parsed.error = "velmarbs: " + message + std::string(kHint);
  return parsed;
}

class Parser {
 public:
  explicit Parser(const std::vector<std::string>& args) : args_(args) {}

  ParsedCommandLine parse();

 private:
  // The value after the option at `i_`, or nothing (with error_ set).
  std::optional<std::string> takeValue(std::string_view option);
  std::optional<bool> takeOnOff(std::string_view option);
  bool handleWord(const std::string& word);
  ParsedCommandLine finish();

  const std::vector<std::string>& args_;
  size_t i_ = 0;
  ToolRequest request_;
  std::optional<Command> query_;
  bool help_ = false;
  bool version_ = false;
  std::string error_;
};

std::optional<std::string> Parser::takeValue(std::string_view option) {
  if (i_ + 1 >= args_.size()) {
    error_ = std::string(option) + " needs a value";
    return std::nullopt;
  }
  return args_[++i_];
}

std::optional<bool> Parser::takeOnOff(std::string_view option) {
  std::optional<std::string> value = takeValue(option);
  if (!value) return std::nullopt;
  if (*value == "on") return true;
  if (*value == "off") return false;
  error_ = std::string(option) + " takes \"on\" or \"off\", not \"" + *value + "\"";
  return std::nullopt;
}

// Answers false with error_ set when the word cannot be taken.
bool Parser::handleWord(const std::string& word) {
  for (const OptionWord& o : kOptionWords) {
    if (word == o.word) {
      request_.options.set(std::string(o.key), o.value);
      if (word == "--noSymLinks") request_.noSymLinks = true;
      return true;
    }
  }
  for (const QueryWord& q : kQueryWords) {
    if (word == q.word) {
      if (query_ && *query_ != q.command) {
        error_ = std::string(queryWord(*query_)) + " and " + word + " cannot be combined";
        return false;
      }
      query_ = q.command;
      return true;
    }
  }

  for (const FlagWord& f : kFlagWords) {
    if (word == f.word) {
      request_.*f.flag = true;
      return true;
    }
  }
  if (word == "--help" || word == "--version") {
    (word == "--help" ? help_ : version_) = true;
    return true;
  }

  if (word == "--source" || word == "--target") {
    std::optional<std::string> value = takeValue(word);
    if (!value) return false;
    if (value->empty()) {
      error_ = word + " needs a non-empty path";
      return false;
    }
    (word == "--source" ? request_.source : request_.target) = *value;
    return true;
  }
  if (word == "--product" || word == "--factory") {
    std::optional<std::string> value = takeValue(word);
    if (!value) return false;
    (word == "--product" ? request_.products : request_.factoryVariants).append(Value(*value));
    return true;
  }
  if (word == "--swdl-tmpl" || word == "--ss-tmpl") {
    std::optional<std::string> value = takeValue(word);
    if (!value) return false;
    std::string key = word.substr(2);
    Value names = request_.options.get(key);
    names.append(Value(*value));
    request_.options.set(key, names);
    return true;
  }
  if (word == "--personalized" || word == "--unpersonalized") {
    std::optional<bool> on = takeOnOff(word);
    if (!on) return false;
    request_.options.set(word == "--personalized" ? "checkPersonalized" : "checkUnpersonalized",
                         *on);
    return true;
  }
  if (word == "--engine") {
    std::optional<std::string> value = takeValue(word);
    if (!value) return false;
    if (*value == "auto") {
      request_.engine = EngineKind::Auto;
    } else if (*value == "manifest") {
      request_.engine = EngineKind::Manifest;
    } else if (*value == "legacy") {
      request_.engine = EngineKind::Legacy;
    } else {
      error_ = "--engine takes auto, manifest or legacy, not \"" + *value + "\"";
      return false;
    }
    return true;
  }
  error_ = "unknown word \"" + word + "\"";
  return false;
}

ParsedCommandLine Parser::parse() {
  for (i_ = 0; i_ < args_.size(); ++i_)
    if (!handleWord(args_[i_])) return failure(error_);
  return finish();
}

ParsedCommandLine Parser::finish() {
  request_.options.set("toolName", "velmarbs");
  request_.options.set("toolVersion", VELMAR_VERSION);

  if (help_ || version_) {
    request_.command = help_ ? Command::Help : Command::Version;
    return ParsedCommandLine{request_, ""};
  }
  if (query_) {
    std::string word(queryWord(*query_));
    if (request_.target) return failure(word + " does not take --target");
    if (*query_ == Command::ValidVariants && request_.products.count() == 0)
      return failure(word + " needs --product");
    if ((*query_ == Command::ValidProducts || *query_ == Command::ValidVariants) &&
        !request_.source)
      return failure(word + " needs --source");
    request_.command = *query_;
  } else if (!request_.source) {
    return failure(args_.empty() ? "nothing to do" : "no --source given");
  }
  return ParsedCommandLine{request_, ""};
}

}  // namespace

ParsedCommandLine parseCommandLine(const std::vector<std::string>& args) {
  return Parser(args).parse();
}

std::string versionText() { return std::string("velmarbs ") + VELMAR_VERSION; }

// Laid out the way help2man reads it, since the manual page is made from it:
// "Usage:"/"or:" lines for the synopsis, a paragraph of description, headed
// blocks of indented words, and "Exit status:", "Files:", "Examples:".
std::string usageText() {
  return R"(Usage: velmarbs --source BUNDLE [--target TARGET] [--product P]... [--factory V]... [OPTION]...
  or:  velmarbs --knownProducts [--source BUNDLE]
  or:  velmarbs --knownvariants
  or:  velmarbs --validproducts --source BUNDLE [FIRMWARE OPTION]...
  or:  velmarbs --validvariants --product P --source BUNDLE [FIRMWARE OPTION]...
  or:  velmarbs --help | --version
Strip a firmware restore bundle down to what the given products (board codes
such as r13) and stations (factory variants such as ss) need, or tell which
products and stations a bundle supports.

BUNDLE is a folder holding Restore/, or a .dmg disk image of one. Without
--target the request is validated and nothing is written. With it the stripped
bundle is built beside TARGET and renamed to TARGET only when complete; a
failed run leaves nothing behind and never changes BUNDLE.

Bundle and selection:
  --source BUNDLE        the restore bundle to read
  --target TARGET        where the stripped bundle goes: a folder, or a disk
                         image when TARGET ends in .dmg
  --product P            a product (board code) to keep; repeatable
  --factory V            a station (factory variant) to keep; repeatable

Queries, each printing one XML property list on standard output:
  --knownProducts        the board codes the engine knows; with --source,
                         those of BUNDLE
  --knownvariants        the station names the engine knows
  --validproducts        the products BUNDLE supports (key validProducts)
  --validvariants        the stations BUNDLE supports for the --product given
                         (key validVariants)

What to keep (default: strip; of a keep and a strip word the last wins):
  --keepDebug, --stripDebug
                         the items of the Debug folder
  --keepBundleImages, --stripBundleImages
                         the items of the BundleImages folder
  --keepRPKGs, --stripRPKGs
                         the firmware packages of the Orrin RPKGs folder
  --keepHomeDiags, --stripHomeDiags
                         the image the HomeDiagnostic.dmg link leads to
  --keepSDK, --stripSDK  the SDK image its link leads to

Firmware options, also taken by --validproducts and --validvariants:
  --keepDevFirmware, --stripDevFirmware
                         also keep each product's development device class
                         (P followed by dev); default: strip
  --keepAPFirmware, --stripAPFirmware
                         keep each product's production device class (P
                         followed by ap); default: keep

Engine options:
  --personalized on|off  run the personalized restore steps (build manifest)
  --unpersonalized on|off
                         also prepare an unpersonalized install
  --useRestorePlist      work from Restore.plist; counts as --unpersonalized on
  --swdl-tmpl NAME       a personalization variant that the template station
                         swdl-tmpl stands for; repeatable
  --ss-tmpl NAME         the same for the template station ss-tmpl
  --engine auto|manifest|legacy
                         the engine to run; auto (the default) takes the
                         manifest engine when Restore/BuildManifest.plist
                         exists, else the legacy one

Output options:
  --noSymLinks           write the links of the result as copies of the files
                         they name, so the result holds no symbolic link
  --noCookie             leave no VelmarBSCookie.plist in the result
  --encrypt              an encrypted target image; not available here, so
                         refused before any work
  --ov                   replace an existing TARGET once the new one is complete
  --results              after a successful run print the engine's results as
                         one property list (strippedManifest, modifiedFiles)
  --verbose              print the work list and every step's findings
  --help                 print this help and exit
  --version              print "velmarbs VERSION" and exit

Exit status:
  0                      success
  1                      the engine's status when stripping fails (normally 1)
  2                      a command line that cannot be carried out (an unknown
                         word, a missing value, TARGET existing without --ov,
                         TARGET and BUNDLE overlapping), before any work
  3                      reading BUNDLE or writing TARGET failed

Files:
  TARGET                 the stripped bundle, written only with --target
  TARGET/VelmarBSCookie.plist
                         the command line, source, tool name and version
                         that made the bundle (not with --noCookie)
  .TARGET.velmarbs-XXXXXX
                         the bundle while it is built, a hidden folder beside
                         TARGET, renamed to TARGET or removed at the end
  $TMPDIR/velmarbs-source-XXXXXX
                         a .dmg BUNDLE unpacked for reading (TMPDIR defaults
                         to /tmp), removed at the end

Environment:
  PATH                   where 7z (package 7zip) is found for reading a .dmg
                         BUNDLE and xorriso for reading and writing images
  TMPDIR                 where a .dmg BUNDLE is unpacked

Examples:
  $ velmarbs --source Bundle --product r13 --factory ss --results
  $ velmarbs --source Bundle.dmg --target Stripped --product r13 --factory ss --ov
  $ velmarbs --validvariants --product r13 --source Bundle

The first example validates the strip of Bundle for product r13 and station ss
and prints what would be kept and rewritten; the second writes the stripped
bundle to the folder Stripped, replacing an earlier one; the third lists the
stations Bundle supports for r13.
)";
}

}  // namespace velmar::tool

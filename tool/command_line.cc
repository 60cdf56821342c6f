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

std::string usageText() {
  return R"(usage: velmarbs --source BUNDLE [--target TARGET] [selection] [options]
       velmarbs --knownProducts [--source BUNDLE]
       velmarbs --knownvariants
       velmarbs --validproducts --source BUNDLE [firmware words]
       velmarbs --validvariants --product P --source BUNDLE [firmware words]

Without --target the request is validated and nothing is written.
BUNDLE is a folder holding Restore/ or a .dmg image of one; a TARGET ending
in .dmg is written as a disk image.

selection:
  --product P                 a product (board code); repeatable
  --factory V                 a factory variant (station); repeatable
options:
  --keepDebug | --stripDebug
  --keepBundleImages | --stripBundleImages
  --keepRPKGs | --stripRPKGs
  --keepHomeDiags | --stripHomeDiags
  --keepSDK | --stripSDK
  --keepDevFirmware | --stripDevFirmware     (firmware words)
  --keepAPFirmware | --stripAPFirmware       (firmware words)
  --noSymLinks                write links of the result as copies
  --noCookie                  leave no cookie file
  --personalized on|off
  --unpersonalized on|off
  --useRestorePlist
  --swdl-tmpl NAME, --ss-tmpl NAME           repeatable
  --engine auto|manifest|legacy              default auto
  --verbose
  --encrypt                   encrypted target image (not available here)
  --ov                        replace an existing TARGET once the new one is complete
  --results                   print the engine's results as a property list
  --help, --version

exit status: 0 success, the engine's status when stripping fails,
2 a command line that cannot be carried out, 3 a read or write failure.
)";
}

}  // namespace velmar::tool

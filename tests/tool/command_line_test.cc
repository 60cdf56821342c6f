#include "tool/command_line.h"

#include <gtest/gtest.h>

namespace velmar::tool {
namespace {

ToolRequest parseOk(const std::vector<std::string>& args) {
  ParsedCommandLine parsed = parseCommandLine(args);
  EXPECT_TRUE(parsed.request.has_value()) << parsed.error;
  return parsed.request.value_or(ToolRequest());
}

std::string parseError(const std::vector<std::string>& args) {
  ParsedCommandLine parsed = parseCommandLine(args);
  EXPECT_FALSE(parsed.request.has_value());
  return parsed.error;
}

TEST(CommandLine, FrontEndStripLineSetsEveryOption) {
  ToolRequest r = parseOk({"--source",
                           "/b",
                           "--target",
                           "/t",
                           "--factory",
                           "ss",
                           "--factory",
                           "swdl",
                           "--product",
                           "r13",
                           "--keepDebug",
                           "--stripBundleImages",
                           "--keepRPKGs",
                           "--stripHomeDiags",
                           "--keepSDK",
                           "--keepDevFirmware",
                           "--stripAPFirmware",
                           "--noSymLinks",
                           "--noCookie",
                           "--personalized",
                           "on",
                           "--unpersonalized",
                           "off",
                           "--verbose",
                           "--encrypt",
                           "--ov"});
  EXPECT_EQ(r.command, Command::Run);
  EXPECT_EQ(r.source, "/b");
  EXPECT_EQ(r.target, "/t");
  EXPECT_EQ(r.products, Value::stringArray({"r13"}));
  EXPECT_EQ(r.factoryVariants, Value::stringArray({"ss", "swdl"}));
  const Value& o = r.options;
  EXPECT_TRUE(o.get("keepDebug").isBool() && o.get("keepDebug").boolValue());
  EXPECT_FALSE(o.get("keepBundleImages").boolValue());
  EXPECT_TRUE(o.contains("keepBundleImages"));
  EXPECT_TRUE(o.get("keepRPKGs").boolValue());
  EXPECT_FALSE(o.get("keepHomeDiagnostics").boolValue());
  EXPECT_TRUE(o.get("keepSDK").boolValue());
  EXPECT_TRUE(o.get("keepDevFirmware").boolValue());
  EXPECT_TRUE(o.get("stripAPFirmware").boolValue());
  EXPECT_TRUE(o.get("noSymLinks").boolValue());
  EXPECT_TRUE(o.get("noCookie").boolValue());
  EXPECT_TRUE(o.get("checkPersonalized").boolValue());
  EXPECT_FALSE(o.get("checkUnpersonalized").boolValue());
  EXPECT_TRUE(o.contains("checkUnpersonalized"));
  EXPECT_EQ(o.get("toolName"), Value("velmarbs"));
  EXPECT_EQ(o.get("toolVersion"), Value(VELMAR_VERSION));
  EXPECT_TRUE(r.noSymLinks && r.verbose && r.encrypt && r.overwrite);
  EXPECT_FALSE(r.printResults);
}

TEST(CommandLine, LastOfAKeepAndStripPairWins) {
  ToolRequest r = parseOk(
      {"--source", "b", "--keepAPFirmware", "--stripAPFirmware", "--stripDebug", "--keepDebug"});
  EXPECT_TRUE(r.options.get("stripAPFirmware").boolValue());
  EXPECT_TRUE(r.options.get("keepDebug").boolValue());
  r = parseOk({"--source", "b", "--stripAPFirmware", "--keepAPFirmware"});
  EXPECT_FALSE(r.options.get("stripAPFirmware").boolValue());
}

TEST(CommandLine, NoSelectionMeansNoProductsOrVariantsAndOnlyToolOptions) {
  ToolRequest r = parseOk({"--source", "b"});
  EXPECT_TRUE(r.products.isNull());
  EXPECT_TRUE(r.factoryVariants.isNull());
  EXPECT_EQ(r.options.dict().keys(), (std::vector<std::string>{"toolName", "toolVersion"}));
  EXPECT_FALSE(r.target.has_value());
  EXPECT_EQ(r.engine, EngineKind::Auto);
}

TEST(CommandLine, TemplatesEngineAndOtherWords) {
  ToolRequest r = parseOk({"--source", "b", "--swdl-tmpl", "a", "--swdl-tmpl", "b", "--ss-tmpl",
                           "c", "--useRestorePlist", "--engine", "legacy", "--results"});
  EXPECT_EQ(r.options.get("swdl-tmpl"), Value::stringArray({"a", "b"}));
  EXPECT_EQ(r.options.get("ss-tmpl"), Value::stringArray({"c"}));
  EXPECT_TRUE(r.options.get("useRestorePlistInsteadOfBuildManifest").boolValue());
  EXPECT_EQ(r.engine, EngineKind::Legacy);
  EXPECT_TRUE(r.printResults);
  EXPECT_EQ(parseOk({"--source", "b", "--engine", "manifest"}).engine, EngineKind::Manifest);
}

TEST(CommandLine, Queries) {
  EXPECT_EQ(parseOk({"--knownProducts"}).command, Command::KnownProducts);
  EXPECT_EQ(parseOk({"--knownProducts", "--source", "b"}).source, "b");
  EXPECT_EQ(parseOk({"--knownvariants"}).command, Command::KnownVariants);
  ToolRequest r =
      parseOk({"--validproducts", "--source", "b", "--keepDevFirmware", "--stripAPFirmware"});
  EXPECT_EQ(r.command, Command::ValidProducts);
  EXPECT_TRUE(r.options.get("keepDevFirmware").boolValue());
  r = parseOk({"--validvariants", "--product", "r13", "--source", "b", "--stripDevFirmware",
               "--keepAPFirmware"});
  EXPECT_EQ(r.command, Command::ValidVariants);
  EXPECT_EQ(r.products, Value::stringArray({"r13"}));
  EXPECT_FALSE(r.options.get("stripAPFirmware").boolValue());
}

TEST(CommandLine, HelpAndVersionNeedNothingElse) {
  EXPECT_EQ(parseOk({"--help"}).command, Command::Help);
  EXPECT_EQ(parseOk({"--version"}).command, Command::Version);
  EXPECT_EQ(parseOk({"--validvariants", "--help"}).command, Command::Help);
  EXPECT_EQ(versionText(), std::string("velmarbs ") + VELMAR_VERSION);
}

TEST(CommandLine, ErrorsAreOneLineWithTheHint) {
  const std::vector<std::vector<std::string>> bad = {
      {},
      {"--bogus"},
      {"--source", "b", "extra"},
      {"--source"},
      {"--source", "b", "--product"},
      {"--source", "b", "--personalized"},
      {"--source", "b", "--personalized", "maybe"},
      {"--source", "b", "--engine", "turbo"},
      {"--source", ""},
      {"--target", "t"},
      {"--validproducts"},
      {"--validvariants", "--source", "b"},
      {"--validvariants", "--product", "r13"},
      {"--knownProducts", "--knownvariants"},
      {"--validproducts", "--source", "b", "--target", "t"},
      {"--KnownProducts"},
  };
  for (const auto& args : bad) {
    std::string error = parseError(args);
    EXPECT_EQ(error.rfind("velmarbs: ", 0), 0u) << error;
    EXPECT_NE(error.find("see velmarbs --help"), std::string::npos) << error;
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
  }
  EXPECT_NE(parseError({"--bogus"}).find("\"--bogus\""), std::string::npos);
  EXPECT_NE(parseError({"--source", "b", "--product"}).find("--product needs a value"),
            std::string::npos);
}

}  // namespace
}  // namespace velmar::tool

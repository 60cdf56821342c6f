#include "app/tool_arguments.h"

namespace velmar::app {

Arguments knownProductsArguments(const std::string& sourcePath) {
  Arguments args = {"--knownProducts"};
  if (!sourcePath.empty()) {
    args.push_back("--source");
    args.push_back(sourcePath);
  }
  return args;
}

Arguments knownVariantsArguments() { return {"--knownvariants"}; }

Arguments firmwareArguments(bool keepDevFirmware, bool keepAPFirmware) {
  return {keepDevFirmware ? "--keepDevFirmware" : "--stripDevFirmware",
          keepAPFirmware ? "--keepAPFirmware" : "--stripAPFirmware"};
}

Arguments validProductsArguments(const std::string& sourcePath, bool keepDevFirmware,
                                 bool keepAPFirmware) {
  Arguments args = {"--validproducts", "--source", sourcePath};
  for (auto& word : firmwareArguments(keepDevFirmware, keepAPFirmware)) args.push_back(word);
  return args;
}

Arguments validVariantsArguments(const std::string& product, const std::string& sourcePath,
                                 bool keepDevFirmware, bool keepAPFirmware) {
  Arguments args = {"--validvariants", "--product", product, "--source", sourcePath};
  for (auto& word : firmwareArguments(keepDevFirmware, keepAPFirmware)) args.push_back(word);
  return args;
}

Arguments stripArguments(const UserDefaults& defaults, const std::string& destinationPath,
                         bool verbose) {
  auto keepOrStrip = [&](const char* key, const char* keep, const char* strip) {
    return std::string(defaults.boolForKey(key) ? keep : strip);
  };
  auto onOff = [&](const char* key) { return std::string(defaults.boolForKey(key) ? "on" : "off"); };

  Arguments args = {"--source", sourcePath(defaults)};
  if (!destinationPath.empty()) {
    args.push_back("--target");
    args.push_back(destinationPath);
  }
  for (const auto& variant : defaults.arrayForKey(kVariantsKey)) {
    args.push_back("--factory");
    args.push_back(variant);
  }
  for (const auto& product : defaults.arrayForKey(kProductsKey)) {
    args.push_back("--product");
    args.push_back(product);
  }
  args.push_back(keepOrStrip(kKeepDebugImageKey, "--keepDebug", "--stripDebug"));
  args.push_back(keepOrStrip(kKeepBundleImagesKey, "--keepBundleImages", "--stripBundleImages"));
  args.push_back(keepOrStrip(kKeepRPKGsKey, "--keepRPKGs", "--stripRPKGs"));
  args.push_back(keepOrStrip(kKeepHomeDiagsKey, "--keepHomeDiags", "--stripHomeDiags"));
  args.push_back(keepOrStrip(kKeepSDKKey, "--keepSDK", "--stripSDK"));
  args.push_back(keepOrStrip(kKeepDevFirmwareKey, "--keepDevFirmware", "--stripDevFirmware"));
  args.push_back(keepOrStrip(kKeepAPFirmwareKey, "--keepAPFirmware", "--stripAPFirmware"));
  if (!defaults.boolForKey(kGenerateSymlinksKey)) args.push_back("--noSymLinks");
  if (!defaults.boolForKey(kGenerateCookieKey)) args.push_back("--noCookie");
  args.push_back("--personalized");
  args.push_back(onOff(kCheckPersonalizedKey));
  args.push_back("--unpersonalized");
  args.push_back(onOff(kCheckUnpersonalizedKey));
  if (verbose) args.push_back("--verbose");
  if (defaults.boolForKey(kEncryptKey)) args.push_back("--encrypt");
  args.push_back("--ov");
  return args;
}

}  // namespace velmar::app

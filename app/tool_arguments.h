// The velmarbs command lines the front end builds: the four queries and the
// strip or validate run. Each option is its own word and its value the next
// word; the order is part of the contract with the tool.

#ifndef VELMAR_APP_TOOL_ARGUMENTS_H_
#define VELMAR_APP_TOOL_ARGUMENTS_H_

#include <string>
#include <vector>

#include "app/user_defaults.h"

namespace velmar::app {

using Arguments = std::vector<std::string>;

// "--knownProducts", then "--source" and the bundle unless `sourcePath` is
// empty (at start-up the tool's own table is asked for).
Arguments knownProductsArguments(const std::string& sourcePath);

// "--knownvariants" alone.
Arguments knownVariantsArguments();

// "--keepDevFirmware"/"--stripDevFirmware", then
// "--keepAPFirmware"/"--stripAPFirmware".
Arguments firmwareArguments(bool keepDevFirmware, bool keepAPFirmware);

// "--validproducts", "--source", bundle, firmware words.
Arguments validProductsArguments(const std::string& sourcePath, bool keepDevFirmware,
                                 bool keepAPFirmware);

// "--validvariants", "--product", board code, "--source", bundle, firmware words.
Arguments validVariantsArguments(const std::string& product, const std::string& sourcePath,
                                 bool keepDevFirmware, bool keepAPFirmware);

// A strip run when `destinationPath` is not empty ("--target" follows the
// source), a validate run otherwise. The bundle is `lastSourceSelected`
// expanded; the selection and the keep/strip words come from `defaults`;
// "--verbose" when `verbose`; "--ov" always last.
Arguments stripArguments(const UserDefaults& defaults, const std::string& destinationPath,
                         bool verbose);

}  // namespace velmar::app

#endif  // VELMAR_APP_TOOL_ARGUMENTS_H_

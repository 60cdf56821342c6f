// A bundle shaped like the ones a factory strips: many products, both device
// classes of each, and an identity for every station's personalization
// variant. The benchmarks measure the whole tool on it.

#ifndef VELMAR_SYNTH_FACTORY_BUNDLE_H_
#define VELMAR_SYNTH_FACTORY_BUNDLE_H_

#include <cstddef>
#include <string>
#include <vector>

#include "synth/bundle_builder.h"

namespace velmar::synth {

// The personalization variants of the built-in station table, each once, in
// table order (several stations share a variant).
std::vector<std::string> factoryPersonalizationVariants();

// Board code of the i-th product of a factory bundle: "f000", "f001", ...
// (fixed width, so no board code is a substring of another).
std::string factoryBoard(size_t i);

// `products` products on the built-in processors, each with an ap and a dev
// device class and one identity per personalization variant on each, every
// identity holding `extraItems` flash items with digests beyond its usual
// ones. The manifest grows linearly with both; the defaults make the
// benchmark's bundle: 500 identities, a build manifest of about 10 MB.
BundleDescription factoryBundle(size_t products, size_t extraItems);
inline constexpr size_t kFactoryBundleProducts = 10;
inline constexpr size_t kFactoryBundleExtraItems = 43;

}  // namespace velmar::synth

#endif  // VELMAR_SYNTH_FACTORY_BUNDLE_H_

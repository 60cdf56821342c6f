#include "app/selection.h"

#include <algorithm>
#include <set>

namespace velmar::app {

namespace {

bool holds(const NameList& list, const std::string& name) {
  return std::find(list.begin(), list.end(), name) != list.end();
}

void toggle(NameList& list, const std::string& name, bool on) {
  if (!on) {
    std::erase(list, name);
  } else if (!holds(list, name)) {
    list.push_back(name);
  }
}

}  // namespace

void SelectionModel::updateFactoryVariants() {
  NameList kept = products_;
  std::set<std::string> valid;
  bool taken = false;
  for (const auto& product : products_) {
    if (!holds(validProducts_, product)) {
      std::erase(kept, product);
      continue;
    }
    auto entry = validVariantsForEachProduct_.find(product);
    if (entry == validVariantsForEachProduct_.end()) continue;  // no reply: no say
    std::set<std::string> these(entry->second.begin(), entry->second.end());
    if (taken) {
      std::erase_if(valid, [&](const std::string& v) { return !these.count(v); });
    } else {
      valid.insert(these.begin(), these.end());
    }
    taken = true;
  }
  validVariantsForSelectedProducts_.assign(valid.begin(), valid.end());
  products_ = std::move(kept);
  std::erase_if(variants_, [&](const std::string& v) { return !valid.count(v); });
}

ButtonStates SelectionModel::buttonStates(bool sourceExists) const {
  ButtonStates states;
  for (const auto& variant : knownVariants_) {
    states.stations.push_back({holds(variants_, variant), holds(validVariantsForSelectedProducts_, variant)});
  }
  for (const auto& product : knownProducts_) {
    states.products.push_back({holds(products_, product), holds(validProducts_, product)});
  }
  states.clearAllProducts = canClearAllProducts();
  states.setAllProducts = canSetAllProducts();
  states.clearAllVariants = canClearAllStations();
  states.setAllVariants = canSetAllStations();
  states.stripAndValidate = !variants_.empty() && !products_.empty() && sourceExists &&
                            !validVariantsForSelectedProducts_.empty() && !knownProducts_.empty();
  return states;
}

void SelectionModel::factoryStationHit(size_t tag, bool on) {
  if (tag >= knownVariants_.size()) return;
  toggle(variants_, knownVariants_[tag], on);
}

void SelectionModel::productHit(size_t tag, bool on) {
  if (tag >= knownProducts_.size()) return;
  toggle(products_, knownProducts_[tag], on);
  updateFactoryVariants();
}

}  // namespace velmar::app

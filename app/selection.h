// SelectionModel: which products and stations (factory variants) are known,
// valid for the chosen bundle and selected, and what the check boxes and
// buttons show as a result.
//
// The selection itself (`products`, `variants`) is a user setting; the model
// holds a copy that the widget layer loads from and stores back to its
// settings after each action. The valid lists live only here and are
// rebuilt by every scan. After any change the widget layer asks for
// buttonStates() and shows them (syncFactoryButtons).

#ifndef VELMAR_APP_SELECTION_H_
#define VELMAR_APP_SELECTION_H_

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace velmar::app {

using NameList = std::vector<std::string>;
using VariantsByProduct = std::map<std::string, NameList>;

struct CheckBoxState {
  bool on = false;
  bool enabled = false;
  bool operator==(const CheckBoxState&) const = default;
};

// What syncFactoryButtons shows. Check boxes are indexed by their tag, the
// position of their name in the known list.
struct ButtonStates {
  std::vector<CheckBoxState> stations;
  std::vector<CheckBoxState> products;
  bool clearAllProducts = false;
  bool setAllProducts = false;
  bool clearAllVariants = false;
  bool setAllVariants = false;
  bool stripAndValidate = false;  // both the Strip and the Validate button
};

class SelectionModel {
 public:
  const NameList& knownProducts() const { return knownProducts_; }
  const NameList& knownVariants() const { return knownVariants_; }
  const NameList& validProducts() const { return validProducts_; }
  const VariantsByProduct& validVariantsForEachProduct() const { return validVariantsForEachProduct_; }
  const NameList& validVariantsForSelectedProducts() const { return validVariantsForSelectedProducts_; }
  const NameList& products() const { return products_; }
  const NameList& variants() const { return variants_; }

  void setKnownProducts(NameList list) { knownProducts_ = std::move(list); }
  void setKnownVariants(NameList list) { knownVariants_ = std::move(list); }
  void setValidProducts(NameList list) { validProducts_ = std::move(list); }
  void setValidVariantsForEachProduct(VariantsByProduct map) { validVariantsForEachProduct_ = std::move(map); }
  void setProducts(NameList list) { products_ = std::move(list); }
  void setVariants(NameList list) { variants_ = std::move(list); }

  // The selection rule. Selected products the bundle does not support are
  // dropped; the valid stations become those valid for every selected valid
  // product that has a reply (the first seeds the set, the others narrow
  // it); selected stations outside that set are dropped.
  void updateFactoryVariants();

  // `sourceExists`: whether a file or folder is at lastSourceSelected.
  ButtonStates buttonStates(bool sourceExists) const;

  bool canSetAllStations() const { return !validVariantsForSelectedProducts_.empty(); }
  bool canClearAllStations() const { return !variants_.empty(); }
  bool canSetAllProducts() const { return !validProducts_.empty(); }
  bool canClearAllProducts() const { return !products_.empty(); }

  // Check-box actions; `tag` is the check box's index into the known list
  // (a tag past its end changes nothing). A product change re-runs the
  // selection rule; a station change does not need to.
  void factoryStationHit(size_t tag, bool on);
  void productHit(size_t tag, bool on);

  // The select-all and select-none buttons. The product pair deliberately
  // leaves the valid stations as they were until the next productHit or
  // scan.
  void setAllStations() { variants_ = validVariantsForSelectedProducts_; }
  void clearAllStations() { variants_.clear(); }
  void setAllProducts() { products_ = validProducts_; }
  void clearAllProducts() { products_.clear(); }

 private:
  NameList knownProducts_;
  NameList knownVariants_;
  NameList validProducts_;
  VariantsByProduct validVariantsForEachProduct_;
  NameList validVariantsForSelectedProducts_;
  NameList products_;
  NameList variants_;
};

}  // namespace velmar::app

#endif  // VELMAR_APP_SELECTION_H_

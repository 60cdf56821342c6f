// Stripper: the frame every strip engine shares.
//
// An engine is made for one request by its class factory (stripperForPath),
// asked once to strip, and then read: strippedManifest lists the bundle paths
// to keep as they are, modifiedFiles maps bundle paths to their new contents
// (a dictionary is a property list, a string a text file, data a link whose
// target is the data's text). Engines never write to the bundle.
//
// A strip runs as a work list: an array of dictionaries, each naming its step
// in "workSelector" and its log title in "workName", run in order until a
// step answers a non-zero status.

#ifndef VELMAR_ENGINE_STRIPPER_H_
#define VELMAR_ENGINE_STRIPPER_H_

#include <cstdint>
#include <functional>
#include <type_traits>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "base/bundle_view.h"
#include "base/value.h"

namespace velmar {

// A step's status: 0 goes on, anything else ends the work list and becomes
// the result of strip. Empty where the original would answer nil.
using Status = std::optional<int32_t>;

// The invalid-argument error number: what an engine that cannot strip answers.
constexpr int32_t kStripNotImplemented = 22;

class Stripper {
 public:
  Stripper() = default;
  virtual ~Stripper() = default;
  Stripper(const Stripper&) = delete;
  Stripper& operator=(const Stripper&) = delete;

  // Records the request and analyses the bundle. `products` and
  // `factoryVariants` are arrays of strings or null; `options` a dictionary
  // or null. The base ignores everything.
  virtual void initWithPath(const std::string& path, const Value& products,
                            const Value& factoryVariants, const Value& options) {}

  virtual Value validFactoryVariants() { return Value(); }
  virtual Value validProducts() { return Value(); }
  virtual int32_t strip() { return kStripNotImplemented; }
  virtual Value bundleRoot() const { return Value(); }
  virtual Value strippedManifest() { return Value(); }
  virtual Value modifiedFiles() { return Value(); }

  // The bundle the engine reads, every read going through it. A caller that
  // has a view already (an image, say) hands it over before initWithPath;
  // otherwise initWithPath opens the folder at its path.
  void useBundleView(std::shared_ptr<BundleView> view) { view_ = std::move(view); }
  BundleView& bundleView() { return *view_; }

  bool verbose() const { return verbose_; }
  void setVerbose(bool on) { verbose_ = on; }

  // Runs workList() in order, logging a numbered banner before each step,
  // and stops at the first non-zero status. Answers the last status, or
  // nothing for an empty list. The argument is unused.
  Status performWork(const Value& unused = Value());

  const Value& workList() const { return workList_; }
  Value& mutableWorkList() { return workList_; }

 protected:
  // Runs the step named by `selector` on `entry`. Engines look selectors up
  // in their StepTable.
  virtual Status performStep(std::string_view selector, Value& entry) { return 1; }

  Value workList_ = Value::makeArray();

  // Keeps a view handed over for `path`, or opens the folder there.
  void openBundleView(const std::string& path);

 private:
  std::shared_ptr<BundleView> view_;
  bool verbose_ = false;
};

// The steps an engine can run from its work list, by their selector text: a
// member of the engine, or a plain function of anything the engine is (the
// shared support steps take the engine as their host), so an engine needs no
// forwarding member per shared step.
template <class Engine>
class StepTable {
 public:
  using Step = std::function<int32_t(Engine&, Value&)>;

  struct Row {
    Row(std::string_view selector, int32_t (Engine::*member)(Value&))
        : selector(selector), step(member) {}
    template <class Base>
      requires std::is_base_of_v<Base, Engine>
    Row(std::string_view selector, int32_t (*function)(Base&, Value&))
        : selector(selector), step([function](Engine& engine, Value& entry) {
            return function(static_cast<Base&>(engine), entry);
          }) {}
    std::string_view selector;
    Step step;
  };

  StepTable(std::initializer_list<Row> rows) {
    for (const Row& row : rows) steps_.emplace(row.selector, row.step);
  }

  // Runs the step; an unknown selector logs an error and fails.
  Status perform(Engine& engine, std::string_view selector, Value& entry) const;

 private:
  std::unordered_map<std::string_view, Step> steps_;
};

// Logs the failure for a selector that names no step of the engine.
int32_t unknownWorkStep(std::string_view selector);

template <class Engine>
Status StepTable<Engine>::perform(Engine& engine, std::string_view selector, Value& entry) const {
  auto it = steps_.find(selector);
  if (it == steps_.end()) return unknownWorkStep(selector);
  return it->second(engine, entry);
}

}  // namespace velmar

#endif  // VELMAR_ENGINE_STRIPPER_H_

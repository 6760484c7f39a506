#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Notifications.h"
#include "base/Observed.h"
#include "model/Lens.h"
#include "model/ModelServices.h"
#include "model/Problem.h"
#include "model/ShownTree.h"
#include "rows/Entry.h"

namespace quon {

class Job;

/// What a result about the tree was made from: the same key, the same result.
struct ViewKey {
  std::uint64_t tree = 0;  ///< ShownTree::id; 0 for none
  std::uint64_t version = 0;
  Metric metric = Metric::logical;
  std::string scopePath;
  std::string further;  ///< whatever else the result depends on

  friend bool operator==(const ViewKey&, const ViewKey&) = default;
};

/// What all parts of the model share: services, the shown tree, and where the user looks. Threads: main only.
class ModelState : public Notifications, public Problems {
 public:
  explicit ModelState(ModelServices given);

  const ModelServices services;
  ModelOptions options;

  Observed<Phase> _phase;
  Observed<std::shared_ptr<const WalkResult>> _result;
  Observed<std::uint64_t> _version;                 ///< grows whenever the tree changes in place
  Observed<RefPtr<DirNode>> _scope;                 ///< views set
  Observed<Metric> _metric;                         ///< views set
  Observed<Lens> _lens;                             ///< views set
  Observed<MapMode> _mapMode;                       ///< views set
  Observed<std::optional<std::string>> _selection;  ///< an Entry's id; views set
  Observed<std::optional<std::string>> _hovered;    ///< likewise
  Observed<bool> _showInspector;                    ///< views set
  Observed<std::optional<std::string>> _toast;      ///< a passing message

  [[nodiscard]] bool isScanning() const { return _phase.get() == Phase::scanning; }
  /// The tree that is shown; none before the first and after one that could not be scanned.
  [[nodiscard]] const ShownTreeRef& shownTree() const { return shown; }
  /// The full path of the scope; "" without a tree.
  [[nodiscard]] const std::string& scopePath() const { return pathOfScope; }

  // For the parts of the model.

  /// Shows another tree, or none, from its root on. Within an operation.
  void show(ShownTree tree);
  void showNothing();
  /// The shown tree was changed in place and has new figures. Within an operation.
  void showChanged(std::shared_ptr<const WalkResult> result);
  /// A scope that the tree contains no longer gives way to what lies at its path now, else to the root. At
  /// the end of each operation.
  void deriveScope();
  [[nodiscard]] ViewKey viewKey(std::string further = {}) const;

  /// Jobs that read the tree enter and leave this list.
  void addReader(Job& job) { readers.push_back(&job); }
  void removeReader(Job& job) { std::erase(readers, &job); }
  /// Voids every job that reads the tree, so that the gate is free for writing within 1,024 rows; the jobs
  /// are started again by whoever follows them.
  void interruptReaders();

 private:
  ShownTreeRef shown;
  std::string pathOfScope;
  RefPtr<DirNode> scopeOfPath;  // the folder whose path that is
  std::uint64_t lastId = 0;
  std::vector<Job*> readers;
};

}  // namespace quon

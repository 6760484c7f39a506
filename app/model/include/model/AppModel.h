#pragma once

#include "model/Catalogue.h"
#include "model/CommandBar.h"
#include "model/GapProbe.h"
#include "model/LensList.h"
#include "model/ModelState.h"
#include "model/Navigator.h"
#include "model/ScanSession.h"
#include "model/Search.h"
#include "model/Settings.h"
#include "model/TrashBin.h"
#include "model/WidgetSnapshot.h"

namespace quon {

/// All that the user sees and does. Window and terminal command drive the same object: views read and observe
/// the fields with a leading underscore, set those marked "views set", and call the operations.
///
/// Each base is one concern, with its fields and operations; here they are put together. Every operation, and
/// every field that a view sets, is a change that observers see when it is whole: see Notifications. At its
/// end each part brings up to date what depends on what changed, so views never ask for that.
///
/// Background work brings its results back to the main thread, where they count only if nothing newer was
/// begun meanwhile. Nothing on the main thread waits for a disk.
///
/// Threads: main only, except `cancel` and `buildingFile`.
class AppModel final : public ModelState,
                       public Settings,
                       public ScanSession,
                       public TrashBin,
                       public WidgetSnapshot,
                       public GapProbe,
                       public Catalogue,
                       public Search,
                       public CommandBar,
                       public Navigator,
                       public LensList {
 public:
  using Services = ModelServices;
  using ModelState::perform;

  explicit AppModel(ModelServices given);
  /// Cancels what runs and waits for scans and loads.
  ~AppModel() override;
  AppModel(const AppModel&) = delete;
  AppModel& operator=(const AppModel&) = delete;

  /// At launch: opens the saved index of the path, brought up to date, else scans; and collects indexes of no
  /// use. Once; later calls do nothing.
  void scanIfNeeded(const std::string& path);

 private:
  void derive();
};

}  // namespace quon

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

#include "live/LiveWatcher.h"
#include "platform/Folders.h"
#include "platform/Platform.h"

namespace quon {

class BackgroundQueue;
class DesktopService;
class EventService;
class Log;
class MainQueue;
class TrashService;
class UserDefaults;
class VolumeService;

/// The serial queues of the model. What may take seconds has one of its own, so that it holds up nothing
/// else.
namespace QueueName {
inline constexpr std::string_view search = "quon-search";
inline constexpr std::string_view palette = "quon-palette";
inline constexpr std::string_view lenses = "quon-lenses";        ///< walks of the tree in memory
inline constexpr std::string_view reclaim = "quon-reclaim";      ///< reads marker files
inline constexpr std::string_view names = "quon-names";          ///< reads the index
inline constexpr std::string_view catalogue = "quon-catalogue";  ///< visits every saved root
inline constexpr std::string_view settings = "quon-settings";
inline constexpr std::string_view snapshot = "quon-snapshot";  ///< asks the volume
inline constexpr std::string_view trash = "quon-trash";
inline constexpr std::string_view liveEvents = "quon.fsevents.live";
inline constexpr std::string_view liveWork = "quon.live.apply";
}  // namespace QueueName

/// What the model works with; all of it outlives the model.
struct ModelServices {
  const Platform& platform;
  EventService& events;
  UserDefaults& defaults;
  DesktopService& desktop;
  const VolumeService& volumes;
  Log& log;
  TrashService& trash;
  Folders folders;
  MainQueue& main;
  /// The queue of a name, the same at each call. Threads: main.
  std::function<BackgroundQueue&(std::string_view name)> queue;
  LiveWatcher::Clock steadyClock;     ///< seconds of a clock that only goes forward
  std::function<std::int64_t()> now;  ///< seconds since 1970
};

/// How this program uses the model. Set before the first scan.
struct ModelOptions {
  bool liveUpdates = true;
  bool catchUp = true;            ///< a loaded index is brought up to date
  bool waitsForRecorder = false;  ///< for one that is at work to cover the root
  bool collectsIndexes = true;    ///< at launch; visits every saved root
  bool saveIndex = true;
  bool writesSnapshot = true;      ///< for the widget
  bool typingPauses = true;        ///< searches wait a moment for the next key
  bool searchScope = false;        ///< the search and the Names lens cover the scope instead of the root
  std::size_t searchCap = 10'000;  ///< rows of a search, the largest: more than anyone goes through
  std::size_t largestCap = 1'000;  ///< rows of the Largest lens
  std::int64_t namesCap = 300;     ///< rows of the Names lens
  std::int64_t namedFilesCap = 10'000;
  bool namesByMetric = false;  ///< names are chosen by the shown metric, instead of by size on disk
  bool oneFileSystem = true;
  unsigned threads = 0;  ///< of a walk; 0 for as many as there are processors, at least 4
};

}  // namespace quon

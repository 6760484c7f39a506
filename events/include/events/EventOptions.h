#pragma once

namespace quon {

class EventClock;

enum class EventBackEnd {
  automatic,  ///< fanotify where the process may and the file system can, else inotify
  inotify,    ///< a watch on every folder
  fanotify,   ///< one mark on the whole file system; takes CAP_SYS_ADMIN and CAP_DAC_READ_SEARCH
};

struct EventOptions {
  EventBackEnd backEnd = EventBackEnd::automatic;
  const EventClock* clock = nullptr;  ///< the system's when null; outlives the service
  bool mayRecord = true;              ///< false leaves the recording to others
};

}  // namespace quon

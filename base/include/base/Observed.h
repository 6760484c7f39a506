#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "base/Notifications.h"

namespace quon {

/// The list of observers that an Observation is part of.
class ObserverList {
 public:
  virtual ~ObserverList() = default;
  virtual void remove(std::uint64_t id) = 0;
};

/// Keeps an observer registered for as long as it lives; it may outlive what it observes. Threads: main only.
class Observation {
 public:
  /// Observes nothing.
  Observation() = default;
  Observation(std::weak_ptr<ObserverList> observers, std::uint64_t observerId)
      : list(std::move(observers)), id(observerId) {}
  Observation(Observation&& other) noexcept : list(std::move(other.list)), id(other.id) {}
  Observation& operator=(Observation&& other) noexcept {
    if (this != &other) {
      stop();
      list = std::move(other.list);
      id = other.id;
    }
    return *this;
  }
  Observation(const Observation&) = delete;
  Observation& operator=(const Observation&) = delete;
  ~Observation() { stop(); }

 private:
  void stop() {
    if (const auto held = std::exchange(list, {}).lock()) held->remove(id);
  }

  std::weak_ptr<ObserverList> list;
  std::uint64_t id = 0;
};

/// A field that notifies its observers when its value really changed, after the operation that changed it has
/// ended: see Notifications. A change that is undone within the operation notifies nobody.
///
/// An observer may add and end observations (its own too), set any field, and destroy the Observed with its
/// Notifications. One that was added during a round is first notified in the next. A value set by an observer
/// takes effect after the round: until then `get` returns what all observers of the round see.
///
/// Threads: main only.
template <typename T>
class Observed {
 public:
  explicit Observed(Notifications& notifications, T initial = T{})
      : shared(std::make_shared<Shared>(notifications, std::move(initial))) {}
  Observed(const Observed&) = delete;
  Observed& operator=(const Observed&) = delete;
  ~Observed() { shared->notifications = nullptr; }

  [[nodiscard]] const T& get() const { return shared->value; }
  void set(T value) {
    if (shared->notifications->isNotifying()) return setLater(std::move(value));
    shared->notifications->perform([this, &value] { shared->assign(std::move(value)); });
  }
  /// The observer is not notified of the present value.
  [[nodiscard]] Observation observe(std::function<void(const T&)> observer) {
    const std::uint64_t id = ++shared->lastId;
    shared->observers.push_back(std::make_shared<Observer>(Observer{id, std::move(observer)}));
    return Observation(shared, id);
  }

 private:
  struct Observer {
    std::uint64_t id;
    std::function<void(const T&)> call;
    bool active = true;
  };

  /// Apart from the Observed, so that a round survives the end of the Observed.
  struct Shared final : ObserverList, Notifications::Source, std::enable_shared_from_this<Shared> {
    Shared(Notifications& owner, T initial) : notifications(&owner), value(std::move(initial)) {}

    void assign(T next) {
      if (value == next) return;
      T before = std::exchange(value, std::move(next));
      if (previous) return;
      previous = std::move(before);
      notifications->changed(this->shared_from_this());
    }
    void notify(const std::function<void(const std::function<void()>&)>& guarded) override {
      const auto before = std::exchange(previous, std::nullopt);
      if (!before || *before == value) return;
      const auto present = observers;
      for (const auto& observer : present) {
        guarded([&] {
          if (observer->active) observer->call(value);
        });
      }
    }
    void remove(std::uint64_t id) override {
      const auto found =
          std::find_if(observers.begin(), observers.end(), [&](const auto& each) { return each->id == id; });
      if (found == observers.end()) return;
      // Kept until the list is whole again: what the observer captured may end further observations.
      const auto removed = std::move(*found);
      observers.erase(found);
      removed->active = false;
    }

    Notifications* notifications;  // none once the Observed has gone
    T value;
    std::optional<T> previous;  // at the beginning of the operation that changes it
    std::vector<std::shared_ptr<Observer>> observers;
    std::uint64_t lastId = 0;
  };

  void setLater(T value) {
    shared->notifications->perform([field = std::weak_ptr<Shared>(shared), value = std::move(value)] {
      const auto alive = field.lock();
      if (alive && alive->notifications != nullptr) alive->assign(value);
    });
  }

  std::shared_ptr<Shared> shared;
};

}  // namespace quon

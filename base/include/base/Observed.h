#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace quon {

/// What Observation needs to know of the list that its observer stands in.
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

/// A field that tells its observers when its value really changes.
///
/// An observer may add and end observations (its own too), set the value again, and destroy the Observed. One
/// that was added during a round is first told in the next. When an observer sets a new value, everyone is
/// told that value and the round of the old one ends: nobody hears an old value after a newer one, and a
/// value that was replaced at once may go unheard. An exception from an observer reaches the setter, and ends
/// the round.
///
/// Threads: main only.
template <typename T>
class Observed {
 public:
  Observed() : shared(std::make_shared<Shared>(T{})) {}
  explicit Observed(T initial) : shared(std::make_shared<Shared>(std::move(initial))) {}
  Observed(const Observed&) = delete;
  Observed& operator=(const Observed&) = delete;

  [[nodiscard]] const T& get() const { return shared->value; }

  void set(T value) {
    if (shared->value == value) return;
    shared->value = std::move(value);
    notify(shared);
  }

  /// The observer is not told the present value. What it is handed is the field itself: after setting again,
  /// it reads the new value.
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
  struct Shared final : ObserverList {
    explicit Shared(T initial) : value(std::move(initial)) {}
    void remove(std::uint64_t id) override {
      const auto found =
          std::find_if(observers.begin(), observers.end(), [&](const auto& each) { return each->id == id; });
      if (found == observers.end()) return;
      // Kept until the list is whole again: what the observer captured may end further observations.
      const auto removed = std::move(*found);
      observers.erase(found);
      removed->active = false;
    }

    T value;
    std::vector<std::shared_ptr<Observer>> observers;
    std::uint64_t lastId = 0;
    std::uint64_t round = 0;
  };

  /// By value: the list, the value and each observer must outlive the calls, which may drop any of them.
  static void notify(std::shared_ptr<Shared> told) {  // NOLINT(performance-unnecessary-value-param)
    const std::uint64_t round = ++told->round;
    const auto present = told->observers;
    for (const auto& observer : present) {
      if (observer->active) observer->call(told->value);
      if (told->round != round) return;
    }
  }

  std::shared_ptr<Shared> shared;
};

}  // namespace quon

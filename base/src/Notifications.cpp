#include "base/Notifications.h"

#include <utility>

#include "base/MainThread.h"

namespace quon {

struct Notifications::State {
  void run(const std::function<void()>& operation);
  void runOutermost(const std::function<void()>& operation);
  void runRound();
  void guarded(const std::function<void()>& call);

  std::function<void()> derive;
  bool operating = false;
  bool notifying = false;
  bool ended = false;  // the owner has gone
  std::vector<std::shared_ptr<Source>> changed;
  std::vector<std::function<void()>> announced;
  std::deque<std::function<void()>> waiting;  // operations that observers asked for
  std::exception_ptr failure;                 // the first
};

Notifications::Notifications() : state(std::make_shared<State>()) {}

Notifications::~Notifications() {
  end();
}

void Notifications::end() {
  state->ended = true;
}

void Notifications::perform(std::function<void()> operation) {
  if (state->notifying) return state->waiting.push_back(std::move(operation));
  if (state->operating) return operation();
  const std::shared_ptr<State> alive = state;
  alive->run(operation);
}

void Notifications::setDerivation(std::function<void()> derive) {
  state->derive = std::move(derive);
}

bool Notifications::isNotifying() const {
  return state->notifying;
}

void Notifications::announce(std::function<void()> callback) {
  perform([to = state.get(), callback = std::move(callback)] { to->announced.push_back(callback); });
}

void Notifications::changed(std::shared_ptr<Source> source) {
  state->changed.push_back(std::move(source));
}

void Notifications::State::run(const std::function<void()>& operation) {
  const MainThreadWork mainThreadWork;
  runOutermost(operation);
  for (;;) {
    if (ended) break;
    if (!changed.empty() || !announced.empty()) {
      runRound();
    } else if (!waiting.empty()) {
      const std::function<void()> next = std::move(waiting.front());
      waiting.pop_front();
      runOutermost(next);
    } else {
      break;
    }
  }
  if (const std::exception_ptr first = std::exchange(failure, nullptr)) std::rethrow_exception(first);
}

void Notifications::State::runOutermost(const std::function<void()>& operation) {
  operating = true;
  guarded(operation);
  if (derive && !ended) guarded(derive);
  operating = false;
}

void Notifications::State::runRound() {
  notifying = true;
  const auto sources = std::exchange(changed, {});
  const auto callbacks = std::exchange(announced, {});
  const std::function<void(const std::function<void()>&)> caller = [this](const std::function<void()>& call) {
    if (!ended) guarded(call);
  };
  for (const auto& source : sources) source->notify(caller);
  for (const auto& callback : callbacks) caller(callback);
  notifying = false;
}

void Notifications::State::guarded(const std::function<void()>& call) {
  try {
    call();
  } catch (...) {
    if (!failure) failure = std::current_exception();
  }
}

}  // namespace quon

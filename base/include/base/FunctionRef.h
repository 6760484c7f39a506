#pragma once

#include <concepts>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

namespace quon {

template <typename Signature>
class FunctionRef;

/// A reference to a callable: two pointers, nothing owned, nothing allocated. For parameters only, where a
/// lambda written in the call lives long enough; never stored. std::function_ref comes with C++26.
///
/// Threads: the callable's own.
template <typename Result, typename... Arguments>
class FunctionRef<Result(Arguments...)> {
 public:
  template <typename Callable>
  requires(!std::same_as<std::remove_cvref_t<Callable>, FunctionRef> &&
           std::is_object_v<std::remove_reference_t<Callable>> &&
           std::is_invocable_r_v<Result, Callable&, Arguments...>)
      // NOLINTNEXTLINE(bugprone-forwarding-reference-overload): the constraint excludes copies
      FunctionRef(Callable&& callable)
      : object(const_cast<void*>(static_cast<const void*>(std::addressof(callable)))),
        call([](void* called, Arguments... arguments) -> Result {
          return std::invoke(*static_cast<std::remove_reference_t<Callable>*>(called),
                             std::forward<Arguments>(arguments)...);
        }) {}

  Result operator()(Arguments... arguments) const {
    return call(object, std::forward<Arguments>(arguments)...);
  }

 private:
  void* object;
  Result (*call)(void*, Arguments...);
};

}  // namespace quon

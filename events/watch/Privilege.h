#pragma once

namespace quon {

/// The two capabilities of the thread that fanotify and file handles take. They are kept at hand, but not in
/// force: everything else is done with the rights that the user has without them, so that nothing is seen
/// that the user may not list. Threads: those that need it, each for itself; new threads begin as the one
/// that starts them.
class Privilege {
 public:
  /// True when the thread has both at hand.
  [[nodiscard]] static bool isAtHand();
  /// Takes them out of force for this thread, unless the user is root, who may list everything.
  static void lower();

  /// In force for a scope.
  Privilege();
  ~Privilege();
  Privilege(const Privilege&) = delete;
  Privilege& operator=(const Privilege&) = delete;
};

}  // namespace quon

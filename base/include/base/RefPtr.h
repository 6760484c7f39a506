#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace quon {

/// A base for objects that count their own references: one word, no control block. A new object has no
/// reference; the first RefPtr takes it, and the last one calls `Derived::destroy(object)`, which may free
/// more than that one object without recursion. Any thread may copy and drop references.
template <typename Derived>
class RefCounted {
 public:
  RefCounted(const RefCounted&) = delete;
  RefCounted& operator=(const RefCounted&) = delete;

  void retain() const { references.fetch_add(1, std::memory_order_relaxed); }
  /// Drops a reference; true when it was the last and the caller must free the object.
  [[nodiscard]] bool releaseIsLast() const { return references.fetch_sub(1, std::memory_order_acq_rel) == 1; }

 protected:
  RefCounted() = default;
  ~RefCounted() = default;

 private:
  mutable std::atomic<std::uint32_t> references{0};
};

/// Shared ownership of a RefCounted object.
template <typename T>
class RefPtr {
 public:
  RefPtr() = default;
  RefPtr(std::nullptr_t) {}  // NOLINT(google-explicit-constructor): as the standard's pointers do
  explicit RefPtr(T* referenced) : object(referenced) {
    if (object != nullptr) object->retain();
  }
  RefPtr(const RefPtr& other) : RefPtr(other.object) {}
  RefPtr(RefPtr&& other) noexcept : object(std::exchange(other.object, nullptr)) {}
  RefPtr& operator=(RefPtr other) noexcept {
    std::swap(object, other.object);
    return *this;
  }
  ~RefPtr() {
    if (object != nullptr && object->releaseIsLast()) T::destroy(object);
  }

  /// Gives the reference away without dropping it.
  [[nodiscard]] T* leak() { return std::exchange(object, nullptr); }
  [[nodiscard]] T* get() const { return object; }
  T* operator->() const { return object; }
  T& operator*() const { return *object; }
  explicit operator bool() const { return object != nullptr; }
  friend bool operator==(const RefPtr& a, const RefPtr& b) { return a.object == b.object; }
  friend bool operator==(const RefPtr& a, const T* b) { return a.object == b; }

 private:
  T* object = nullptr;
};

}  // namespace quon

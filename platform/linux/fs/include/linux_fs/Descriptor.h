#pragma once

#include <utility>

namespace quon {

/// A file descriptor that is closed once.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int opened) : number(opened) {}
  Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number, other.number);
    return *this;
  }
  ~Descriptor();

  [[nodiscard]] int get() const { return number; }
  [[nodiscard]] bool isOpen() const { return number >= 0; }

 private:
  int number = -1;
};

}  // namespace quon

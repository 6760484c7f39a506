#pragma once

#include <string>
#include <string_view>
#include <unordered_map>

namespace quon {

/// How a text is set, in the one family that the map uses.
struct TextStyle {
  double size = 0;         ///< in points
  int weight = 400;        ///< as in CSS
  bool isTabular = false;  ///< figures of one width, for columns

  friend bool operator==(const TextStyle&, const TextStyle&) = default;
};

/// Whoever draws texts measures them too, with the same features. Threads: as its user.
class TextMeasure {
 public:
  virtual ~TextMeasure() = default;
  /// In points, of one line.
  [[nodiscard]] virtual double width(const std::string& utf8, const TextStyle& style) = 0;
};

/// Measures each text once: labels try several places, and most names come back with the next layout.
class TextWidths {
 public:
  explicit TextWidths(TextMeasure& exact) : measure(exact) {}

  [[nodiscard]] double of(std::string_view utf8, const TextStyle& style);

 private:
  TextMeasure& measure;
  std::unordered_map<std::string, double> known;  // by style and text
};

}  // namespace quon

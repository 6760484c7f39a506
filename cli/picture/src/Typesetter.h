#pragma once

#include <memory>
#include <string>

#include "map/TextWidths.h"

// NOLINTBEGIN(bugprone-reserved-identifier): the libraries' own names
using cairo_t = struct _cairo;
using PangoAttrList = struct _PangoAttrList;
using PangoContext = struct _PangoContext;
using PangoLayout = struct _PangoLayout;
// NOLINTEND(bugprone-reserved-identifier)

namespace quon {

/// Measures and draws lines of text in the system's sans serif, or in Inter where that is installed. Text of
/// any script and direction; what is no text must have been replaced. Threads: confined.
class Typesetter final : public TextMeasure {
 public:
  /// Fonts that the system has no cache of are read and remembered in a cache in this folder, and nowhere
  /// else.
  explicit Typesetter(const std::string& fontCache);
  ~Typesetter() override;
  Typesetter(const Typesetter&) = delete;
  Typesetter& operator=(const Typesetter&) = delete;

  [[nodiscard]] double width(const std::string& utf8, const TextStyle& style) override;
  /// With its left edge and the middle of its capital letters at the point.
  void draw(cairo_t* cairo, const std::string& utf8, const TextStyle& style, double left, double middle);

 private:
  struct Release {
    void operator()(void* object) const;
  };
  struct Unref {
    void operator()(PangoAttrList* list) const;
  };
  void set(const std::string& utf8, const TextStyle& style);

  std::unique_ptr<PangoContext, Release> context;
  std::unique_ptr<PangoLayout, Release> layout;
  std::unique_ptr<PangoAttrList, Unref> tabular;
};

}  // namespace quon

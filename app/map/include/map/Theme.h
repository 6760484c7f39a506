#pragma once

#include <array>

#include "map/Colour.h"
#include "scan/MapSlots.h"

namespace quon {

/// The colours of one scheme. Threads: any.
struct Theme {
  bool isDark = false;

  Colour ground;  ///< map, lists, tables
  Colour panel;   ///< rail, selection bar
  Colour raise;   ///< menus, tooltips, sheets
  Colour line;    ///< hairlines between regions
  Colour line2;   ///< edges of fields, buttons, floating surfaces
  Colour ink;     ///< text
  Colour ink2;    ///< secondary text, icons
  Colour ink3;    ///< units, captions
  Colour hover;
  Colour press;
  Colour soft;   ///< what is selected
  Colour soft2;  ///< what is selected, and hovered or pressed
  Colour accent;
  Colour accentInk;  ///< text on the accent
  Colour danger;
  Colour warn;
  Colour good;
  Colour track;  ///< ground of bars
  Colour rest;   ///< "smaller items", and files of no kind
  Colour mid;    ///< neutral bars, mixed with the ground
  Colour label;  ///< text on the map's fills
  Colour toast;
  Colour toastInk;
  Colour scrim;                         ///< under sheets; not opaque
  std::array<Colour, kMapSlots> slots;  ///< neighbours differ for every kind of colour vision

  [[nodiscard]] static const Theme& light();
  [[nodiscard]] static const Theme& dark();
  [[nodiscard]] static const Theme& of(bool darkScheme) { return darkScheme ? dark() : light(); }

  /// The fill of a mark. Depth, from 1, lets it fade towards the ground, so that labels only gain contrast.
  [[nodiscard]] Colour fill(int slotIndex, int depth, bool isRest) const;
  /// What stands for the marks too small to be drawn, given the colour of the first ring.
  [[nodiscard]] Colour dustFill(Colour firstRing) const;
};

}  // namespace quon

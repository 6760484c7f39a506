#include "Typesetter.h"

#include <cmath>
#include <fmt/format.h>
#include <fontconfig/fontconfig.h>
#include <pango/pangocairo.h>
#include <stdexcept>

namespace quon {
namespace {

constexpr const char* kFamilies = "Inter,sans-serif";
/// Half the height of a capital letter to the size of the font, about, in every sans serif.
constexpr double kHalfCapital = 0.36;

using Configuration = std::unique_ptr<FcConfig, decltype(&FcConfigDestroy)>;

/// The system's, but with a folder of our own as the first to write a cache to: the others lie in the user's
/// home and in the system, which quon does not write to.
Configuration fontsWithCacheIn(const std::string& folder) {
  const std::unique_ptr<char, decltype(&g_free)> cache(g_markup_escape_text(folder.c_str(), -1), &g_free);
  // A name without a path is looked up where the system keeps its configuration.
  const std::string text = fmt::format(
      "<fontconfig><cachedir>{}</cachedir><include ignore_missing=\"yes\">fonts.conf</include></fontconfig>",
      cache.get());
  Configuration fonts(FcConfigCreate(), &FcConfigDestroy);
  const auto* bytes = reinterpret_cast<const FcChar8*>(text.c_str());
  const bool isRead = FcConfigParseAndLoadFromMemory(fonts.get(), bytes, FcFalse) != FcFalse &&
                      FcConfigBuildFonts(fonts.get()) != FcFalse;
  if (!isRead) throw std::runtime_error("cannot draw the picture: the configuration of fonts cannot be read");
  return fonts;
}

}  // namespace

void Typesetter::Release::operator()(void* object) const {
  g_object_unref(object);
}

/// Glyphs are placed and drawn where the outlines lie, at any scale and angle: no hinting.
Typesetter::Typesetter(const std::string& fontCache) {
  // Before Pango has the library find a configuration by itself.
  FcConfigSetCurrent(fontsWithCacheIn(fontCache).get());
  const std::unique_ptr<PangoFontMap, Release> fonts(
      pango_cairo_font_map_new_for_font_type(CAIRO_FONT_TYPE_FT));
  context.reset(pango_font_map_create_context(fonts.get()));
  pango_context_set_round_glyph_positions(context.get(), FALSE);
  const std::unique_ptr<cairo_font_options_t, decltype(&cairo_font_options_destroy)> options(
      cairo_font_options_create(), &cairo_font_options_destroy);
  cairo_font_options_set_hint_style(options.get(), CAIRO_HINT_STYLE_NONE);
  cairo_font_options_set_hint_metrics(options.get(), CAIRO_HINT_METRICS_OFF);
  cairo_font_options_set_antialias(options.get(), CAIRO_ANTIALIAS_GRAY);
  pango_cairo_context_set_font_options(context.get(), options.get());
  layout.reset(pango_layout_new(context.get()));
  pango_layout_set_single_paragraph_mode(layout.get(), TRUE);
  tabular.reset(pango_attr_list_new());
  pango_attr_list_insert(tabular.get(), pango_attr_font_features_new("tnum=1"));
}

Typesetter::~Typesetter() = default;

void Typesetter::Unref::operator()(PangoAttrList* list) const {
  pango_attr_list_unref(list);
}

void Typesetter::set(const std::string& utf8, const TextStyle& style) {
  const std::unique_ptr<PangoFontDescription, decltype(&pango_font_description_free)> font(
      pango_font_description_new(), &pango_font_description_free);
  pango_font_description_set_family_static(font.get(), kFamilies);
  pango_font_description_set_weight(font.get(), static_cast<PangoWeight>(style.weight));
  pango_font_description_set_absolute_size(font.get(), std::round(style.size * PANGO_SCALE));
  pango_layout_set_font_description(layout.get(), font.get());
  pango_layout_set_text(layout.get(), utf8.data(), static_cast<int>(utf8.size()));
  pango_layout_set_attributes(layout.get(), style.isTabular ? tabular.get() : nullptr);
}

double Typesetter::width(const std::string& utf8, const TextStyle& style) {
  set(utf8, style);
  PangoRectangle extents{};
  pango_layout_get_extents(layout.get(), nullptr, &extents);
  return static_cast<double>(extents.width) / PANGO_SCALE;
}

void Typesetter::draw(cairo_t* cairo, const std::string& utf8, const TextStyle& style, double left,
                      double middle) {
  set(utf8, style);
  cairo_move_to(cairo, left, middle + kHalfCapital * style.size);
  pango_cairo_show_layout_line(cairo, pango_layout_get_line_readonly(layout.get(), 0));
}

}  // namespace quon

#include <cairo-svg.h>
#include <cairo.h>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <new>
#include <stdexcept>

#include "Canvas.h"
#include "Page.h"
#include "picture/FolderPicture.h"

namespace quon {
namespace {

using Surface = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;
using Context = std::unique_ptr<cairo_t, decltype(&cairo_destroy)>;

/// No exception passes through the library, which is C.
cairo_status_t append(void* bytes, const unsigned char* data, unsigned length) noexcept {
  try {
    static_cast<std::string*>(bytes)->append(reinterpret_cast<const char*>(data), length);
    return CAIRO_STATUS_SUCCESS;
  } catch (const std::bad_alloc&) {
    return CAIRO_STATUS_NO_MEMORY;
  }
}

void require(cairo_status_t status) {
  if (status == CAIRO_STATUS_SUCCESS) return;
  throw std::runtime_error(std::string("cannot draw the picture: ") + cairo_status_to_string(status));
}

Surface surfaceFor(const FolderPicture& picture, PictureFormat format, std::string& bytes) {
  const auto pixels = [&](double points) { return static_cast<int>(std::lround(points * picture.scale)); };
  cairo_surface_t* const made =
      format == PictureFormat::svg
          ? cairo_svg_surface_create_for_stream(append, &bytes, picture.size.w, picture.size.h)
          : cairo_image_surface_create(CAIRO_FORMAT_RGB24, pixels(picture.size.w), pixels(picture.size.h));
  Surface surface(made, &cairo_surface_destroy);
  require(cairo_surface_status(surface.get()));
  if (format == PictureFormat::svg) cairo_svg_surface_set_document_unit(surface.get(), CAIRO_SVG_UNIT_PX);
  return surface;
}

}  // namespace

DrawnPicture drawn(const FolderPicture& picture, PictureFormat format) {
  DrawnPicture result;
  const Surface surface = surfaceFor(picture, format, result.bytes);
  {
    const Context context(cairo_create(surface.get()), &cairo_destroy);
    cairo_scale(context.get(), picture.scale, picture.scale);
    Typesetter type(picture.fontCache);
    result.marks = drawPage(Canvas(context.get(), type, picture.scale), picture);
    require(cairo_status(context.get()));
  }
  if (format == PictureFormat::png) {
    require(cairo_surface_write_to_png_stream(surface.get(), append, &result.bytes));
  }
  cairo_surface_finish(surface.get());
  require(cairo_surface_status(surface.get()));
  return result;
}

}  // namespace quon

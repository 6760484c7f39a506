#pragma once

#include <cstddef>

#include "Canvas.h"
#include "picture/FolderPicture.h"

namespace quon {

/// Draws all of it; how many marks the map has.
std::size_t drawPage(const Canvas& canvas, const FolderPicture& picture);

}  // namespace quon

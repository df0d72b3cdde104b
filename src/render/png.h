#pragma once
// PNG output of the software canvas (libpng), into memory, so the file is
// written through the one all-or-nothing writer.
#include "render/raster_canvas.h"

#include <cstdint>
#include <vector>

namespace zpe {

// The picture as a PNG file's bytes (8-bit RGB). Throws std::runtime_error
// when libpng fails.
[[nodiscard]] std::vector<uint8_t> encodePng(const RasterCanvas& canvas);

}  // namespace zpe

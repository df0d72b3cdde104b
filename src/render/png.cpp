#include "render/png.h"

#include <png.h>
#include <stdexcept>

namespace zpe {

namespace {
void append(png_structp png, png_bytep data, png_size_t length) {
    auto* out = static_cast<std::vector<uint8_t>*>(png_get_io_ptr(png));
    out->insert(out->end(), data, data + length);
}
void noFlush(png_structp) {}
}  // namespace

std::vector<uint8_t> encodePng(const RasterCanvas& canvas) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    if (!png) throw std::runtime_error("cannot start the PNG encoder");
    png_infop info = png_create_info_struct(png);
    if (!info) {
        png_destroy_write_struct(&png, nullptr);
        throw std::runtime_error("cannot start the PNG encoder");
    }
    std::vector<uint8_t> out;
    std::vector<png_bytep> rows(static_cast<size_t>(canvas.height()));
    // libpng reports errors by a long jump back here; nothing below owns resources but `png`.
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        throw std::runtime_error("cannot encode the picture as PNG");
    }
    png_set_write_fn(png, &out, append, noFlush);
    png_set_IHDR(png, info, static_cast<png_uint_32>(canvas.width()), static_cast<png_uint_32>(canvas.height()), 8,
                 PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    const auto stride = static_cast<size_t>(canvas.width()) * 3;
    for (size_t y = 0; y < rows.size(); ++y) rows[y] = const_cast<png_bytep>(canvas.rgb().data() + y * stride);
    png_set_rows(png, info, rows.data());
    png_write_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    png_destroy_write_struct(&png, &info);
    return out;
}

}  // namespace zpe

#include "ui/gif_writer.h"

#include <gif_lib.h>

#include <stdexcept>
#include <string>

namespace zpe {

namespace {

int collect(GifFileType* gif, const GifByteType* bytes, int length) {
    auto* out = static_cast<std::vector<uint8_t>*>(gif->UserData);
    out->insert(out->end(), bytes, bytes + length);
    return length;
}

}  // namespace

std::vector<uint8_t> gifAnimation(const std::vector<QImage>& frames, int delay) {
    if (frames.empty()) throw std::runtime_error("an animation needs at least one frame");
    std::vector<uint8_t> out;
    int error = 0;
    GifFileType* gif = EGifOpen(&out, collect, &error);
    if (!gif) throw std::runtime_error(std::string("cannot start the GIF: ") + GifErrorString(error));
    auto fail = [&](const char* step) {
        const int code = gif->Error;
        EGifCloseFile(gif, &error);
        throw std::runtime_error(std::string("cannot write the GIF (") + step + "): " + GifErrorString(code));
    };
    EGifSetGifVersion(gif, true);
    const int width = frames.front().width(), height = frames.front().height();
    if (EGifPutScreenDesc(gif, width, height, 8, 0, nullptr) == GIF_ERROR) fail("screen");
    // Loop for ever (the application extension browsers read).
    const GifByteType netscape[] = {'N', 'E', 'T', 'S', 'C', 'A', 'P', 'E', '2', '.', '0'}, loop[] = {1, 0, 0};
    if (EGifPutExtensionLeader(gif, APPLICATION_EXT_FUNC_CODE) == GIF_ERROR ||
        EGifPutExtensionBlock(gif, sizeof netscape, netscape) == GIF_ERROR || EGifPutExtensionBlock(gif, sizeof loop, loop) == GIF_ERROR ||
        EGifPutExtensionTrailer(gif) == GIF_ERROR)
        fail("loop");
    for (const QImage& frame : frames) {
        const QImage indexed = frame.scaled(width, height).convertToFormat(QImage::Format_Indexed8, Qt::ThresholdDither);
        GifColorType colors[256] = {};
        const QList<QRgb> table = indexed.colorTable();
        for (int i = 0; i < table.size() && i < 256; ++i)
            colors[i] = {static_cast<GifByteType>(qRed(table[i])), static_cast<GifByteType>(qGreen(table[i])),
                         static_cast<GifByteType>(qBlue(table[i]))};
        ColorMapObject* map = GifMakeMapObject(256, colors);
        GraphicsControlBlock control{};
        control.DisposalMode = DISPOSAL_UNSPECIFIED;
        control.DelayTime = delay;
        control.TransparentColor = NO_TRANSPARENT_COLOR;
        GifByteType extension[4];
        const size_t length = EGifGCBToExtension(&control, extension);
        bool ok = map && EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE, static_cast<int>(length), extension) != GIF_ERROR &&
                  EGifPutImageDesc(gif, 0, 0, width, height, false, map) != GIF_ERROR;
        for (int y = 0; ok && y < height; ++y)
            ok = EGifPutLine(gif, const_cast<GifPixelType*>(indexed.constScanLine(y)), width) != GIF_ERROR;
        GifFreeMapObject(map);
        if (!ok) fail("frame");
    }
    if (EGifCloseFile(gif, &error) == GIF_ERROR) throw std::runtime_error(std::string("cannot finish the GIF: ") + GifErrorString(error));
    return out;
}

}  // namespace zpe

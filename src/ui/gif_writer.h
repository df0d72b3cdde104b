#pragma once
// Animated GIF from the diagram's frames, through giflib: each frame is
// reduced to its own palette of at most 256 colours and shown for `delay`
// hundredths of a second; the animation loops.
#include <QImage>
#include <cstdint>
#include <vector>

namespace zpe {

// Throws std::runtime_error when giflib refuses (the message says which step).
[[nodiscard]] std::vector<uint8_t> gifAnimation(const std::vector<QImage>& frames, int delay);

}  // namespace zpe

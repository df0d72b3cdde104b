#pragma once
// The bytes of a whole image, shared and never changed once made. A model,
// its copies (undo steps, the image as opened beside the edited model) and
// the read-back of a planned write hold the same bytes instead of a copy of
// some hundreds of KiB each. A change builds new bytes (in an Image) and
// replaces the whole; nothing writes into bytes another holder reads.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace zpe {

class ImageBytes {
public:
    ImageBytes() = default;
    // Takes the bytes over (a vector given by value: pass one with std::move to avoid the copy).
    ImageBytes(std::vector<uint8_t> bytes)  // NOLINT: a vector is an image's bytes wherever they are asked for
        : bytes_(std::make_shared<const std::vector<uint8_t>>(std::move(bytes))) {}

    [[nodiscard]] const std::vector<uint8_t>& vector() const { return bytes_ ? *bytes_ : none(); }
    operator const std::vector<uint8_t>&() const { return vector(); }  // NOLINT: read wherever bytes are read

    [[nodiscard]] size_t size() const { return vector().size(); }
    [[nodiscard]] bool empty() const { return vector().empty(); }
    [[nodiscard]] const uint8_t* data() const { return vector().data(); }
    [[nodiscard]] std::vector<uint8_t>::const_iterator begin() const { return vector().begin(); }
    [[nodiscard]] std::vector<uint8_t>::const_iterator end() const { return vector().end(); }
    uint8_t operator[](size_t i) const { return vector()[i]; }

    // The same bytes, whether shared or equal.
    friend bool operator==(const ImageBytes& a, const ImageBytes& b) { return a.bytes_ == b.bytes_ || a.vector() == b.vector(); }
    friend bool operator==(const ImageBytes& a, const std::vector<uint8_t>& b) { return a.vector() == b; }

private:
    static const std::vector<uint8_t>& none() {
        static const std::vector<uint8_t> empty;
        return empty;
    }
    std::shared_ptr<const std::vector<uint8_t>> bytes_;
};

}  // namespace zpe

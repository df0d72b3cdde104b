#include "model/image.h"
#include "model/file_io.h"
#include "model/rom_error.h"
#include "support/image_builder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace zpe {
namespace {

Image imageOf(std::vector<uint8_t> bytes) { return Image("mem.nes", std::move(bytes)); }

TEST(ImagePrimitives, WordsReadUnsignedLittleEndian) {
    Image img = imageOf({0xFF, 0xFF, 0x34, 0x12});
    EXPECT_EQ(img.readWord(), 65535);
    EXPECT_EQ(img.readWord(), 0x1234);
    EXPECT_EQ(img.position(), 4);
}

TEST(ImagePrimitives, WritesClampIntoTheStorableRange) {
    struct Case {
        int32_t value;
        std::vector<uint8_t> word;
    };
    for (const Case& c : {Case{-5, {0x00, 0x00}}, Case{0xBEEF, {0xEF, 0xBE}}, Case{0x12345, {0xFF, 0xFF}}}) {
        Image img = imageOf({1, 2});
        img.writeWord(c.value);
        EXPECT_EQ(img.bytes(), c.word) << c.value;
    }
    Image img = imageOf({1, 2});
    img.writeByte(300);
    img.writeByte(-1);
    EXPECT_EQ(img.bytes(), (std::vector<uint8_t>{0xFF, 0x00}));
}

TEST(ImagePrimitives, FailuresAreRomErrorsNamingFileAndOffset) {
    Image img = imageOf({1, 2, 3});
    EXPECT_THROW(img.seekOffset(offsetOfAddress(0x1000)), RomError);
    img.seekOffset(3);
    try {
        img.readByte();
        FAIL() << "read past the end succeeded";
    } catch (const RomError& e) {
        EXPECT_NE(std::string(e.what()).find("mem.nes"), std::string::npos);
        EXPECT_NE(std::string(e.what()).find("0x3"), std::string::npos);
    }
    img.seekOffset(2);
    EXPECT_THROW(img.readWord(), RomError);
    EXPECT_EQ(img.position(), 2) << "a failed read must not move the position";
}


// An image built from shared bytes (a model's image as opened, shared by the
// model's copies and the undo steps) reads them where they are; its writes
// make bytes of its own, and whoever else holds the shared ones still reads
// them unchanged.
TEST(ImagePrimitives, WritingOverSharedBytesLeavesThemAsTheyWere) {
    const ImageBytes opened(std::vector<uint8_t>{1, 2, 3, 4});
    const ImageBytes heldByACopy = opened;
    Image img("mem.nes", opened);
    img.seekOffset(2);
    EXPECT_EQ(img.readByte(), 3);
    img.seekOffset(1);
    img.writeWord(0xBEEF);
    img.writeByte(9);  // past the end: the image grows, the shared bytes do not
    EXPECT_EQ(img.bytes(), (std::vector<uint8_t>{1, 0xEF, 0xBE, 9}));
    img.writeByte(7);
    EXPECT_EQ(img.bytes(), (std::vector<uint8_t>{1, 0xEF, 0xBE, 9, 7}));
    EXPECT_EQ(opened.vector(), (std::vector<uint8_t>{1, 2, 3, 4}));
    EXPECT_EQ(heldByACopy, opened);

    // Handed over as shared bytes, an image read but never written gives the same bytes back, not a copy.
    Image readOnly("mem.nes", opened);
    const ImageBytes back = readOnly.takeShared();
    EXPECT_EQ(back.data(), opened.data());
    EXPECT_EQ(readOnly.size(), 0);
    // Handed over as a vector, it is a copy the caller may change.
    Image again("mem.nes", opened);
    std::vector<uint8_t> mine = again.takeBytes();
    mine[0] = 0x55;
    EXPECT_EQ(opened[0], 1);
}
TEST(FileReplacement, ReplacesContentsKeepingPermissions) {
    test::TempFile file;
    file.write({1, 2, 3});
    ::chmod(file.path().c_str(), 0640);
    replaceFileContents(file.path(), {4, 5});
    EXPECT_EQ(file.read(), (std::vector<uint8_t>{4, 5}));
    struct stat st {};
    ASSERT_EQ(::stat(file.path().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0640u);
}

TEST(FileReplacement, RefusesAReadOnlyFileEvenForRoot) {
    // Root passes access(W_OK); the refusal must not depend on who runs the editor.
    test::TempFile file;
    file.write({1, 2, 3});
    ::chmod(file.path().c_str(), 0444);
    EXPECT_THROW(replaceFileContents(file.path(), {9}), RomError);
    EXPECT_EQ(file.read(), (std::vector<uint8_t>{1, 2, 3}));
}

}  // namespace
}  // namespace zpe

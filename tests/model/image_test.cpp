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

#include "model/hex.h"
#include "model/rom_error.h"
#include "model/text_file.h"
#include "support/image_builder.h"

#include <gtest/gtest.h>

namespace zpe {
namespace {

using Lines = std::vector<std::string>;

TEST(FormsFile, OneNamePerLineWhateverTheLineEnds) {
    EXPECT_EQ(splitLines("A\r\n\r\nC\r\n"), (Lines{"A", "", "C"})) << "an empty line is an empty name";
    EXPECT_EQ(splitLines("A\nB"), (Lines{"A", "B"})) << "a last line without line end counts";
    EXPECT_EQ(splitLines("A\n"), (Lines{"A"})) << "a final line end adds no empty name";
    EXPECT_EQ(splitLines(""), Lines{});
    EXPECT_EQ(splitLines(" PRO T \r\n"), (Lines{" PRO T "})) << "names are not trimmed";
}

TEST(FormsFile, ReadsTheFileOrFailsNamingIt) {
    test::TempDir dir;
    dir.writeText("forms.txt", "KICKOFF\r\nPUNT");
    EXPECT_EQ(readFormNames(dir.file("forms.txt")), (Lines{"KICKOFF", "PUNT"}));
    try {
        readFormNames(dir.file("missing.txt"));
        FAIL();
    } catch (const RomError& e) {
        EXPECT_NE(std::string(e.what()).find("missing.txt"), std::string::npos);
    }
}

Lines fields(const std::string& text) {
    FieldReader r(text);
    Lines out;
    while (r.hasField()) out.push_back(r.next());
    return out;
}

TEST(FieldReader, FreeFormatFields) {
    EXPECT_EQ(fields("C7, Branch\r\n30,Block\r\n"), (Lines{"C7", "Branch", "30", "Block"}));
    EXPECT_EQ(fields("C7,\"Jump, far\"\nX"), (Lines{"C7", "Jump, far", "X"})) << "quoted fields keep commas";
    EXPECT_EQ(fields("a ,  b  \n"), (Lines{"a", "b"})) << "blanks around unquoted fields go";
    EXPECT_EQ(fields("\"x\" junk,y"), (Lines{"x", "y"})) << "text after a closing quote is dropped";
    EXPECT_EQ(fields("a,\r\nb"), (Lines{"a", "", "b"})) << "a comma announces a field, even an empty one";
    EXPECT_EQ(fields("a,b\r\n\r\n  \r\nc,d"), (Lines{"a", "b", "c", "d"})) << "blank lines hold no field";
    EXPECT_EQ(fields("a\rb"), (Lines{"a", "b"}));
    EXPECT_EQ(fields("\"unterminated"), (Lines{"unterminated"}));
    EXPECT_EQ(fields(""), Lines{});
}

}  // namespace
}  // namespace zpe

#include "support/image_builder.h"
#include "support/process.h"

#include <QImage>
#include <gtest/gtest.h>

namespace zpe {
namespace {

using test::ImageBuilder;
using test::runProcess;
using test::TempDir;

struct RenderFixture {
    TempDir data;
    test::TempFile image = ImageBuilder()
                               .bytesAt(0xA000, {0xD0, 0xF0, 0x12, 0xEE})
                               .bytesAt(0xA010, {0xD7, 0x00, 0x30, 0xE4})
                               .formation(4, {0xA000, 0xA000})
                               .play(0, {0xA010})
                               .write();
    RenderFixture() { data.writeText("forms.txt", test::formsText()); }
    test::ProcessResult zpe(std::vector<std::string> args) const {
        args.insert(args.begin(), {"--data", data.path()});
        return runProcess(ZPE_BIN, args);
    }
};

TEST(CliRender, SlotAtTheWindowsPictureSize) {
    RenderFixture f;
    TempDir out;
    const auto r = f.zpe({"render", f.image.path(), "--slot", "0", "--out", out.file("slot.png")});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    QImage png(QString::fromStdString(out.file("slot.png")));
    EXPECT_EQ(png.size(), QSize(329, 217));
    EXPECT_EQ(png.pixel(104, 0), qRgb(255, 255, 255)) << "the line of scrimmage";
    EXPECT_EQ(png.pixel(90, 108), qRgb(255, 255, 0)) << "the running back, placed over the quarterback";
    EXPECT_EQ(png.pixel(130, 108), qRgb(255, 0, 0)) << "his play path";
}

TEST(CliRender, FormationListsMissingPlayersAndTakesASize) {
    RenderFixture f;
    TempDir out;
    const auto r = f.zpe({"render", f.image.path(), "--formation", "4", "--out", out.file("f.png"), "--size", "200x300"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.err.find("Unable to find the sequence for WR1\n"), std::string::npos);
    EXPECT_EQ(r.err.find("for QB"), std::string::npos);
    EXPECT_EQ(r.err.find("for RB\n"), std::string::npos);
    EXPECT_NE(r.err.find("Unable to find the sequence for RT\n"), std::string::npos);
    EXPECT_EQ(QImage(QString::fromStdString(out.file("f.png"))).size(), QSize(200, 300));
}

TEST(CliRender, UsageErrors) {
    RenderFixture f;
    TempDir out;
    for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
             {"render", f.image.path(), "--out", out.file("x.png")},
             {"render", f.image.path(), "--slot", "1", "--formation", "1", "--out", out.file("x.png")},
             {"render", f.image.path(), "--slot", "64", "--out", out.file("x.png")},
             {"render", f.image.path(), "--formation", "22", "--out", out.file("x.png")},
             {"render", f.image.path(), "--slot", "0", "--out", out.file("x.png"), "--size", "0x5"},
             {"render", f.image.path(), "--slot", "0"}}) {
        const auto r = f.zpe(args);
        EXPECT_EQ(r.exitCode, 2) << r.err;
    }
    const auto r = f.zpe({"render", f.image.path(), "--slot", "0", "--out", "/nonexistent/x.png"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("/nonexistent/x.png"), std::string::npos);
}

}  // namespace
}  // namespace zpe

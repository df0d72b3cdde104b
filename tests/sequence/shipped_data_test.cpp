// The data files shipped beside the program: cmd.txt, forms.txt and every
// command sheet parse cleanly and describe what the commands really hold.
#include "model/tables.h"
#include "model/text_file.h"
#include "playbook/open_rom.h"
#include "sequence/command_sheet.h"

#include <filesystem>
#include <map>
#include <set>
#include <gtest/gtest.h>

namespace zpe {
namespace {

const std::string kData = ZPE_SOURCE_DATA_DIR;

// The most data values a command can hold as the editor decodes it.
int maxDataCount(int code) {
    if (code < 0xC0) return (code & 0xF0) == 0x90 ? 16 : cmdLenByNibble[static_cast<size_t>(code >> 4)];
    if (code == 0xC4 || code == 0xC5 || code == 0xFE) return 1;
    if (code == 0xFF) return 2;
    const int length = cmdLenHigh[static_cast<size_t>(code - 0xC0)];
    return length == 0 ? 0 : length - 1;
}

std::vector<int> shownCodes() {
    std::vector<int> codes;
    for (int c = 0; c <= 0xB0; c += 0x10) codes.push_back(c);
    for (int c = 0xC0; c <= 0xFF; ++c) codes.push_back(c);
    return codes;
}

TEST(ShippedData, CatalogueNamesEveryShownCode) {
    const CmdNames names = loadCmdNames(kData);
    for (int c : shownCodes()) EXPECT_NE(names[static_cast<size_t>(c)], hexPlain(c)) << "no name for " << hex2(c);
    EXPECT_EQ(readFormNames(kData + "/forms.txt").size(), 22u);
}

TEST(ShippedData, EverySheetParsesAndMatchesItsCommand) {
    int sheets = 0;
    for (const auto& entry : std::filesystem::directory_iterator(kData + "/cmdinfo")) {
        const std::string name = entry.path().filename().string();
        SCOPED_TRACE(name);
        ASSERT_EQ(name.size(), 6u);
        const int code = static_cast<int>(leadingHexValue(name.substr(0, 2)));
        EXPECT_EQ(commandSheetPath(kData, code), kData + "/cmdinfo/" + name) << "the name is hex2 of a shown code";
        const CommandSheet sheet = parseCommandSheet(readTextFile(entry.path().string()));
        EXPECT_EQ(sheet.ignored, 0);
        int listSlot = -1, nextValue = 0, infos = 0;
        for (const SheetRecord& r : sheet.records) {
            if (r.kind == SheetRecord::Kind::Field) {
                EXPECT_LT(r.slot, maxDataCount(code)) << "slot " << r.slot + 1 << " is beyond the command's data";
                EXPECT_FALSE(r.label.empty());
                listSlot = r.list ? r.slot : -1;
                nextValue = 0;
            } else if (r.kind == SheetRecord::Kind::Value) {
                EXPECT_EQ(r.slot, listSlot) << "a Value follows its slot's List field";
                EXPECT_EQ(r.value, nextValue++) << "values run in order from 0";
            } else {
                ++infos;
                ASSERT_FALSE(r.label.empty());
                EXPECT_NE(std::string(".)!?\"").find(r.label.back()), std::string::npos)
                    << "the notes end as written, not cut mid-word: ..." << r.label.substr(r.label.size() - std::min<size_t>(r.label.size(), 30));
            }
        }
        EXPECT_EQ(infos, 1) << "every sheet has notes";
        ++sheets;
    }
    EXPECT_EQ(sheets, 76);
}

TEST(ShippedData, EveryCommandOfTheDemoImageHasItsSlotsLabelled) {
    const Playbook pb = openRom(ZPE_DEMO_IMAGE, kData);
    std::map<int, int> slotsUsed;  // code -> most data slots shown
    for (const auto& [address, seq] : pb.sequences)
        for (int i = 0; i < seq.commandCount(); ++i)
            slotsUsed[seq.command(i)] = std::max(slotsUsed[seq.command(i)], std::min<int>(seq.dataLen(i), 4));
    EXPECT_GT(slotsUsed.size(), 20u);
    for (const auto& [code, slots] : slotsUsed) {
        const auto sheet = loadCommandSheet(kData, code);
        ASSERT_TRUE(sheet.has_value()) << hex2(code);
        std::set<int> labelled;
        for (const SheetRecord& r : sheet->records)
            if (r.kind == SheetRecord::Kind::Field) labelled.insert(r.slot);
        for (int k = 0; k < slots; ++k) EXPECT_TRUE(labelled.count(k)) << hex2(code) << " slot " << k + 1;
    }
}

}  // namespace
}  // namespace zpe

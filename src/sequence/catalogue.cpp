#include "sequence/catalogue.h"

#include "sequence/command_codes.h"

#include "model/rom_error.h"
#include "model/text_file.h"

namespace zpe {

CmdNames defaultCmdNames() {
    CmdNames names;
    for (int i = 0; i < 256; ++i) names[static_cast<size_t>(i)] = hexPlain(i);
    return names;
}

void applyCmdNames(CmdNames& names, const std::string& text) {
    FieldReader reader(text);
    while (reader.hasField()) {
        const std::string code = reader.next();
        if (!reader.hasField()) break;
        std::string name = reader.next();
        const int64_t value = leadingHexValue(code);
        if (value >= 0 && value <= 255) names[static_cast<size_t>(value)] = std::move(name);
    }
}

CmdNames loadCmdNames(const std::string& dataDir) {
    CmdNames names = defaultCmdNames();
    try {
        applyCmdNames(names, readTextFile(dataDir + "/cmd.txt"));
    } catch (const RomError&) {
        // No catalogue: every command keeps its hexadecimal code as its name.
    }
    return names;
}

std::array<std::string, 77> newCommandItems(const CmdNames& names) {
    std::array<std::string, 77> items;
    for (size_t k = 1; k < items.size(); ++k) {
        const int c = newCommandCode(static_cast<int>(k));
        items[k] = hex2(c) + ": " + names[static_cast<size_t>(c)];
        if (cmd::isLockUp(c)) items[k] += " (lock-up)";
    }
    return items;
}

int newCommandCode(int item) {
    constexpr int kLowItems = 12;  // 0x00, 0x10, ..., 0xB0
    if (item < 1 || item > kLowItems + 64) return -1;
    return item <= kLowItems ? (item - 1) * 0x10 : cmd::kFirstHighCode + (item - 1 - kLowItems);
}

}  // namespace zpe

#include "sequence/command_sheet.h"

#include "sequence/command_codes.h"

#include "model/hex.h"
#include "model/rom_error.h"
#include "model/text_file.h"

#include <charconv>

namespace zpe {

namespace {
std::optional<int> decimal(const std::string& text) {
    int value = 0;
    const char* end = text.data() + text.size();
    const auto [ptr, ec] = std::from_chars(text.data(), end, value);
    if (ec != std::errc() || ptr != end || text.empty()) return std::nullopt;
    return value;
}

std::optional<int> slotNumber(const std::string& text) {
    const auto n = decimal(text);
    if (!n || *n < 1 || *n > 4) return std::nullopt;
    return *n - 1;
}
}  // namespace

CommandSheet parseCommandSheet(const std::string& text) {
    CommandSheet sheet;
    FieldReader reader(text);
    while (reader.hasField()) {
        const std::string key = reader.next();
        if (key == "Field") {
            const std::string n = reader.next(), label = reader.next(), kind = reader.next();
            const auto slot = slotNumber(n);
            if (!slot) {
                ++sheet.ignored;
                continue;
            }
            sheet.records.push_back({SheetRecord::Kind::Field, *slot, label, kind == "List", 0});
        } else if (key == "Value") {
            const std::string n = reader.next(), v = reader.next(), item = reader.next();
            const auto slot = slotNumber(n);
            const auto value = decimal(v);
            if (!slot || !value) {
                ++sheet.ignored;
                continue;
            }
            sheet.records.push_back({SheetRecord::Kind::Value, *slot, item, false, *value});
        } else if (key == "Info") {
            sheet.records.push_back({SheetRecord::Kind::Info, 0, reader.next(FieldReader::kWholeField), false, 0});
        } else {
            ++sheet.ignored;
        }
    }
    return sheet;
}

std::string commandSheetPath(const std::string& dataDir, int command) {
    const int code = cmd::isLowCode(command) ? (command & cmd::kLowCodeMask) : command;
    return dataDir + "/cmdinfo/" + hex2(code) + ".txt";
}

std::optional<CommandSheet> loadCommandSheet(const std::string& dataDir, int command) {
    try {
        return parseCommandSheet(readTextFile(commandSheetPath(dataDir, command)));
    } catch (const RomError&) {
        return std::nullopt;
    }
}

const CommandSheet* CommandSheets::sheetFor(int command) {
    const std::string path = commandSheetPath(dataDir_, command);
    auto it = cache_.find(path);
    if (it == cache_.end()) it = cache_.emplace(path, loadCommandSheet(dataDir_, command)).first;
    return it->second ? &*it->second : nullptr;
}

}  // namespace zpe

#pragma once
// Command sheets (cmdinfo/XX.txt): what each data slot of a command is called,
// which slots take one of a list of values, and notes for the user. The same
// free-format field syntax as cmd.txt; records start with a key:
//   Field, n, label, kind   slot n (1..4) is labelled; kind "List" makes it a list
//   Value, n, v, text       the next item of slot n's list (items stand for 0, 1, ...)
//   Info, text              the notes (the last Info wins)
// Any other key is skipped on its own, so the fields after it are read as keys.
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace zpe {

struct SheetRecord {
    enum class Kind { Field, Value, Info } kind;
    int slot = 0;       // 0..3 (n - 1) for Field and Value
    std::string label;  // Field: the label; Value: the item text; Info: the notes
    bool list = false;  // Field: the kind is "List"
    int value = 0;      // Value: v as written (not used: an item's value is its position)
};

struct CommandSheet {
    std::vector<SheetRecord> records;  // in file order
    // Records skipped: unknown keys, and Field or Value records whose number is
    // not a decimal integer from 1 to 4 (or whose v is not a decimal integer).
    int ignored = 0;
};

CommandSheet parseCommandSheet(const std::string& text);

// The sheet file of a command code: dataDir/cmdinfo/XX.txt with XX = hex2 of
// the code, the low nibble of a low code cleared (30.txt for every Block).
std::string commandSheetPath(const std::string& dataDir, int command);

// The command's sheet, or none when it has no sheet file.
[[nodiscard]] std::optional<CommandSheet> loadCommandSheet(const std::string& dataDir, int command);

// The sheets of one data folder, each file read the first time its code is
// asked for and kept until clear() (the window clears them on every open).
class CommandSheets {
public:
    explicit CommandSheets(std::string dataDir) : dataDir_(std::move(dataDir)) {}
    // The sheet of `command`, nullptr when it has none. Valid until clear().
    const CommandSheet* sheetFor(int command);
    void clear() { cache_.clear(); }

private:
    std::string dataDir_;
    std::unordered_map<std::string, std::optional<CommandSheet>> cache_;  // by sheet path
};

}  // namespace zpe

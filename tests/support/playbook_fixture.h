#pragma once
// Opening builder images the way the window does, with a forms.txt of our own.
#include "model/rom_error.h"
#include "playbook/list_rows.h"
#include "playbook/open_rom.h"
#include "support/image_builder.h"

#include <gtest/gtest.h>

namespace zpe::test {

// A data folder with forms.txt (22 names "FORM 0".. by default) and no cmd.txt.
class DataDir : public TempDir {
public:
    explicit DataDir(int formations = kDefaultFormationCount) { writeText("forms.txt", formsText(formations)); }
};

struct OpenOutcome {
    bool ok = false;
    std::string error;  // the open's RomError message when it stopped
    ListRows rows;      // the four lists after a successful open
};

struct Opened {
    TempFile file;
    Playbook pb;  // untouched (empty) when the open stopped
    OpenOutcome result;
};

// Writes the builder's image and opens it; the gap listing goes nowhere.
inline Opened openBuilt(const ImageBuilder& builder, const DataDir& data) {
    Opened o{builder.write(), {}, {}};
    try {
        o.pb = openRom(o.file.path(), data.path());
        o.result.rows = buildRows(o.pb, defaultCmdNames());
        o.result.ok = true;
    } catch (const RomError& e) {
        o.result.error = e.what();
    }
    return o;
}

}  // namespace zpe::test

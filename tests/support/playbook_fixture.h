#pragma once
// Opening builder images the way the window does, with a forms.txt of our own.
#include "playbook/open_rom.h"
#include "support/image_builder.h"

#include <gtest/gtest.h>

namespace zpe::test {

// A data folder with forms.txt (22 names "FORM 0".. by default) and no cmd.txt.
class DataDir : public TempDir {
public:
    explicit DataDir(int formations = kDefaultFormationCount) { writeText("forms.txt", formsText(formations)); }
};

struct Opened {
    TempFile file;
    Playbook pb;
    OpenResult result;
};

// Writes the builder's image and opens it; the gap listing goes nowhere.
inline Opened openBuilt(const ImageBuilder& builder, const DataDir& data) {
    Opened o{builder.write(), {}, {}};
    o.result = openRom(o.pb, o.file.path(), OpenOptions{data.path(), std::nullopt}, defaultCmdNames());
    return o;
}

}  // namespace zpe::test

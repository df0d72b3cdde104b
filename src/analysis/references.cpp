#include "analysis/references.h"

namespace zpe {

References referencesTo(const Playbook& pb, SeqKey key) {
    References out;
    for (const AreaEntry& e : playbookEntries(pb))
        if (e.target == key) out.entries.push_back(e);
    if (key.isNew()) return out;  // no command of the game leads to what stands nowhere yet
    const int32_t address = key.address();
    const AreaMap map = buildAreaMap(pb);
    for (const GameCommand& g : map.program)
        if (g.target == address) out.fields.push_back({g.address, g.code, g.target});
    return out;
}

}  // namespace zpe

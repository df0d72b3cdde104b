#include "analysis/references.h"

namespace zpe {

References referencesTo(const Playbook& pb, int32_t address) {
    References out;
    for (const AreaEntry& e : playbookEntries(pb))
        if (e.target == address) out.entries.push_back(e);
    const AreaMap map = buildAreaMap(pb);
    for (const GameCommand& g : map.program)
        if (g.target == address) out.fields.push_back({g.address, g.code, g.target});
    return out;
}

}  // namespace zpe

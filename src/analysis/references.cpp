#include "analysis/references.h"

namespace zpe {

References referencesTo(const Playbook& pb, int32_t address) {
    References out;
    for (const AreaEntry& e : playbookEntries(pb))
        if (e.target == address) out.entries.push_back(e);
    const AreaMap map = buildAreaMap(pb);
    const std::span<const uint8_t> area = areaBytes(pb.openedBytes);
    for (int32_t a : map.commands) {
        GameCommand g;
        if (readGameCommand(area, a, g) && g.target == address) out.fields.push_back({a, g.code, g.target});
    }
    return out;
}

}  // namespace zpe

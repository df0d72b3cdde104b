#include "playbook/table_codec.h"

namespace zpe {

int32_t formationEntryOffset(int formation, int player) {
    return kFormationTableOffset + kAddressRecordSize * formation + 2 * player;
}
int32_t playEntryOffset(int play, int player) { return kPlayTableOffset + kAddressRecordSize * play + 2 * player; }
int32_t pointerEntryOffset(int pointer) { return kPointerTableOffset + 2 * pointer; }

void readTables(Playbook& pb, Image& image, const std::vector<std::string>& formNames) {
    image.seekOffset(kFormationTableOffset);
    pb.formations.resize(formNames.size());
    for (size_t k = 0; k < formNames.size(); ++k) {
        pb.formations[k].load(image);
        pb.formations[k].name(formNames[k]);
    }
    image.seekOffset(kPlayTableOffset);
    for (auto& play : pb.plays) play.load(image);
    image.seekOffset(kPointerTableOffset);
    for (auto& pointer : pb.seqPointers) pointer = SeqKey::at(image.readWord());
    image.seekOffset(kOffSlotTableOffset);
    for (auto& slot : pb.playSlots) slot.loadOff(image);
    image.seekOffset(kDefSlotTableOffset);
    for (auto& slot : pb.playSlots) slot.loadDef(image);
    image.seekOffset(kRusherTableOffset);
    for (int s = 0; s < kRunningSlotCount; ++s) pb.playSlots[static_cast<size_t>(s)].Rusher(image.readByte());
    image.seekOffset(kGfxTableOffset);
    for (auto& slot : pb.playSlots) slot.loadGFX(image);
}

void writeSlot(const Playbook& pb, Image& image, int s) {
    const clsPlaySlot& slot = pb.playSlots.at(static_cast<size_t>(s));
    image.seekOffset(kOffSlotTableOffset + kOffSlotRecordSize * s);
    slot.saveOff(image);
    image.seekOffset(kDefSlotTableOffset + kDefSlotRecordSize * s);
    slot.saveDef(image);
    if (s < kRunningSlotCount) {
        image.seekOffset(kRusherTableOffset + s);
        image.writeByte(slot.Rusher());
    }
    image.seekOffset(kGfxTableOffset + kGfxRecordSize * s);
    slot.saveGFX(image);
}

void writeTables(const Playbook& pb, Image& image, unsigned tables) {
    if (tables & kFormationTable) {
        image.seekOffset(kFormationTableOffset);
        for (const auto& form : pb.formations) form.save(image);
    }
    if (tables & kPlayTable) {
        image.seekOffset(kPlayTableOffset);
        for (const auto& play : pb.plays) play.save(image);
    }
    if (tables & kPointerTable) {
        image.seekOffset(kPointerTableOffset);
        for (const SeqKey pointer : pb.seqPointers) image.writeWord(pointer.address());
    }
    if (tables & kSlotTables)
        for (int s = 0; s < kSlotCount; ++s) writeSlot(pb, image, s);
}

}  // namespace zpe

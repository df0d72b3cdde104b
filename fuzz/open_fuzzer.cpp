// Treats arbitrary bytes as the tables and sequence area of an image and runs
// everything that reads a playbook: the open procedure's reading part, the list
// rows, the gap listing, both diagrams of every slot and formation, Full Save's
// layout and bytes, the mask and compaction. None may crash, hang or trip a
// sanitizer, and compaction's check before the write must never fire.
#include "analysis/check_report.h"
#include "fuzz_image.h"
#include "diagram/diagram.h"
#include "playbook/list_rows.h"
#include "playbook/open_rom.h"
#include "save/compact.h"
#include "save/saves.h"
#include "save/verify_write.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <vector>

namespace {

// Counts what is drawn; a small canvas so far-off points are exercised too.
class NullCanvas : public zpe::Canvas {
public:
    void clear(uint32_t) override {}
    void line(int, int, int, int, uint32_t) override { ++ops; }
    void rect(int, int, int, int, uint32_t) override { ++ops; }
    void fillRect(int, int, int, int, uint32_t) override { ++ops; }
    int width() const override { return 137; }
    int height() const override { return 217; }
    long ops = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace zpe;
    const std::vector<uint8_t> bytes = fuzz::imageFromInput(data, size);
    Image image("fuzz.nes", bytes);
    const std::vector<std::string> names = fuzz::formationNames();
    Playbook pb;
    try {
        pb = loadPlaybook(image, names);
    } catch (const std::exception&) {
        return 0;  // the open procedure stops here
    }
    const CmdNames cmd = defaultCmdNames();
    (void)buildRows(pb, cmd);
    pb.openedBytes = bytes;
    (void)gapListing(pb);
    NullCanvas canvas;
    for (int s = 0; s < kSlotCount; ++s) DrawPlay(canvas, pb, s);
    for (int f = 0; f < 22; ++f) (void)drawFormation(canvas, pb, f);
    (void)maskBytes(pb, {});
    const AreaMap map = buildAreaMap(pb);
    (void)checkReport(map);
    const auto area = areaBytes(bytes);
    for (const GameCommand& c : traceFrom(bytes, kSequenceAreaAddress)) (void)gameCommandText(c, area, cmd);
    // Compaction in memory: it may refuse, but its check before the write must never fire.
    pb.romPath = "fuzz.nes";
    pb.openComplete = true;
    if (!pb.sequences.empty()) {
        try {
            (void)planCompact(pb);
        } catch (const VerifyError& e) {
            std::fprintf(stderr, "compaction's check fired: %s\n", e.what());
            std::abort();
        } catch (const SaveError&) {
            // a path off the end, shared address bytes
        }
    }
    try {
        const Playbook relaid = relayout(pb);
        (void)fullSaveBytes(relaid, bytes);
    } catch (const SaveError&) {
        // a layout larger than the area is refused
    }
    return 0;
}

// Carries plays and slots between structured images (structured_image.h) and
// counts what became of each import: brought in (then checked here once more
// by the game's reading), or refused, by the refusal's kind. A refusal that
// says the plan was wrong (the check before the write saw the game or the
// editor read other than planned) is a fault of the engine; so is an
// exception that is no refusal.
//
//   carry_fuzz_runner N [SEED]
//       N imports from SEED (default 1): each a play or a slot of one
//       image into another (sometimes the same image). Prints the counts; exit
//       status 1 when any import ended in such a fault, with its run seed.
//   carry_fuzz_runner --replay RUNSEED [DIR]
//       The one import of RUNSEED, and what became of it; with DIR, the two
//       images written there as from.nes and into.nes.
#include "fuzz_image.h"
#include "playbook/open_rom.h"
#include "save/play_import.h"
#include "save/slot_import.h"
#include "save/verify_write.h"
#include "structured_image.h"

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

namespace {

using namespace zpe;

Playbook openStructured(uint64_t seed) {
    const std::vector<uint8_t> bytes = fuzz::structuredImage(seed).bytes;
    Image image("carry.nes", bytes);
    Playbook pb = loadPlaybook(image, fuzz::formationNames());
    pb.romPath = "carry.nes";
    pb.openedBytes = bytes;
    pb.openComplete = true;
    return pb;
}

const char* kindName(Refusal kind) {
    switch (kind) {
    case Refusal::NoFreeRun: return "no free room";
    case Refusal::WouldNotReopen: return "read otherwise than planned";
    case Refusal::Internal: return "internal";
    default: return "other refusal";
    }
}

std::string gWriteTo;  // --replay's folder for the two images (from.nes, into.nes)

void writeImage(const Playbook& pb, const std::string& name) {
    std::vector<uint8_t> bytes = pb.openedBytes;
    const uint8_t mark[4] = {'N', 'E', 'S', 0x1A};
    std::copy(mark, mark + 4, bytes.begin());
    if (FILE* f = std::fopen((gWriteTo + "/" + name).c_str(), "wb")) {
        std::fwrite(bytes.data(), 1, bytes.size(), f);
        std::fclose(f);
    }
}

// One import from the run seed: what became of it.
std::string runOne(uint64_t runSeed) {
    fuzz::Prng random(runSeed);
    const uint64_t a = random.next(), b = random.percent(20) ? a : random.next();
    Playbook from, into;
    try {
        from = openStructured(a);
        into = openStructured(b);
    } catch (const std::exception&) {
        return "image does not open";
    }
    if (!gWriteTo.empty()) {
        writeImage(from, "from.nes");
        writeImage(into, "into.nes");
    }
    try {
        if (random.percent(70)) {
            const int p = static_cast<int>(random.below(kPlayCount)), q = static_cast<int>(random.below(kPlayCount));
            if (!gWriteTo.empty()) std::printf("play %d into play %d\n", p, q);
            const PlayImportPlan plan = planPlayImport(into, carryPlay(from, p), q);
            (void)readBytesAs(into, plan.bytes);  // opens as the check said
            return plan.summary.laid.copied > 0 ? "play brought in (copied)" : "play brought in (all reused)";
        }
        const int s = static_cast<int>(random.below(kSlotCount));
        const int t = (s < kRunningSlotCount ? 0 : kRunningSlotCount) + static_cast<int>(random.below(kRunningSlotCount));
        const BookImportPlan plan = planSlotImport(into, carrySlots(from, {s}), t);
        (void)readBytesAs(into, plan.bytes);
        return "slot brought in";
    } catch (const SaveError& e) {
        const std::string what = e.what();
        // A faulty source (the game would not run what it carries) is refused before any plan: not the engine's doing.
        if (what.find("not one the game could run") != std::string::npos || what.find("not ones the game could run") != std::string::npos)
            return "source not carried (the game could not run it)";
        if (what.find("locks the game up") != std::string::npos) return "lock-up not written anew";
        if (e.kind() == Refusal::WouldNotReopen || e.kind() == Refusal::Internal) return std::string("FAULT ") + kindName(e.kind()) + ": " + what;
        return kindName(e.kind());
    } catch (const std::exception& e) {
        return std::string("FAULT exception: ") + e.what();
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: carry_fuzz_runner N [SEED]\n");
        return 1;
    }
    if (std::string(argv[1]) == "--replay" && argc > 2) {
        if (argc > 3) gWriteTo = argv[3];
        std::printf("%s\n", runOne(std::strtoull(argv[2], nullptr, 10)).c_str());
        return 0;
    }
    const long n = std::strtol(argv[1], nullptr, 10);
    fuzz::Prng seeds(argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1);
    std::map<std::string, long> counts;
    long faults = 0;
    for (long i = 0; i < n; ++i) {
        const uint64_t runSeed = seeds.next();
        const std::string outcome = runOne(runSeed);
        if (outcome.rfind("FAULT", 0) == 0) {
            ++faults;
            std::printf("run seed %llu: %s\n", static_cast<unsigned long long>(runSeed), outcome.c_str());
            counts["FAULT"]++;
        } else {
            counts[outcome]++;
        }
    }
    for (const auto& [what, count] : counts) std::printf("%8ld  %s\n", count, what.c_str());
    return faults ? 1 : 0;
}

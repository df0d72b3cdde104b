// Opening an image, building the list rows and Full Save's layout, at the
// size of a real playbook and at ten times that. Run:
//   build/run/bench/playbook_bench   (after ./run, or any Release build)
#include "analysis/area_map.h"
#include "model/file_io.h"
#include "playbook/list_rows.h"
#include "playbook/open_rom.h"
#include "save/compact.h"
#include "save/layout.h"
#include "save/save_changes.h"
#include "save/saves.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <unistd.h>

namespace {

using namespace zpe;

constexpr int kRealSequences = 1000;  // a real image holds about a thousand sequences

// Game addresses usable for sequences: clear of the tables at file 0x4010..0x4FA0.
int32_t slotAddress(int i) {
    const int32_t a = 0x2000 + 4 * i;
    return a < 0x5FF0 ? a : a - 0x1FF0 + 0x7000;  // skip game 0x5FF0..0x6FFF
}

// An image whose 192 pointers each start a chain of 4-byte sequences
// ("Block RE", then an absolute jump to the next), n sequences in all.
struct BenchImage {
    std::string folder;
    std::string path;
    explicit BenchImage(int n) {
        std::vector<uint8_t> bytes(0x40010, 0);
        Image img("bench.nes", bytes);
        const int chains = kPointerCount;
        const int perChain = (n + chains - 1) / chains;
        int placed = 0;
        for (int c = 0; c < chains; ++c) {
            img.seekOffset(kPointerTableOffset + 2 * c);
            img.writeWord(slotAddress(placed));
            for (int k = 0; k < perChain && placed < n; ++k, ++placed) {
                img.seekOffset(offsetOfAddress(slotAddress(placed)));
                const bool last = k == perChain - 1 || placed == n - 1;
                const int32_t next = slotAddress(placed + 1);
                if (last) {
                    for (uint8_t b : {0x30, 0xE4, 0x00, 0x00}) img.writeByte(b);
                } else {
                    for (int b : {0x30, 0xFF, next & 0xFF, next >> 8}) img.writeByte(b);
                }
            }
        }
        for (int p = 0; p < kPlayCount; ++p) {
            img.seekOffset(kPlayTableOffset + kAddressRecordSize * p);
            for (int j = 0; j < kPlayersPerRecord; ++j) img.writeWord(slotAddress((p * 11 + j) % n));
        }
        for (int f = 0; f < 22; ++f) {
            img.seekOffset(kFormationTableOffset + kAddressRecordSize * f);
            for (int j = 0; j < kPlayersPerRecord; ++j) img.writeWord(slotAddress((f * 3 + j) % n));
        }
        char dir[] = "/tmp/zpe-bench-XXXXXX";
        folder = ::mkdtemp(dir);
        path = folder + "/bench.nes";
        replaceFileContents(path, img.bytes());
        std::string forms;
        for (int f = 0; f < 22; ++f) forms += "F" + std::to_string(f) + "\r\n";
        replaceFileText(folder + "/forms.txt", forms);
    }
    ~BenchImage() { std::filesystem::remove_all(folder); }
};

void BM_Open(benchmark::State& state) {
    const BenchImage image(static_cast<int>(state.range(0)));
    const CmdNames names = defaultCmdNames();
    for (auto _ : state) {
        const Playbook pb = openRom(image.path, image.folder);
        writeGapListing(pb, image.folder + "/cpu.txt");
        benchmark::DoNotOptimize(buildRows(pb, names).sequences.size());
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_Open)->Arg(kRealSequences)->Arg(10 * kRealSequences)->Unit(benchmark::kMillisecond)->Complexity();

void BM_Rows(benchmark::State& state) {
    const BenchImage image(static_cast<int>(state.range(0)));
    const CmdNames names = defaultCmdNames();
    const Playbook pb = openRom(image.path, image.folder);
    for (auto _ : state) benchmark::DoNotOptimize(buildRows(pb, names).sequences.size());
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_Rows)->Arg(kRealSequences)->Arg(10 * kRealSequences)->Unit(benchmark::kMillisecond)->Complexity();

// Full Save's layout and bytes. The area holds 8192 bytes, so the large case
// uses one-byte sequences: 800 and 8000 of them.
void BM_FullSaveLayout(benchmark::State& state) {
    Playbook pb;
    for (int i = 0; i < state.range(0); ++i) {
        std::vector<uint8_t> bytes(static_cast<size_t>(offsetOfAddress(0xA000 + i)) + 1, 0);
        bytes.back() = 0xE4;
        Image img("seq", bytes);
        clsSequence seq;
        seq.reset(0xA000 + i);
        img.seekOffset(offsetOfAddress(0xA000 + i));
        seq.load(img, false);
        pb.sequences.insert(SeqKey::at(0xA000 + i), seq);
    }
    const std::vector<uint8_t> original(0x40010, 0);
    for (auto _ : state) {
        const Playbook relaid = relayout(pb);
        benchmark::DoNotOptimize(fullSaveBytes(relaid, original).size());
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_FullSaveLayout)->Arg(800)->Arg(8000)->Unit(benchmark::kMillisecond)->Complexity();

// The area map of a full area: `size` bytes of chained sequences from 0xA000
// (Block, then an absolute jump to the next), each entry of the tables
// pointing into them.
void BM_AreaMap(benchmark::State& state) {
    const auto size = static_cast<int32_t>(state.range(0));
    Playbook pb;
    pb.openedBytes = std::vector<uint8_t>(0x40010, 0xFF);
    Image img("bench.nes", pb.openedBytes);
    for (int32_t a = kSequenceAreaAddress; a + 4 <= kSequenceAreaAddress + size; a += 4) {
        img.seekOffset(offsetOfAddress(a));
        const int32_t next = a + 4 + 4 <= kSequenceAreaAddress + size ? a + 4 : kSequenceAreaAddress;
        for (int b : {0x30, 0xFF, next & 0xFF, next >> 8}) img.writeByte(b);
        clsSequence seq;
        seq.reset(a);
        img.seekOffset(offsetOfAddress(a));
        seq.load(img, false);
        pb.sequences.insert(SeqKey::at(a), seq);
    }
    pb.openedBytes = img.bytes();
    const int32_t count = size / 4;
    for (int i = 0; i < kPointerCount; ++i) pb.seqPointers[static_cast<size_t>(i)] = SeqKey::at(kSequenceAreaAddress + 4 * (i * 7 % count));
    for (int p = 0; p < kPlayCount; ++p)
        for (int j = 0; j < kPlayersPerRecord; ++j) pb.plays[static_cast<size_t>(p)].seqAddress(j, SeqKey::at(kSequenceAreaAddress + 4 * ((p * 11 + j) % count)));
    for (auto _ : state) benchmark::DoNotOptimize(buildAreaMap(pb).gameBytes());
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_AreaMap)->Arg(1024)->Arg(kSequenceAreaSize)->Unit(benchmark::kMicrosecond)->Complexity();

// Compaction (pack, relink, read back both ways) of an area whose first
// `range` bytes hold 6-byte sequences (a move, then an absolute jump to the
// next) with a 2-byte gap after each, every table entry pointing into them.
void BM_Compact(benchmark::State& state) {
    const auto size = static_cast<int32_t>(state.range(0));
    std::vector<uint8_t> bytes(0x40010, 0xFF);
    Image img("bench.nes", bytes);
    const int32_t count = size / 8;
    for (int32_t k = 0; k < count; ++k) {
        const int32_t a = kSequenceAreaAddress + 8 * k, next = kSequenceAreaAddress + 8 * ((k + 1) % count);
        img.seekOffset(offsetOfAddress(a));
        for (int b : {0xD7, 0x01, 0x01, 0xFF, next & 0xFF, next >> 8}) img.writeByte(b);
    }
    auto entry = [&](int i) { return kSequenceAreaAddress + 8 * (i % count); };
    for (int i = 0; i < kPointerCount; ++i) {
        img.seekOffset(kPointerTableOffset + 2 * i);
        img.writeWord(entry(i * 7));
    }
    for (int p = 0; p < kPlayCount; ++p)
        for (int j = 0; j < kPlayersPerRecord; ++j) {
            img.seekOffset(kPlayTableOffset + kAddressRecordSize * p + 2 * j);
            img.writeWord(entry(p * 11 + j));
        }
    for (int f = 0; f < 22; ++f)
        for (int j = 0; j < kPlayersPerRecord; ++j) {
            img.seekOffset(kFormationTableOffset + kAddressRecordSize * f + 2 * j);
            img.writeWord(entry(f * 3 + j));
        }
    Playbook pb = loadPlaybook(img, std::vector<std::string>(22, "F"));
    pb.romPath = "bench.nes";
    pb.openComplete = true;
    pb.openedBytes = img.bytes();
    for (auto _ : state) benchmark::DoNotOptimize(planCompact(pb).summary.keptBytes);
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_Compact)->Arg(1024)->Arg(2048)->Arg(4096)->Arg(kSequenceAreaSize)->Unit(benchmark::kMillisecond)->Complexity();

// Save's plan (compare, place, rewrite references) for 50 changed sequences,
// half of them grown so they move, on an area filled with 1,500 four-byte
// sequences (6,000 bytes) and 2,192 free bytes. Argument 0: the plan reads
// the image again; 1: it is handed the open's own reading (as zpe import does).
void BM_SavePlan(benchmark::State& state) {
    constexpr int kSequences = 1500;
    std::vector<uint8_t> bytes(0x40010, 0xFF);
    Image img("bench.nes", bytes);
    for (int i = 0; i < kSequences; ++i) {
        img.seekOffset(offsetOfAddress(kSequenceAreaAddress + 4 * i));
        for (int b : {0xD7, 0x01, 0x02, 0xE4}) img.writeByte(b);
    }
    for (int i = 0; i < kPointerCount; ++i) {
        img.seekOffset(kPointerTableOffset + 2 * i);
        img.writeWord(kSequenceAreaAddress + 4 * i);
    }
    for (int p = 0; p < kPlayCount; ++p)
        for (int j = 0; j < kPlayersPerRecord; ++j) {
            img.seekOffset(kPlayTableOffset + kAddressRecordSize * p + 2 * j);
            img.writeWord(kSequenceAreaAddress + 4 * ((kPointerCount + p * 11 + j) % kSequences));
        }
    for (int s = 0; s < kSlotCount; ++s) {  // every slot on formation 0, as an image the open accepts
        img.seekOffset(kOffSlotTableOffset + kOffSlotRecordSize * s + kSlotNameLength);
        img.writeByte(0);
    }
    std::vector<std::string> names(22, "F");
    for (int f = 0; f < 22; ++f) {
        img.seekOffset(kFormationTableOffset + kAddressRecordSize * f);
        for (int j = 0; j < kPlayersPerRecord; ++j) img.writeWord(kSequenceAreaAddress + 4 * (f * 11 + j));
    }
    Playbook pb = loadPlaybook(img, names);
    pb.romPath = "bench.nes";
    pb.openComplete = true;
    pb.openedBytes = img.bytes();
    const Playbook opened = pb;
    for (int k = 0; k < 50; ++k) {
        clsSequence& seq = pb.sequences.at(SeqKey::at(kSequenceAreaAddress + 4 * (k * 29)));
        if (k % 2 == 0) seq.data(0, 0, 0x11);
        else if (seq.insertCommand(-1, 0xD7) != clsSequence::Insert::Done) state.SkipWithError("insert refused");
    }
    const Playbook* asOpened = state.range(0) ? &opened : nullptr;
    for (auto _ : state) benchmark::DoNotOptimize(planSave(pb, pb.openedBytes, asOpened).summary.moved.size());
}
BENCHMARK(BM_SavePlan)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// The layout engine alone on a full area: 500 sequences of 15 bytes
// (7,500 bytes, each ending in Human Control with the computer's logic
// after it), 692 free bytes; 20 of them edited, half grown so they move.
void BM_Layout(benchmark::State& state) {
    constexpr int kSequences = 500, kSize = 15;
    std::vector<uint8_t> bytes(0x40010, 0xFF);
    Image img("bench.nes", bytes);
    for (int i = 0; i < kSequences; ++i) {
        img.seekOffset(offsetOfAddress(kSequenceAreaAddress + kSize * i));
        for (int b : {0xD7, 0x01, 0x02, 0x30, 0x51, 0xD7, 0x03, 0x04, 0xE4, 0xD7, 0x05, 0x06, 0xC4, 0x00, 0xEE}) img.writeByte(b);
    }
    auto seqAt = [&](int i) { return kSequenceAreaAddress + kSize * (i % kSequences); };
    for (int i = 0; i < kPointerCount; ++i) {
        img.seekOffset(kPointerTableOffset + 2 * i);
        img.writeWord(seqAt(i));
    }
    for (int p = 0; p < kPlayCount; ++p)
        for (int j = 0; j < kPlayersPerRecord; ++j) {
            img.seekOffset(kPlayTableOffset + kAddressRecordSize * p + 2 * j);
            img.writeWord(seqAt(kPointerCount + p * 11 + j));
        }
    for (int s = 0; s < kSlotCount; ++s) {
        img.seekOffset(kOffSlotTableOffset + kOffSlotRecordSize * s + kSlotNameLength);
        img.writeByte(0);
    }
    for (int f = 0; f < 22; ++f) {
        img.seekOffset(kFormationTableOffset + kAddressRecordSize * f);
        for (int j = 0; j < kPlayersPerRecord; ++j) img.writeWord(seqAt(f * 11 + j));
    }
    Playbook pb = loadPlaybook(img, std::vector<std::string>(22, "F"));
    pb.romPath = "bench.nes";
    pb.openComplete = true;
    pb.openedBytes = img.bytes();
    for (int k = 0; k < 20; ++k) {
        clsSequence& seq = pb.sequences.at(SeqKey::at(seqAt(k * 23)));
        if (k % 2 == 0) seq.data(0, 0, 0x11);
        else if (seq.insertCommand(-1, 0xD7) != clsSequence::Insert::Done) state.SkipWithError("insert refused");
    }
    Image again("bench.nes", pb.openedBytes);  // the image as read: the edits are only in pb
    Playbook before = loadPlaybook(again, std::vector<std::string>(22, "F"));
    before.openedBytes = pb.openedBytes;
    const AreaMap map = buildAreaMap(before);
    for (auto _ : state) benchmark::DoNotOptimize(layOut(pb, before, map, pb.openedBytes).moves.size());
}
BENCHMARK(BM_Layout)->Unit(benchmark::kMillisecond);

// A hostile image: from 0xA000 to the end one command without an end, and
// every table entry pointing into it. The open must refuse it in well under
// 200 ms.
void BM_HostileOpen(benchmark::State& state) {
    std::vector<uint8_t> bytes(0x40010, 0x31);
    Image img("hostile.nes", bytes);
    for (int i = 0; i < kPointerCount; ++i) {
        img.seekOffset(kPointerTableOffset + 2 * i);
        img.writeWord(0xA000 + 7 * i);
    }
    for (int p = 0; p < kPlayCount; ++p)
        for (int j = 0; j < kPlayersPerRecord; ++j) {
            img.seekOffset(kPlayTableOffset + kAddressRecordSize * p + 2 * j);
            img.writeWord(0xA001 + 5 * (p * 11 + j));
        }
    const std::vector<std::string> names(22, "F");
    for (auto _ : state) {
        Image copy = img;
        try {
            benchmark::DoNotOptimize(loadPlaybook(copy, names).sequences.size());
        } catch (const std::exception&) {
            // refused, as it should be
        }
    }
}
BENCHMARK(BM_HostileOpen)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

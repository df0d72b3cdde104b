// Runs the save fuzzer's target (save_fuzzer.cpp) without libFuzzer, on
// inputs drawn from a seed, and counts what the saves did.
//
//   save_fuzz_runner N [SEED] [--keep-going] [--save-only] [--raw PERCENT] [--skip K]
//       (--skip K: start after the first K runs of SEED, to find again what a long run saw)
//       N inputs from SEED (default 1). Each has its own run seed, from which
//       its input is made: mostly a structured image (structured_image.h),
//       PERCENT of them (default 5) in raw mode (a structured image's bytes
//       with a few changed). Stops at the first check before the write that
//       fires, printing the run seed that makes it again; --keep-going counts
//       every one by its words instead and goes on. --save-only leaves out
//       Full Save (its layout and its check) and Compact and Save.
//   save_fuzz_runner --replay RUNSEED [--save-only] [--raw PERCENT] [--write-input FILE] [--write-image FILE]
//       The one input of RUNSEED, describing each edit; --write-input's FILE
//       receives the input, which the libFuzzer target save_fuzzer reads the
//       same way; --write-image's the image it stands for, as a file the
//       editor opens as the fuzzer does (headed, padded to whole banks).
//   save_fuzz_runner --check-images N [SEED]
//       Lays out N structured images, opens each, and compares the sequences
//       found with what the layout put there; counts the structures laid.
//
// Exit status: 0; 1 on a bad command line, or when --keep-going saw a check
// fire or --check-images found a difference; an abort (134) at the first
// check that fires otherwise.
#include "fuzz_image.h"
#include "playbook/open_rom.h"
#include "save_fuzz_observer.h"
#include "structured_image.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <map>
#include <string>
#include <unistd.h>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

using zpe::fuzz::Prng;

// The run seed of the input being run, for the abort handler.
volatile uint64_t gRunSeed = 0;
volatile int gRawPercent = 5;
volatile sig_atomic_t gReported = 0;

void writeHex(char* at, uint64_t v) {
    for (int i = 15; i >= 0; --i) {
        at[i] = "0123456789abcdef"[v & 15];
        v >>= 4;
    }
}

// On an abort or a crash the fuzzer did not report through the observer (an
// edit that left a sequence broken, an exception nobody caught, a fault):
// the run seed that makes it again, written with async-signal-safe calls only.
extern "C" void onFatalSignal(int sig) {
    if (!gReported) {
        char line[] = "save_fuzz_runner: stopped on run seed 0x0000000000000000; replay: save_fuzz_runner --replay 0x0000000000000000 --raw 000\n";
        char* first = std::strstr(line, "0x") + 2;
        char* second = std::strstr(first, "0x") + 2;
        writeHex(first, gRunSeed);
        writeHex(second, gRunSeed);
        char* raw = std::strstr(line, "--raw ") + 6;
        const int p = gRawPercent;
        raw[0] = static_cast<char>('0' + p / 100);
        raw[1] = static_cast<char>('0' + p / 10 % 10);
        raw[2] = static_cast<char>('0' + p % 10);
        (void)!write(2, line, std::strlen(line));
    }
    std::signal(sig, SIG_DFL);
    std::raise(sig);
}

std::string hexSeed(uint64_t v) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%016llx", static_cast<unsigned long long>(v));
    return text;
}

// The input a run seed stands for.
std::vector<uint8_t> inputFor(uint64_t runSeed, int rawPercent) {
    Prng g(runSeed);
    if (g.below(100) < static_cast<uint32_t>(rawPercent)) {
        // Raw mode: a structured image's tables, area and slots, a few bytes changed.
        std::vector<uint8_t> body = zpe::fuzz::inputFromImage(zpe::fuzz::structuredImage(g.next()).bytes);
        const int changes = g.between(0, 16);
        for (int k = 0; k < changes; ++k) body[g.below(static_cast<uint32_t>(body.size()))] = g.byte();
        std::vector<uint8_t> input{0x00};
        input.insert(input.end(), body.begin(), body.end());
        return input;
    }
    std::vector<uint8_t> input{0x01};
    for (int i = 0; i < 8; ++i) input.push_back(static_cast<uint8_t>(runSeed >> (8 * i)));
    return input;
}

// The image the fuzzer makes of `input` (as save_fuzzer.cpp does).
std::vector<uint8_t> imageOf(const std::vector<uint8_t>& input) {
    if (input[0] & 1) {
        uint64_t seed = 0;
        for (size_t i = 1; i < 9 && i < input.size(); ++i) seed |= static_cast<uint64_t>(input[i]) << (8 * (i - 1));
        return zpe::fuzz::structuredImage(seed).bytes;
    }
    std::vector<uint8_t> image = zpe::fuzz::imageFromInput(input.data() + 1, input.size() - 1);
    const auto names = static_cast<uint8_t>(zpe::fuzz::formationNames().size());
    for (int s = 0; s < zpe::kSlotCount; ++s) {
        uint8_t& formation = image[static_cast<size_t>(zpe::kOffSlotTableOffset + zpe::kOffSlotRecordSize * s + zpe::kSlotNameLength)];
        formation = static_cast<uint8_t>(formation % names);
    }
    return image;
}

// The bytes the fuzzer opens, as a file the editor opens the same way: its
// first 16 bytes are the header (given the image's mark), the rest padded
// with FF to whole 8 KiB banks, else the open would take it for a headerless image.
std::vector<uint8_t> asImageFile(std::vector<uint8_t> image) {
    constexpr auto kHeader = static_cast<size_t>(zpe::kHeaderSize), kBank = static_cast<size_t>(zpe::kBankUnit);
    if (image.size() < kHeader) return image;
    const uint8_t mark[] = {'N', 'E', 'S', 0x1A};
    std::copy(std::begin(mark), std::end(mark), image.begin());
    const size_t rest = (image.size() - kHeader) % kBank;
    if (rest != 0) image.resize(image.size() + kBank - rest, 0xFF);
    return image;
}

// A message with its addresses and numbers blanked, so refusals and checks of
// one kind count together: "sequence # would read back as # commands, not #".
std::string shape(std::string m) {
    for (const char* drop : {"fuzz.nes: ", "internal error: reading back what this save would write, "})
        if (const auto at = m.find(drop); at != std::string::npos) m.erase(at, std::strlen(drop));
    if (const auto at = m.find("; nothing was"); at != std::string::npos) m.erase(at);
    if (const auto at = m.find(". Nothing was"); at != std::string::npos) m.erase(at);
    std::string out, word;
    auto flush = [&]() {
        size_t a = 0, b = word.size();
        while (a < b && std::strchr("(\"", word[a])) ++a;
        while (b > a && std::strchr(",;:.)\"", word[b - 1])) --b;
        const std::string core = word.substr(a, b - a);
        const bool decimal = !core.empty() && std::all_of(core.begin(), core.end(), [](char c) { return c >= '0' && c <= '9'; });
        const bool address = core.size() == 4 && std::all_of(core.begin(), core.end(), [](char c) {
                                 return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
                             });
        const bool prefixed = core.size() > 2 && core[0] == '0' && core[1] == 'x';
        if (!word.empty()) {
            if (!out.empty()) out += ' ';
            out += decimal || address || prefixed ? word.substr(0, a) + "#" + word.substr(b) : word;
        }
        word.clear();
    };
    for (char c : m) {
        if (c == ' ') flush();
        else word += c;
    }
    flush();
    return out;
}

std::string firstWords(const std::string& s, int n) {
    size_t at = 0;
    for (int k = 0; k < n; ++k) {
        at = s.find(' ', at);
        if (at == std::string::npos) return s;
        ++at;
    }
    return s.substr(0, at - 1);
}

struct Group {
    long count = 0;
    uint64_t seed = 0;
    std::string example;
};

// What one of the fuzzer's writes (Save, Full Save, Compact and Save) did.
struct Stage {
    long saved = 0, refused = 0, fired = 0;
    std::map<std::string, Group> refusals;
};
constexpr const char* kStages[] = {"Save", "Full Save", "Compact and Save"};

class Counter : public zpe::fuzz::SaveFuzzObserver {
public:
    bool keepGoing = false;
    bool verbose = false;
    bool fullSave = true;
    uint64_t runSeed = 0;
    int rawPercent = 5;
    long runs = 0, structuredRuns = 0, openedCount = 0, rejected = 0, structuredOpened = 0;
    long fired = 0;
    std::map<std::string, Stage> stages;
    std::map<std::string, Group> checks;

    void opened(bool structured, bool ok) override {
        ++(ok ? openedCount : rejected);
        if (structured) {
            ++structuredRuns;
            if (ok) ++structuredOpened;
        }
        if (verbose) std::printf("%s image %s\n", structured ? "structured" : "raw", ok ? "opened" : "did not open");
    }
    void saved(const char* which) override {
        ++stages[which].saved;
        if (verbose) std::printf("%s: planned, its check passed\n", which);
    }
    void refused(const char* which, const std::string& message) override {
        Stage& stage = stages[which];
        ++stage.refused;
        add(stage.refusals, firstWords(shape(message), 8), message);
        if (verbose) std::printf("%s refused: %s\n", which, message.c_str());
    }
    bool checkFired(const char* which, const std::string& message) override {
        ++fired;
        ++stages[which].fired;
        add(checks, std::string(which) + ": " + shape(message), message);
        if (verbose || !keepGoing) {
            if (std::strcmp(which, "Edit") == 0) std::printf("on run seed %s %s\n", hexSeed(runSeed).c_str(), message.c_str());
            else std::printf("%s: the check before the write fired on run seed %s: %s\n", which, hexSeed(runSeed).c_str(), message.c_str());
            std::printf("replay: save_fuzz_runner --replay %s --raw %d\n", hexSeed(runSeed).c_str(), rawPercent);
            std::fflush(stdout);
        }
        if (!keepGoing && !verbose) gReported = 1;
        return keepGoing || verbose;
    }
    bool wantsFullSave() const override { return fullSave; }
    bool wantsNotes() const override { return verbose; }
    void note(const std::string& text) override { std::printf("  edit: %s\n", text.c_str()); }

private:
    void add(std::map<std::string, Group>& into, const std::string& key, const std::string& message) {
        Group& g = into[key];
        if (g.count++ == 0) {
            g.seed = runSeed;
            g.example = message;
        }
    }
};

void printTop(const char* title, const std::map<std::string, Group>& groups, size_t top, bool withSeed) {
    std::vector<std::pair<std::string, Group>> sorted(groups.begin(), groups.end());
    std::sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) { return a.second.count > b.second.count; });
    std::printf("%s (%zu kinds):\n", title, sorted.size());
    for (size_t i = 0; i < sorted.size() && i < top; ++i) {
        std::printf("  %9ld  %s\n", sorted[i].second.count, sorted[i].first.c_str());
        if (withSeed) std::printf("             e.g. run seed %s: %s\n", hexSeed(sorted[i].second.seed).c_str(), sorted[i].second.example.c_str());
    }
}

double pct(long part, long whole) { return whole == 0 ? 0.0 : 100.0 * static_cast<double>(part) / static_cast<double>(whole); }

uint64_t parseSeed(const char* text) { return std::strtoull(text, nullptr, 0); }

void runOne(Counter& counter, uint64_t runSeed, int rawPercent) {
    counter.runSeed = runSeed;
    gRunSeed = runSeed;
    ++counter.runs;
    const std::vector<uint8_t> input = inputFor(runSeed, rawPercent);
    try {
        (void)LLVMFuzzerTestOneInput(input.data(), input.size());
    } catch (const std::exception& e) {
        std::fprintf(stderr, "run seed %s: an exception left the fuzzer: %s\n", hexSeed(runSeed).c_str(), e.what());
        gReported = 1;
        std::abort();
    }
}

int runMany(long n, uint64_t seed, bool keepGoing, bool fullSave, int rawPercent, long skip) {
    Counter counter;
    counter.keepGoing = keepGoing;
    counter.fullSave = fullSave;
    counter.rawPercent = rawPercent;
    zpe::fuzz::saveFuzzObserver() = &counter;
    Prng seeds(seed);
    for (long i = 0; i < skip; ++i) (void)seeds.next();  // the runs a longer run of SEED made first
    const auto start = std::chrono::steady_clock::now();
    auto last = start;
    for (long i = 0; i < n; ++i) {
        runOne(counter, seeds.next(), rawPercent);
        if ((i & 255) == 255) {
            const auto now = std::chrono::steady_clock::now();
            if (now - last > std::chrono::seconds(30)) {
                last = now;
                const double s = std::chrono::duration<double>(now - start).count();
                std::fprintf(stderr, "... %ld runs, %.0f s, %.0f runs/s, %ld checks fired\n", i + 1, s, static_cast<double>(i + 1) / s,
                             counter.fired);
            }
        }
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("runs: %ld from seed %s in %.1f s (%.0f runs/s)\n", counter.runs, hexSeed(seed).c_str(), seconds,
                static_cast<double>(counter.runs) / seconds);
    std::printf("images opened: %ld (%.2f%%), not opened: %ld; structured: %ld of %ld opened (%.2f%%)\n", counter.openedCount,
                pct(counter.openedCount, counter.runs), counter.rejected, counter.structuredOpened, counter.structuredRuns,
                pct(counter.structuredOpened, counter.structuredRuns));
    std::printf("edit sequences run: %ld\n", counter.openedCount);
    for (const char* which : kStages) {
        if (std::strcmp(which, "Save") != 0 && !fullSave) continue;
        Stage& stage = counter.stages[which];
        std::printf("%s: %ld saved, %ld refused, %ld checks fired\n", which, stage.saved, stage.refused, stage.fired);
        printTop((std::string(which) + "'s refusals, by their first words").c_str(), stage.refusals, 10, true);
    }
    if (const long broken = counter.stages["Edit"].fired; broken > 0)
        std::printf("edits that left a sequence the editor cannot write: %ld\n", broken);
    if (counter.fired > 0) {
        printTop("checks before the write that fired (and edits that broke a sequence)", counter.checks, 50, true);
        return 1;
    }
    std::printf("no check before the write fired\n");
    return 0;
}

bool writeFile(const char* path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (out) return true;
    std::fprintf(stderr, "cannot write %s\n", path);
    return false;
}

int replay(uint64_t runSeed, bool fullSave, int rawPercent, const char* writeInput, const char* writeImage) {
    Counter counter;
    counter.verbose = true;
    counter.fullSave = fullSave;
    counter.rawPercent = rawPercent;
    zpe::fuzz::saveFuzzObserver() = &counter;
    const std::vector<uint8_t> input = inputFor(runSeed, rawPercent);
    if (writeInput && !writeFile(writeInput, input)) return 1;
    if (writeImage && !writeFile(writeImage, asImageFile(imageOf(input)))) return 1;
    std::printf("run seed %s: %s input of %zu bytes\n", hexSeed(runSeed).c_str(), (input[0] & 1) ? "structured" : "raw", input.size());
    runOne(counter, runSeed, rawPercent);
    return counter.fired > 0 ? 1 : 0;
}

// Opens structured images and compares what the open found with the layout.
int checkImages(long n, uint64_t seed) {
    Prng seeds(seed);
    const std::vector<std::string> names = zpe::fuzz::formationNames();
    long opened = 0, named = 0, namedFound = 0, reached = 0, countsMatch = 0, otherReading = 0, differences = 0;
    long nearlyFull = 0;
    std::array<long, zpe::fuzz::kFeatureCount> images{}, totals{};
    int64_t sequences = 0, freeBytes = 0;
    const auto start = std::chrono::steady_clock::now();
    for (long i = 0; i < n; ++i) {
        const uint64_t s = seeds.next();
        gRunSeed = s;
        const zpe::fuzz::StructuredImage image = zpe::fuzz::structuredImage(s);
        for (int f = 0; f < zpe::fuzz::kFeatureCount; ++f) {
            totals[static_cast<size_t>(f)] += image.features[static_cast<size_t>(f)];
            if (image.features[static_cast<size_t>(f)] > 0) ++images[static_cast<size_t>(f)];
        }
        freeBytes += image.freeBytes;
        if (image.freeBytes <= 40) ++nearlyFull;
        zpe::Playbook pb;
        try {
            zpe::Image file("check.nes", image.bytes);
            pb = zpe::loadPlaybook(file, names);
        } catch (const std::exception& e) {
            std::printf("run seed %s: the open stopped: %s\n", hexSeed(s).c_str(), e.what());
            ++differences;
            continue;
        }
        bool ok = !pb.sequences.empty();
        for (const zpe::clsPlaySlot& slot : pb.playSlots)
            if (static_cast<size_t>(slot.formation()) >= pb.formations.size()) ok = false;
        if (!ok) {
            std::printf("run seed %s: the image opens without a sequence or with a slot naming a formation beyond 22\n", hexSeed(s).c_str());
            ++differences;
            continue;
        }
        ++opened;
        sequences += static_cast<int64_t>(pb.sequences.size());
        for (const zpe::fuzz::ExpectedSequence& e : image.expected) {
            if (e.named) ++named;
            const zpe::clsSequence* seq = pb.sequences.find(zpe::SeqKey::at(e.address));
            if (!seq) {
                if (e.named) {
                    ++differences;
                    if (differences <= 10)
                        std::printf("run seed %s: no sequence found at %04X, which an entry names (%d commands expected)\n", hexSeed(s).c_str(),
                                    static_cast<unsigned>(e.address), e.commands);
                }
                continue;
            }
            if (e.named) ++namedFound;
            else ++reached;
            if (e.kickMatters && seq->kick() != e.kick) {
                ++otherReading;
                continue;
            }
            if (seq->commandCount() == e.commands && seq->isValid()) {
                ++countsMatch;
            } else {
                ++differences;
                if (differences <= 10)
                    std::printf("run seed %s: %04X read %s holds %d commands%s, the layout put %d there\n", hexSeed(s).c_str(),
                                static_cast<unsigned>(e.address), seq->kick() ? "the kick way" : "plainly", seq->commandCount(),
                                seq->isValid() ? "" : " (not valid)", e.commands);
            }
        }
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("images: %ld laid out and opened in %.1f s; %ld opened (%.2f%%)\n", n, seconds, opened, pct(opened, n));
    std::printf("sequences found per image: %.1f on average; free bytes of the area: %.0f on average; %ld images with 40 or fewer\n",
                opened ? static_cast<double>(sequences) / static_cast<double>(opened) : 0.0,
                n ? static_cast<double>(freeBytes) / static_cast<double>(n) : 0.0, nearlyFull);
    std::printf("entries' targets: %ld, found %ld (%.2f%%); closing jumps' targets reached: %ld\n", named, namedFound, pct(namedFound, named),
                reached);
    std::printf("found with the commands the layout put there: %ld; read the other way (an earlier entry's reading): %ld; differences: %ld\n",
                countsMatch, otherReading, differences);
    std::printf("structures laid (images holding one, total):\n");
    for (int f = 0; f < zpe::fuzz::kFeatureCount; ++f)
        std::printf("  %-30s %8ld %10ld\n", zpe::fuzz::kFeatureNames[static_cast<size_t>(f)], images[static_cast<size_t>(f)],
                    totals[static_cast<size_t>(f)]);
    return differences > 0 ? 1 : 0;
}

int usage() {
    std::fprintf(stderr,
                 "usage: save_fuzz_runner N [SEED] [--keep-going] [--save-only] [--raw PERCENT] [--skip K]\n"
                 "       save_fuzz_runner --replay RUNSEED [--save-only] [--raw PERCENT] [--write-input FILE] [--write-image FILE]\n"
                 "       save_fuzz_runner --check-images N [SEED]\n");
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    // Line by line, so what was printed before an abort is not lost with the buffer.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    std::signal(SIGABRT, onFatalSignal);
    std::signal(SIGSEGV, onFatalSignal);
    std::signal(SIGFPE, onFatalSignal);
    std::vector<std::string> positional;
    bool keepGoing = false;
    bool fullSave = true;
    int rawPercent = 5;
    long skip = 0;
    const char* writeInput = nullptr;
    const char* writeImage = nullptr;
    std::string mode = "run";
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--keep-going") keepGoing = true;
        else if (a == "--save-only") fullSave = false;
        else if (a == "--raw" && i + 1 < argc) rawPercent = std::clamp(std::atoi(argv[++i]), 0, 100);
        else if (a == "--write-input" && i + 1 < argc) writeInput = argv[++i];
        else if (a == "--skip" && i + 1 < argc) skip = std::max(0L, std::strtol(argv[++i], nullptr, 0));
        else if (a == "--write-image" && i + 1 < argc) writeImage = argv[++i];
        else if (a == "--replay") mode = "replay";
        else if (a == "--check-images") mode = "check";
        else if (!a.empty() && a[0] == '-') return usage();
        else positional.push_back(a);
    }
    gRawPercent = rawPercent;
    if (mode == "replay") {
        if (positional.size() != 1) return usage();
        return replay(parseSeed(positional[0].c_str()), fullSave, rawPercent, writeInput, writeImage);
    }
    if (positional.empty() || positional.size() > 2) return usage();
    const long n = std::strtol(positional[0].c_str(), nullptr, 0);
    const uint64_t seed = positional.size() > 1 ? parseSeed(positional[1].c_str()) : 1;
    if (n <= 0) return usage();
    if (mode == "check") return checkImages(n, seed);
    return runMany(n, seed, keepGoing, fullSave, rawPercent, skip);
}

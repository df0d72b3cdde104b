// zpe: the playbook editor's command line. Each verb opens the image, works
// and closes it; failures print one line on stderr and exit 1, usage errors 2.
// Verbs that read an image and then replace it hold a lock on it from the read
// to the rename, so two of them on one image take turns.
#include "analysis/check_report.h"
#include "analysis/playbook_diff.h"
#include "exchange/json_export.h"
#include "cli/json_import.h"
#include "exchange/play_file.h"
#include "patch/bps.h"
#include "diagram/diagram.h"
#include "analysis/entries.h"
#include "model/file_io.h"
#include "model/hex.h"
#include "model/image.h"
#include "model/rom_error.h"
#include "model/tables.h"
#include "model/text_file.h"
#include "playbook/list_rows.h"
#include "playbook/open_rom.h"
#include "playbook/slot_actions.h"
#include "render/png.h"
#include "analysis/references.h"
#include "save/compact.h"
#include "save/fork.h"
#include "save/ips.h"
#include "save/save_changes.h"
#include "save/saves.h"
#include "sequence/catalogue.h"
#include "sequence/sequence.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <optional>
#include <functional>
#include <iostream>
#include <string>
#include <unistd.h>
#if defined(__GLIBC__)
#include <malloc.h>
#include <sys/mman.h>
#endif

namespace {

constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

// The most commands `decode` lists unless --all is given.
constexpr int kDecodeListLimit = 4096;
// The largest picture `render` draws, each side in pixels.
constexpr int kMaxPictureSide = 4096;
// `-` as an output path: standard output.
constexpr const char* kStdout = "-";

// A usage error found after parsing (a malformed address, say).
struct UsageError {
    std::string message;
};
// A refusal or failure the user must read: one line on stderr, exit 1.
struct Failure {
    std::string message;
};

std::string executableFolder() {
    char buffer[PATH_MAX];
    const ssize_t n = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (n <= 0) return ".";
    std::string path(buffer, static_cast<size_t>(n));
    const auto slash = path.find_last_of('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

// A game address in hexadecimal, "A000" or "0xA000".
int32_t parseAddress(const std::string& text) {
    std::string digits = text;
    if (digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) digits = digits.substr(2);
    if (digits.empty() || digits.size() > 4 || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        throw UsageError{"ADDRESS must be a game address of one to four hexadecimal digits, not '" + text + "'"};
    return static_cast<int32_t>(zpe::leadingHexValue(digits));
}

// A number in decimal or with a 0x prefix in hexadecimal, from lo to hi.
int parseNumber(const std::string& text, int lo, int hi, const std::string& what) {
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const std::string digits = hex ? text.substr(2) : text;
    const char* allowed = hex ? "0123456789abcdefABCDEF" : "0123456789";
    if (!digits.empty() && digits.size() <= 6 && digits.find_first_not_of(allowed) == std::string::npos) {
        const long v = std::stol(digits, nullptr, hex ? 16 : 10);
        if (v >= lo && v <= hi) return static_cast<int>(v);
    }
    throw UsageError{what + " is a number from " + std::to_string(lo) + " to " + std::to_string(hi) +
                     " (decimal, or hexadecimal after 0x), not '" + text + "'"};
}

struct Context {
    std::string dataDir;
    zpe::CmdNames names;
    bool quiet = false;
    // Says what a writing verb did, in one line, unless --quiet.
    void said(const std::string& line) const {
        if (!quiet) std::cout << line << '\n';
    }
    // The same, said before the write lands: when standard output does not
    // take the line, the write is abandoned, so exit 1 means nothing was written.
    void confirm(const std::string& line) const;
};

// Output that could not be written (a full device, a closed pipe) is a
// failure: 0 when standard output took everything, kExitFailed (said on
// standard error) when not.
int flushedOutput() {
    static bool said = false;  // once is enough
    errno = 0;
    std::cout.flush();
    if (std::cout) return 0;
    if (!said) std::cerr << "zpe: cannot write to standard output" << (errno ? std::string(": ") + std::strerror(errno) : "") << '\n';
    said = true;
    return kExitFailed;
}

// A line saying what a writing verb does, printed before the write lands; a failed print abandons the write.
void printBeforeWrite(const std::string& line) {
    std::cout << line << '\n';
    if (flushedOutput() != 0) throw Failure{"what this verb did could not be said on standard output, so nothing was written"};
}

void Context::confirm(const std::string& line) const {
    if (!quiet) printBeforeWrite(line);
}

void sayHeaderless(const std::string& path, const Context& ctx) {
    // Said once, on standard error, so that a verb's output stays what it is.
    if (!ctx.quiet) std::cerr << "zpe: " << path << ": headerless image (no 16-byte header); it is read and saved as it is\n";
}

// The image's bytes as the open reads them (a headerless one with a blank
// header in front), for the verbs that read bytes rather than the playbook.
zpe::Image openHeadedOrFail(const std::string& path, const Context& ctx) {
    try {
        bool headerless = false;
        zpe::Image image = zpe::headedForm(zpe::Image::open(path), headerless);
        if (headerless) sayHeaderless(path, ctx);
        return image;
    } catch (const zpe::RomError& e) {
        throw Failure{e.what()};
    }
}

// Opens the image as the window does (cpu.txt is written only by the verb that asks for it).
zpe::Playbook openOrFail(const std::string& path, const Context& ctx) {
    try {
        zpe::Playbook pb = zpe::openRom(path, ctx.dataDir);
        if (pb.headerless) sayHeaderless(path, ctx);
        return pb;
    } catch (const zpe::RomError& e) {
        throw Failure{e.what()};
    }
}

// Writes `bytes` to `path` through the all-or-nothing writer, or to standard
// output for "-"; an output that is the image itself is refused.
void writeOutput(const std::string& path, const std::vector<uint8_t>& bytes, const std::string& image) {
    if (path == kStdout) {
        std::cout.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        return;
    }
    zpe::refuseSameFile(path, image);
    zpe::replaceFileContents(path, bytes);
}

int runDecode(const Context& ctx, const std::string& imagePath, const std::string& addressText, bool kr, bool all) {
    const int32_t address = parseAddress(addressText);
    if (address < zpe::kAddressOffsetDelta)
        throw UsageError{"game address " + zpe::hex4(address) + " lies before the image (its first byte is game address " +
                         zpe::hex4(zpe::kAddressOffsetDelta) + ")"};
    zpe::Image image = openHeadedOrFail(imagePath, ctx);
    zpe::clsSequence seq;
    seq.reset(address);
    image.seekOffset(zpe::offsetOfAddress(address));
    seq.load(image, kr);
    std::cout << seq.AddressRange() << '\n'
              << "size " << seq.byteSize() << '\n'
              << "next " << zpe::hex4(seq.nextSequence()) << '\n'
              << "valid " << (seq.isValid() ? "yes" : "no") << '\n';
    const int shown = all ? seq.commandCount() : std::min(seq.commandCount(), kDecodeListLimit);
    for (int i = 0; i < shown; ++i) std::cout << zpe::hex4(seq.commandAddress(i).readAddress()) << ": " << seq.commandName(i, ctx.names) << '\n';
    if (shown < seq.commandCount())
        std::cerr << "zpe: listed the first " << shown << " of " << seq.commandCount() << " commands; --all lists every one\n";
    if (seq.reachedImageEnd())
        std::cerr << "zpe: " << imagePath << ": the sequence runs to the end of the image, or past FFFF, without an end command\n";
    return 0;
}

// A cell as one field of a row: a name the image holds may contain a TAB, a
// line break or another control character, which would split the row, so
// each is written \xHH (and a backslash \\, so the text reads back unambiguously).
std::string listCell(const std::string& cell) {
    std::string out;
    for (const char ch : cell) {
        const auto c = static_cast<unsigned char>(ch);
        if (c == '\\') {
            out += "\\\\";
        } else if (c < 0x20 || c == 0x7F) {
            out += "\\x";
            out += zpe::hex2(c);
        } else {
            out.push_back(ch);
        }
    }
    return zpe::latin1ToUtf8(out);
}

// The rows as UTF-8 text, as `zpe json` writes names: an image's 8-bit
// names (formations, slots) are Latin-1.
void printRows(const char* title, const std::vector<zpe::ListRow>& rows, bool numbered) {
    std::cout << "## " << title << '\n';
    for (size_t r = 0; r < rows.size(); ++r) {
        if (numbered) std::cout << r << '\t';
        for (size_t i = 0; i < rows[r].cells.size(); ++i) std::cout << (i ? "\t" : "") << listCell(rows[r].cells[i]);
        std::cout << '\n';
    }
}

int runLists(const Context& ctx, const std::string& imagePath, bool numbered) {
    const zpe::ListRows rows = zpe::buildRows(openOrFail(imagePath, ctx), ctx.names);
    printRows("Formations", rows.formations, numbered);
    printRows("Play Slots", rows.playSlots, numbered);
    printRows("Plays", rows.plays, numbered);
    printRows("Sequences", rows.sequences, numbered);
    return 0;
}

int runCpu(const Context& ctx, const std::string& imagePath, const std::string& outPath) {
    const std::string text = zpe::gapListing(openOrFail(imagePath, ctx));
    writeOutput(outPath, std::vector<uint8_t>(text.begin(), text.end()), imagePath);
    if (outPath != kStdout) ctx.said("wrote the gap listing to " + outPath + "; " + std::to_string(text.size()) + " bytes");
    return 0;
}

int runSlotAction(const Context& ctx, const std::string& imagePath, const std::string& first, const std::string& second,
                  bool swap) {
    const int a = parseNumber(first, 0, zpe::kSlotCount - 1, "a slot"), b = parseNumber(second, 0, zpe::kSlotCount - 1, "a slot");
    const zpe::FileLock lock(imagePath);
    zpe::Playbook pb = openOrFail(imagePath, ctx);
    const zpe::SlotActionResult result = swap ? zpe::swapSlot(pb, a, b) : zpe::copySlot(pb, a, b);
    if (result.outcome == zpe::SlotActionOutcome::KindMixed) throw Failure{imagePath + ": " + zpe::kKindRefusedMessage};
    if (result.outcome == zpe::SlotActionOutcome::SameSlot) throw Failure{imagePath + ": " + zpe::kActionCancelledMessage};
    const std::vector<uint8_t> before = pb.openedBytes;
    zpe::safeSave(pb, [&](const std::vector<uint8_t>& bytes) {
        size_t changed = 0;
        for (size_t i = 0; i < before.size() && i < bytes.size(); ++i) changed += before[i] != bytes[i];
        ctx.confirm(std::string(swap ? "swapped slots " : "copied slot ") + std::to_string(a) + (swap ? " and " : " over slot ") +
                    std::to_string(b) + "; " + std::to_string(changed) + " bytes written");
    });
    return 0;
}

int runFullSave(const Context& ctx, const std::string& imagePath) {
    const zpe::FileLock lock(imagePath);
    zpe::Playbook pb = openOrFail(imagePath, ctx);
    zpe::fullSave(pb, [&](const zpe::Playbook& relaid) {
        ctx.confirm("laid out " + std::to_string(relaid.sequences.size()) + " sequences from A000 and rewrote every table");
    });
    return 0;
}

int runExportMask(const Context& ctx, const std::string& imagePath, const std::string& outPath) {
    const zpe::Playbook pb = openOrFail(imagePath, ctx);
    std::vector<uint8_t> existing;
    if (outPath != kStdout) {
        zpe::refuseSameFile(outPath, imagePath);
        if (::access(outPath.c_str(), F_OK) == 0) existing = zpe::readWholeFile(outPath);
    }
    const std::vector<uint8_t> mask = zpe::maskBytes(pb, std::move(existing));
    writeOutput(outPath, mask, imagePath);
    if (outPath != kStdout) ctx.said("wrote the mask of " + std::to_string(pb.sequences.size()) + " sequences to " + outPath);
    return 0;
}

struct ExportPlayRequest {
    std::string play, slot, slotPlay, out;  // as given; empty: not given
};

// A play file of one play (--play P), or of a slot's play with its formation (--slot S [--slot-play K]).
int runExportPlay(const Context& ctx, const std::string& imagePath, const ExportPlayRequest& r) {
    if (r.play.empty() == r.slot.empty()) throw UsageError{"export-play needs exactly one of --play P, --slot S"};
    if (!r.slotPlay.empty() && r.slot.empty()) throw UsageError{"--slot-play needs --slot"};
    const zpe::Playbook pb = openOrFail(imagePath, ctx);
    std::optional<int> slot;
    int play = 0;
    if (!r.slot.empty()) {
        slot = parseNumber(r.slot, 0, zpe::kSlotCount - 1, "--slot");
        const int k = r.slotPlay.empty() ? 1 : parseNumber(r.slotPlay, 1, zpe::kPlaysPerSlot, "--slot-play");
        play = pb.playSlots[static_cast<size_t>(*slot)].oPlay(k - 1);
        if (play >= zpe::kPlayCount)
            throw Failure{imagePath + ": " + zpe::slotName(*slot) + " names play " + std::to_string(play) + ", which the play table does not hold"};
    } else {
        play = parseNumber(r.play, 0, zpe::kPlayCount - 1, "--play");
    }
    const std::string text = zpe::playFile(pb, play, slot, std::filesystem::path(imagePath).filename().string()).dump(1) + "\n";
    writeOutput(r.out, std::vector<uint8_t>(text.begin(), text.end()), imagePath);
    if (r.out != kStdout) ctx.said("wrote " + zpe::playName(play) + (slot ? " of " + zpe::slotName(*slot) + " with its formation" : "") + " to " + r.out);
    return 0;
}

// What a verb's dry run says: the real run's line, and that nothing was written.
void sayDryRun(const std::string& line) { std::cout << line << " (dry run: nothing written)\n"; }

// A play file brought into play Q: copied into free bytes, every field relinked, what the image runs already reused.
int runImportPlay(const Context& ctx, const std::string& imagePath, const std::string& filePath, const std::string& play, bool dryRun) {
    if (play.empty()) throw UsageError{"import-play needs --play Q (the play 0-115 that is to run the file's play)"};
    const int q = parseNumber(play, 0, zpe::kPlayCount - 1, "--play");
    const zpe::PlayFile file = zpe::readPlayFile(filePath);
    const zpe::FileLock lock(imagePath);
    zpe::Playbook pb = openOrFail(imagePath, ctx);
    if (dryRun) {
        sayDryRun(zpe::planPlayImport(pb, file.play, q).summary.text());
        return 0;
    }
    (void)zpe::importPlay(pb, file.play, q, ctx.dataDir, [&](const zpe::PlayImportSummary& s) { ctx.confirm(s.text()); });
    return 0;
}

// A slot file of slot S: its record, its formation and its plays with everything the game runs from them.
int runExportSlot(const Context& ctx, const std::string& imagePath, const std::string& slotText, const std::string& out) {
    if (slotText.empty()) throw UsageError{"export-slot needs --slot S (0-63)"};
    const int slot = parseNumber(slotText, 0, zpe::kSlotCount - 1, "--slot");
    const zpe::Playbook pb = openOrFail(imagePath, ctx);
    const std::string text = zpe::slotFile(pb, slot, std::filesystem::path(imagePath).filename().string()).dump(1) + "\n";
    writeOutput(out, std::vector<uint8_t>(text.begin(), text.end()), imagePath);
    if (out != kStdout) ctx.said("wrote " + zpe::slotName(slot) + " to " + out);
    return 0;
}

// A slot file brought into slot T: its formation and plays into records no other slot uses (or reused), its record written.
int runImportSlot(const Context& ctx, const std::string& imagePath, const std::string& filePath, const std::string& slotText, bool dryRun) {
    if (slotText.empty()) throw UsageError{"import-slot needs --slot T (the slot 0-63 that is to hold the file's slot)"};
    const int target = parseNumber(slotText, 0, zpe::kSlotCount - 1, "--slot");
    const zpe::SlotsFile file = zpe::readSlotFile(filePath);
    const zpe::FileLock lock(imagePath);
    zpe::Playbook pb = openOrFail(imagePath, ctx);
    const zpe::BookImportPlan plan = zpe::planSlotImport(pb, file.book, target);
    if (dryRun) {
        sayDryRun(plan.summary.text());
        return 0;
    }
    (void)zpe::importBook(pb, plan, ctx.dataDir, [&](const zpe::BookImportSummary& s) { ctx.confirm(s.text()); });
    return 0;
}

// All 64 slots into a playbook file.
int runExportPlaybook(const Context& ctx, const std::string& imagePath, const std::string& out) {
    const zpe::Playbook pb = openOrFail(imagePath, ctx);
    const std::string text = zpe::playbookFile(pb, std::filesystem::path(imagePath).filename().string()).dump(1) + "\n";
    writeOutput(out, std::vector<uint8_t>(text.begin(), text.end()), imagePath);
    if (out != kStdout) ctx.said("wrote the playbook's 64 slots to " + out);
    return 0;
}

// A playbook file brought in whole: every slot replaced, formations and plays reused or copied.
int runImportPlaybook(const Context& ctx, const std::string& imagePath, const std::string& filePath, bool dryRun) {
    const zpe::SlotsFile file = zpe::readPlaybookFile(filePath);
    const zpe::FileLock lock(imagePath);
    zpe::Playbook pb = openOrFail(imagePath, ctx);
    const zpe::BookImportPlan plan = zpe::planPlaybookImport(pb, file.book);
    if (dryRun) {
        sayDryRun(plan.summary.text());
        return 0;
    }
    (void)zpe::importBook(pb, plan, ctx.dataDir, [&](const zpe::BookImportSummary& s) { ctx.confirm(s.text()); });
    return 0;
}

int runJson(const Context& ctx, const std::string& imagePath) {
    zpe::writePlaybookJson(std::cout, openOrFail(imagePath, ctx), ctx.names);
    return 0;
}

std::string baseName(const std::string& path) {
    const auto slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// A save names a sequence the file makes by the key the import gave it
// ("new sequence 2", "new 2"); the user knows it by the file's label:
// " (new 2: \"wr-post\" in the file)" for each one `what` names, "" when it names none.
std::string labelsNamed(const std::string& what, const std::vector<std::pair<zpe::SeqKey, std::string>>& labels) {
    auto names = [&](const std::string& name) {
        for (size_t at = what.find(name); at != std::string::npos; at = what.find(name, at + 1)) {
            const size_t after = at + name.size();
            if (after >= what.size() || !std::isdigit(static_cast<unsigned char>(what[after]))) return true;  // not "new 1" of "new 12"
        }
        return false;
    };
    std::string legend;
    for (const auto& [key, label] : labels)
        if (names(zpe::sequenceKeyText(key)) || names(zpe::sequenceName(key)))
            legend += (legend.empty() ? "" : ", ") + zpe::sequenceKeyText(key) + ": \"" + label + "\" in the file";
    return legend.empty() ? "" : " (" + legend + ")";
}

int runImport(const Context& ctx, const std::string& imagePath, const std::string& jsonPath, bool dryRun, bool force) {
    const std::vector<uint8_t> bytes = zpe::readWholeFile(jsonPath);
    nlohmann::json doc;
    // A playbook file nests five levels and holds some tens of thousands of
    // values; before the reader builds anything, the text is measured, and one
    // nesting or holding far more is refused (a file of nothing but "[" would
    // take hundreds of megabytes to read).
    constexpr int kMaxDepth = 64;
    constexpr long kMaxValues = 400000;
    int depth = 0;
    long values = 0;
    // What each byte outside a string means to the measure: 1 a quote (a string
    // begins), 2 an opening bracket (one level deeper, one value more), 3 a
    // closing one, 4 a comma or colon (one value more); 0 nothing.
    static constexpr std::array<uint8_t, 256> kMeasured = [] {
        std::array<uint8_t, 256> k{};
        k['"'] = 1;
        k['['] = k['{'] = 2;
        k[']'] = k['}'] = 3;
        k[','] = k[':'] = 4;
        return k;
    }();
    for (size_t i = 0, n = bytes.size(); i < n;) {
        switch (kMeasured[bytes[i++]]) {
        case 0: continue;
        case 1:  // a string, to its closing quote; a backslash takes the byte after it along
            while (i < n) {
                const uint8_t c = bytes[i++];
                if (c == '\\') ++i;
                else if (c == '"') break;
            }
            continue;
        case 2: ++depth, ++values; break;
        case 3: --depth; continue;
        default: ++values; break;
        }
        if (depth > kMaxDepth || values > kMaxValues)
            throw Failure{jsonPath + ": not a playbook file: it " +
                          (depth > kMaxDepth ? "nests lists and objects deeper than " + std::to_string(kMaxDepth) + " levels"
                                             : "holds more than " + std::to_string(kMaxValues) + " values") +
                          " (a playbook file nests 5 and holds far fewer); nothing was written"};
    }
    if (const long nul = zpe::nulByteIn(bytes); nul >= 0)
        throw Failure{jsonPath + ": not JSON: a NUL byte at byte " + std::to_string(nul) + "; nothing was written"};
    try {
        doc = zpe::parseJsonText(bytes);
    } catch (const nlohmann::json::parse_error& e) {
        throw Failure{jsonPath + ": not JSON: the text breaks off or goes wrong at byte " + std::to_string(e.byte) +
                      "; nothing was written"};
    } catch (const nlohmann::json::exception& e) {
        // A number beyond any range (1e400): the reader names it as written, between quotes.
        const std::string what = e.what();
        const auto open = what.find('\''), close = what.rfind('\'');
        const std::string number = open != std::string::npos && close > open ? " " + what.substr(open + 1, close - open - 1) : "";
        throw Failure{jsonPath + ": not JSON this program can read: the number" + number +
                      " is beyond any range a value here takes; nothing was written"};
    }
    const zpe::FileLock lock(imagePath);
    // The image as read stays beside the edited copy: Save's plan takes it
    // as the image's reading instead of reading the bytes once more.
    const zpe::Playbook opened = openOrFail(imagePath, ctx);
    zpe::Playbook pb;
    std::vector<std::pair<zpe::SeqKey, std::string>> labels;
    try {
        if (!force) zpe::requireSameImage(doc, zpe::fileSpan(opened), baseName(jsonPath), baseName(imagePath));
        pb = zpe::importedPlaybook(opened, doc, ctx.names, nullptr, &labels);
    } catch (const zpe::ImportError& e) {
        throw Failure{jsonPath + ": " + e.what() + "; nothing was written"};
    } catch (const nlohmann::json::exception& e) {
        throw Failure{jsonPath + ": " + e.what() + "; nothing was written"};
    }
    doc = nullptr;  // its memory serves the plan
    try {
        if (dryRun) {
            zpe::requireUnchangedImage(pb);
            sayDryRun(zpe::planSave(pb, pb.openedBytes, &opened).summary.text());
            return 0;
        }
        (void)zpe::saveChanges(pb, [&](const zpe::SaveSummary& summary) { ctx.confirm(summary.text()); }, nullptr, &opened);
    } catch (const std::runtime_error& e) {
        throw Failure{std::string(e.what()) + labelsNamed(e.what(), labels)};
    }
    return 0;
}

int runCompact(const Context& ctx, const std::string& imagePath, bool dryRun) {
    const zpe::FileLock lock(imagePath);
    zpe::Playbook pb = openOrFail(imagePath, ctx);
    if (dryRun) {
        sayDryRun(zpe::planCompact(pb).summary.text());
        return 0;
    }
    (void)zpe::compactImage(pb, ctx.dataDir, [&](const zpe::CompactSummary& s) { ctx.confirm(s.text()); });
    return 0;
}

int runRefs(const Context& ctx, const std::string& imagePath, const std::string& addressText, bool asJson) {
    const int32_t address = parseAddress(addressText);
    const zpe::References refs = zpe::referencesTo(openOrFail(imagePath, ctx), zpe::SeqKey::at(address));
    if (asJson) {
        nlohmann::ordered_json entries = nlohmann::ordered_json::array(), fields = nlohmann::ordered_json::array();
        for (const zpe::AreaEntry& e : refs.entries) entries.push_back(e.name());
        for (const zpe::AddressField& f : refs.fields) fields.push_back({{"at", zpe::hex4(f.at)}, {"code", zpe::hex2(f.code)}});
        std::cout << nlohmann::ordered_json{{"entries", entries}, {"fields", fields}}.dump(1) << '\n';
        return 0;
    }
    for (const zpe::AreaEntry& e : refs.entries) std::cout << e.name() << '\n';
    for (const zpe::AddressField& f : refs.fields) std::cout << zpe::hex4(f.at) << " " << zpe::hex2(f.code) << '\n';
    return 0;
}

// A player of a record: 0 to 10, or his position's name (QB, RB, FB, ... RT;
// the older list names RB1, RB2, G1, G2, T1, T2 are taken too).
int parsePlayer(const std::string& text, const std::string& what = "--player") {
    for (int j = 0; j < zpe::kPlayersPerRecord; ++j)
        if (text == zpe::positionName(j)) return j;
    static const std::pair<const char*, int> kOlderNames[] = {{"RB1", 1}, {"RB2", 2}, {"G1", 7}, {"G2", 8}, {"T1", 9}, {"T2", 10}};
    for (const auto& [name, j] : kOlderNames)
        if (text == name) return j;
    return parseNumber(text, 0, zpe::kPlayersPerRecord - 1, what + " (or a position name, QB to RT)");
}

struct ForkRequest {
    std::string play, player, formation, position, pointer;  // as given; empty: not given
};

int runFork(const Context& ctx, const std::string& imagePath, const ForkRequest& r, bool dryRun) {
    const int given = !r.play.empty() + !r.formation.empty() + !r.pointer.empty();
    if (given != 1) throw UsageError{"fork needs exactly one of --play P --player J, --formation F --position J, --pointer K"};
    if (!r.play.empty() && r.player.empty()) throw UsageError{"--play needs --player (0 to 10, or a position name, QB to RT)"};
    if (!r.formation.empty() && r.position.empty()) throw UsageError{"--formation needs --position (0 to 10, or a position name, QB to RT)"};
    const zpe::FileLock lock(imagePath);
    zpe::Playbook pb = openOrFail(imagePath, ctx);
    zpe::AreaEntry entry{zpe::AreaEntry::Table::Pointer, 0, 0, {}};
    if (!r.play.empty()) {
        const int play = parseNumber(r.play, 0, zpe::kPlayCount - 1, "--play");
        const int player = parsePlayer(r.player, "--player");
        entry = {zpe::AreaEntry::Table::Play, play, player, pb.plays[static_cast<size_t>(play)].seqAddress(player)};
    } else if (!r.formation.empty()) {
        const int formation = parseNumber(r.formation, 0, static_cast<int>(pb.formations.size()) - 1, "--formation (a line of forms.txt, from 0)");
        const int position = parsePlayer(r.position, "--position");
        entry = {zpe::AreaEntry::Table::Formation, formation, position, pb.formations[static_cast<size_t>(formation)].posAddress(position)};
    } else {
        entry.index = parseNumber(r.pointer, 0, zpe::kPointerCount - 1, "--pointer");
        entry.target = pb.seqPointers[static_cast<size_t>(entry.index)];
    }
    if (dryRun) {
        sayDryRun(zpe::planFork(pb, entry).summary.text());
        return 0;
    }
    (void)zpe::forkEntry(pb, entry, ctx.dataDir, [&](const zpe::ForkSummary& s) { ctx.confirm(s.text()); });
    return 0;
}

// A player by number (0-10) or position name (QB, RB, FB, ... RT).
std::string pointSource(const zpe::Playbook& pb, const zpe::DiagramPoint& pt, const Context& ctx) {
    const int code = pb.sequences.at(pt.sequence).command(pt.command);
    std::string name = ctx.names[static_cast<size_t>(code & 0xFF)];
    while (!name.empty() && name.back() == ' ') name.pop_back();
    return zpe::sequenceKeyText(pt.sequence) + " command " + std::to_string(pt.command) + ", " + name;
}

int runPoints(const Context& ctx, const std::string& imagePath, const std::string& slotText, const std::string& playText, bool asJson) {
    const int slot = parseNumber(slotText, 0, zpe::kSlotCount - 1, "a slot");
    const int play = parseNumber(playText, 1, zpe::kPlaysPerSlot, "--play");
    const zpe::Playbook pb = openOrFail(imagePath, ctx);
    const auto points = zpe::playPoints(pb, slot, play - 1);
    if (asJson) {
        nlohmann::ordered_json players = nlohmann::ordered_json::array();
        for (const auto& list : points) {
            nlohmann::ordered_json one = nlohmann::ordered_json::array();
            for (const zpe::DiagramPoint& pt : list)
                one.push_back({{"x", pt.x}, {"y", pt.y}, {"sequence", zpe::sequenceKeyText(pt.sequence)}, {"command", pt.command}});
            players.push_back(one);
        }
        std::cout << nlohmann::ordered_json{{"players", players}}.dump(1) << '\n';
        return 0;
    }
    for (size_t j = 0; j < points.size(); ++j) {
        std::cout << zpe::positionName(static_cast<int>(j));
        for (size_t k = 0; k < points[j].size(); ++k)
            std::cout << "  " << k + 1 << ": " << points[j][k].x << "," << points[j][k].y << " ("
                      << pointSource(pb, points[j][k], ctx) << ")";
        std::cout << '\n';
    }
    return 0;
}

struct MoveRequest {
    std::string slot, play = "1", player, point, to;
};

int runMovePoint(const Context& ctx, const std::string& imagePath, const MoveRequest& r, bool dryRun) {
    const int slot = parseNumber(r.slot, 0, zpe::kSlotCount - 1, "a slot");
    const int play = parseNumber(r.play, 1, zpe::kPlaysPerSlot, "--play");
    const int player = parsePlayer(r.player);
    const int point = parseNumber(r.point, 1, 99999, "--point");
    int x = 0, y = 0;
    {
        const auto comma = r.to.find(',');
        auto number = [&](const std::string& t) {
            const bool negative = !t.empty() && t[0] == '-';
            try {
                return (negative ? -1 : 1) * parseNumber(negative ? t.substr(1) : t, 0, 32767, "--to X,Y (pixels)");
            } catch (const UsageError&) {  // named as typed, sign included
                throw UsageError{"--to X,Y (pixels) is a number from -32767 to 32767 (decimal, or hexadecimal after 0x), not '" + t + "'"};
            }
        };
        if (comma == std::string::npos) throw UsageError{"--to is X,Y in pixels of the picture's default size, not '" + r.to + "'"};
        x = number(r.to.substr(0, comma));
        y = number(r.to.substr(comma + 1));
    }
    const zpe::FileLock lock(imagePath);
    zpe::Playbook pb = openOrFail(imagePath, ctx);
    const auto points = zpe::playPoints(pb, slot, play - 1);
    const auto& list = points[static_cast<size_t>(player)];
    const std::string who = "player " + zpe::positionName(player);
    if (static_cast<size_t>(point) > list.size())
        throw Failure{imagePath + ": " + who + " has " + std::to_string(list.size()) + " points in slot " + std::to_string(slot) +
                      " play " + std::to_string(play) + "; nothing was written"};
    const zpe::DiagramPoint at = list[static_cast<size_t>(point - 1)];
    // The pen before the point: the point before it, which may be the previous player's last.
    zpe::DiagramPoint pen;
    if (point > 1) pen = list[static_cast<size_t>(point - 2)];
    else
        for (int j = 0; j < player; ++j)
            if (!points[static_cast<size_t>(j)].empty()) pen = points[static_cast<size_t>(j)].back();
    const zpe::Playbook opened = pb;  // as read: what a change of a command shown by other sequences is measured against
    zpe::clsSequence& seq = pb.sequences.at(at.sequence);
    const std::string what = who + " point " + std::to_string(point) + " (" + pointSource(pb, at, ctx) + ")";
    zpe::DiagramPoint nearest;
    const auto data = zpe::dataForPoint(seq.command(at.command), pen.x, pen.y, x, y, seq.data(at.command, 0), seq.data(at.command, 1),
                                        &nearest);
    if (!data)
        throw Failure{imagePath + ": " + what + " cannot reach " + std::to_string(x) + "," + std::to_string(y) +
                      "; the nearest it can reach is " + std::to_string(nearest.x) + "," + std::to_string(nearest.y) +
                      ". Nothing was written"};
    const bool moves = seq.data(at.command, 0) != data->first || seq.data(at.command, 1) != data->second;
    seq.data(at.command, 0, static_cast<int16_t>(data->first));
    seq.data(at.command, 1, static_cast<int16_t>(data->second));
    std::string line = what + " now at " + std::to_string(x) + "," + std::to_string(y) + ".";
    // Another sequence showing the same command of the image (overlapping, or
    // a loop read again from where it goes back to) shows the change too: the
    // game runs that command once for all of them (see withSharedValueEdits).
    if (const std::optional<zpe::Playbook> shared = zpe::withSharedValueEdits(pb, opened)) {
        std::vector<std::string> also;
        for (const auto& [key, other] : shared->sequences)
            for (size_t i = 0; key != at.sequence && i < other.commands().size(); ++i)
                if (other.commands()[i] != pb.sequences.at(key).commands()[i])
                    also.push_back(zpe::sequenceKeyText(key) + " command " + std::to_string(i));
        for (size_t i = 0; i < also.size(); ++i)
            line += (i ? ", " : " It is also ") + also[i] + (i + 1 < also.size() ? "" : also.size() > 1 ? ", which change with it." : ", which changes with it.");
    }
    if (const size_t users = zpe::entriesNaming(pb, at.sequence).size(); users > 1 && moves)
        line += " " + zpe::sequenceKeyText(at.sequence) + " is run by " + std::to_string(users) +
                " entries, which all change (zpe fork gives one its own copy first).";
    if (dryRun) {  // the whole write is planned and checked, as the real run would: only the file is left alone
        const zpe::SavePlan plan = zpe::planSave(pb, zpe::readUnchangedImage(pb));
        sayDryRun(line + " " + plan.summary.text());
        return 0;
    }
    // The real run says what the dry run said, the summary of what was written included.
    (void)zpe::saveChanges(pb, [&](const zpe::SaveSummary& summary) { ctx.confirm(line + " " + summary.text()); });
    return 0;
}

int runCheck(const Context& ctx, const std::string& imagePath, bool asJson) {
    const zpe::AreaMap map = zpe::buildAreaMap(openOrFail(imagePath, ctx));
    if (asJson) std::cout << zpe::areaMapJson(map).dump(1) << '\n';
    else std::cout << zpe::checkReport(map);
    return 0;
}

int runTrace(const Context& ctx, const std::string& imagePath, const std::string& addressText) {
    const int32_t address = parseAddress(addressText);
    if (!zpe::inArea(address)) throw UsageError{"ADDRESS must lie in the sequence area A000-BFFF, not " + zpe::hex4(address)};
    const zpe::Image image = openHeadedOrFail(imagePath, ctx);
    const auto area = zpe::areaBytes(image.bytes());
    for (const zpe::GameCommand& c : zpe::traceFrom(image.bytes(), address))
        std::cout << zpe::hex4(c.address) << ": " << zpe::gameCommandText(c, area, ctx.names) << '\n';
    return 0;
}

int runDiff(const Context& ctx, const std::string& originalPath, const std::string& editedPath, const std::string& ipsPath,
            const std::string& bpsPath) {
    const zpe::Playbook original = openOrFail(originalPath, ctx), edited = openOrFail(editedPath, ctx);
    // A patch is made in the images' own form; between the two forms none would apply to either.
    if ((!ipsPath.empty() || !bpsPath.empty()) && original.headerless != edited.headerless)
        throw Failure{(original.headerless ? originalPath : editedPath) + " is headerless and " +
                      (original.headerless ? editedPath : originalPath) +
                      " has the 16-byte header: a patch between two forms would apply to neither; nothing was written"};
    if (!ipsPath.empty() && original.headerless && !ctx.quiet)
        std::cerr << "zpe: the IPS patch is for headerless images (its offsets count from the file's first byte): "
                     "apply it with zpe patch --ips-for headerless\n";
    for (const std::string& line : zpe::describeDifferences(original, edited)) std::cout << line << '\n';
    if (!ipsPath.empty()) {
        zpe::refuseSameFile(ipsPath, editedPath);
        zpe::refuseSameFile(ipsPath, originalPath);
        writeOutput(ipsPath, zpe::makeIps(zpe::fileBytes(original, original.openedBytes), zpe::fileBytes(edited, edited.openedBytes)),
                    originalPath);
    }
    if (!bpsPath.empty()) {
        zpe::refuseSameFile(bpsPath, editedPath);
        zpe::refuseSameFile(bpsPath, originalPath);
        writeOutput(bpsPath, zpe::makeBps(zpe::fileBytes(original, original.openedBytes), zpe::fileBytes(edited, edited.openedBytes)),
                    originalPath);
    }
    return 0;
}

// An IPS patch does not say which form of the image it was made for, and the
// two forms' offsets differ by the 16-byte header. Applied to a headerless
// image it needs --ips-for: "headed" applies it to the image with a blank
// header in front (and refuses a patch that writes into that header), then
// takes the header off; "headerless" applies it as it is. On a headed image
// an IPS is for the headed form unless --ips-for headerless says otherwise.
// A BPS patch names its source by CRC-32, so the form needs no saying.
std::vector<uint8_t> patchedInForm(const std::vector<uint8_t>& original, const std::vector<uint8_t>& patch, const std::string& ipsFor,
                                   const std::string& patchPath, const std::string& imagePath) {
    if (zpe::isBps(patch)) {
        if (!ipsFor.empty()) throw UsageError{"--ips-for is for IPS patches; " + patchPath + " is a BPS patch, which names its image by CRC-32"};
        return zpe::applyPatch(original, patch, zpe::kMaxFileSize);
    }
    const zpe::ImageForm form = zpe::imageForm(original);
    if (ipsFor.empty() && form == zpe::ImageForm::Headerless)
        throw Failure{imagePath + " is a headerless image, and an IPS patch does not say which form it was made for (their offsets differ by "
                      "16); say --ips-for headed (made from the image with its 16-byte header) or --ips-for headerless; nothing was written"};
    const bool headed = ipsFor.empty() || ipsFor == "headed";
    if (headed == (form != zpe::ImageForm::Headerless)) return zpe::applyPatch(original, patch, zpe::kMaxFileSize);
    if (headed) {  // a headed patch on a headerless file
        std::vector<uint8_t> result = zpe::applyPatch(zpe::withHeader(original), patch, zpe::kMaxFileSize);
        if (result.size() < 16 || std::any_of(result.begin(), result.begin() + 16, [](uint8_t b) { return b != 0; }))
            throw Failure{patchPath + " writes into the 16-byte header, which " + imagePath + " has not; nothing was written"};
        return zpe::withoutHeader(result);
    }
    // A headerless patch on a headed file: applied behind the header, which stays.
    std::vector<uint8_t> result = zpe::applyPatch(zpe::withoutHeader(original), patch, zpe::kMaxFileSize);
    result.insert(result.begin(), original.begin(), original.begin() + std::min<std::ptrdiff_t>(16, static_cast<std::ptrdiff_t>(original.size())));
    return result;
}

int runPatch(const Context& ctx, const std::string& imagePath, const std::string& patchPath, const std::string& outPath,
             const std::string& ipsFor, bool force, bool resize) {
    if (!ipsFor.empty() && ipsFor != "headed" && ipsFor != "headerless")
        throw UsageError{"--ips-for is headed or headerless, not '" + ipsFor + "'"};
    const bool toStdout = outPath == kStdout;
    const std::string target = outPath.empty() || toStdout ? imagePath : outPath;
    if (!outPath.empty() && !toStdout) zpe::refuseSameFile(outPath, patchPath, "the patch");
    const zpe::FileLock lock(target);
    std::vector<uint8_t> patched;
    const std::vector<uint8_t> original = zpe::readWholeFile(imagePath);
    try {
        patched = patchedInForm(original, zpe::readWholeFile(patchPath), ipsFor, patchPath, imagePath);
    } catch (const zpe::PatchError& e) {
        throw Failure{patchPath + ": " + e.what() + "; nothing was written"};
    }
    // A patch changes the image, not its shape: a cut after "EOF" or records past the end only with --resize.
    if (patched.size() != original.size() && !resize)
        throw Failure{patchPath + ": the patch would make " + imagePath + " " + std::to_string(patched.size()) + " bytes long, not " +
                      std::to_string(original.size()) + " (" + (patched.size() < original.size() ? "it cuts the image" : "it writes past its end") +
                      "); nothing was written (--resize allows it)"};
    // Like every write: what would not open as an image of the game is refused before it lands.
    if (!force) {
        try {
            (void)zpe::openImage(zpe::Image(target, patched), ctx.dataDir);
        } catch (const zpe::RomError& e) {
            throw Failure{patchPath + ": the patched image would not open (" + e.what() +
                          "); nothing was written (--force writes it anyway)"};
        }
    }
    if (toStdout) {
        writeOutput(kStdout, patched, imagePath);
        return 0;
    }
    zpe::replaceFileContents(target, patched, [&] { ctx.confirm("applied " + patchPath + " to " + target); });
    return 0;
}

// "WxH" in pixels, each 1 to kMaxPictureSide.
std::pair<int, int> parseSize(const std::string& text) {
    const auto x = text.find_first_of("xX");
    if (x != std::string::npos) {
        try {
            return {parseNumber(text.substr(0, x), 1, kMaxPictureSide, "a width"),
                    parseNumber(text.substr(x + 1), 1, kMaxPictureSide, "a height")};
        } catch (const UsageError&) {
        }
    }
    throw UsageError{"--size must be WIDTHxHEIGHT in pixels (1 to " + std::to_string(kMaxPictureSide) + " each), not '" +
                     text + "'"};
}

// The picture boxes' design sizes: 4935 x 3255 and 2055 x 3255 twips at 15 twips a pixel.
constexpr int kTwipsPerPixel = 15;
constexpr std::pair<int, int> kPlayPictureSize{4935 / kTwipsPerPixel, 3255 / kTwipsPerPixel};
constexpr std::pair<int, int> kFormationPictureSize{2055 / kTwipsPerPixel, 3255 / kTwipsPerPixel};

struct RenderRequest {
    int slot = -1, formation = -1, play = 1, scale = 1;
    std::string out, size;
};

int runRender(const Context& ctx, const std::string& imagePath, const RenderRequest& r) {
    const bool drawSlot = r.slot >= 0;
    if (drawSlot == (r.formation >= 0)) throw UsageError{"render needs exactly one of --slot and --formation"};
    if (drawSlot && r.slot >= zpe::kSlotCount) throw UsageError{"--slot is a number from 0 to 63"};
    if (r.play < 1 || r.play > zpe::kPlaysPerSlot) throw UsageError{"--play is a number from 1 to 8"};
    const auto size = r.size.empty() ? (drawSlot ? kPlayPictureSize : kFormationPictureSize) : parseSize(r.size);
    if (r.scale < 1) throw UsageError{"--scale is a whole number from 1 up, not " + std::to_string(r.scale)};
    if (static_cast<long>(size.first) * r.scale > kMaxPictureSide ||
        static_cast<long>(size.second) * r.scale > kMaxPictureSide)
        throw UsageError{"--scale makes the picture larger than " + std::to_string(kMaxPictureSide) + " pixels a side"};
    const zpe::Playbook pb = openOrFail(imagePath, ctx);
    if (!drawSlot && static_cast<size_t>(r.formation) >= pb.formations.size())
        throw UsageError{"--formation is a number from 0 to " + std::to_string(pb.formations.size() - 1)};
    zpe::RasterCanvas canvas(size.first * r.scale, size.second * r.scale);
    zpe::ScaledCanvas scaled(canvas, r.scale);
    if (drawSlot) {
        zpe::DrawPlay(scaled, pb, r.slot, r.play - 1);
    } else {
        for (int player : zpe::drawFormation(scaled, pb, r.formation))
            std::cerr << "Unable to find the sequence for " << zpe::offPosNames[static_cast<size_t>(player)] << '\n';
    }
    writeOutput(r.out, zpe::encodePng(canvas), imagePath);
    if (r.out != kStdout)
        ctx.said("drew " + (drawSlot ? zpe::slotName(r.slot) + " play " + std::to_string(r.play)
                                     : "formation " + std::to_string(r.formation)) +
                 " into " + r.out + " (" + std::to_string(canvas.width()) + "x" + std::to_string(canvas.height()) + ")");
    return 0;
}

// What a command line names: the verb's action and every value it takes.
struct Args {
    std::string dataDir;
    bool quiet = false;
    std::string image, arg1, arg2, arg3;
    bool kr = false, all = false, numbered = false, asJson = false, dryRun = false, force = false, resize = false;
    RenderRequest render;
    std::string cpuOut = "cpu.txt";
    ExportPlayRequest exportPlay;
    std::string importPlayNumber, slotNumber, slotOut, bookOut, ipsFor;
    ForkRequest forkRequest;
    MoveRequest moveRequest;
    std::function<int(const Context&)> action;
};

// The command line's grammar, its values going into `a`: every verb, or the
// verb named `only` alone (empty: every verb). Setting up the options of
// every verb costs about as much as a small verb's whole work, so a command
// line that names its verb plainly sets up that one (verbNamed).
void configure(CLI::App& app, Args& a, const std::string& only) {
    app.require_subcommand(0, 1);
    app.fallthrough();  // the options below are also accepted after the verb
    app.set_version_flag("--version", std::string("zpe ") + ZPE_VERSION);
    app.add_option("--data", a.dataDir, "Folder holding forms.txt, cmd.txt and cmdinfo/ (default: beside the executable)");
    app.add_flag("-q,--quiet", a.quiet, "Verbs that write say nothing on success");

    std::string &image = a.image, &arg1 = a.arg1, &arg2 = a.arg2, &arg3 = a.arg3;
    bool &kr = a.kr, &all = a.all, &numbered = a.numbered, &asJson = a.asJson, &dryRun = a.dryRun, &force = a.force,
         &resize = a.resize;
    RenderRequest& render = a.render;
    std::string &cpuOut = a.cpuOut, &importPlayNumber = a.importPlayNumber, &slotNumber = a.slotNumber, &slotOut = a.slotOut,
                &bookOut = a.bookOut, &ipsFor = a.ipsFor;
    ExportPlayRequest& exportPlay = a.exportPlay;
    ForkRequest& forkRequest = a.forkRequest;
    MoveRequest& moveRequest = a.moveRequest;
    std::function<int(const Context&)>& action = a.action;
    auto verb = [&](const char* name, const char* help, const std::function<void(CLI::App*)>& setup) {
        if (only.empty() || only == name) setup(app.add_subcommand(name, help));
    };
    // An output named by an empty string would fall back on the image itself: refused.
    const CLI::Validator aFile(
        [](std::string& name) { return name.empty() ? std::string("an empty name names no file (- is standard output)") : std::string(); },
        "FILE");
    auto imageOption = [&](CLI::App* sub) { sub->add_option("IMAGE", image, "Cartridge image (*.nes)")->required(); };
    auto then = [&](CLI::App* sub, std::function<int(const Context&)> run) {
        sub->callback([&action, run = std::move(run)] { action = run; });
    };

    verb("decode", "Decode the sequence at a game address", [&](CLI::App* decode) {
        imageOption(decode);
        decode->add_option("ADDRESS", arg1, "Game address in hexadecimal (A000 or 0xA000)")->required();
        decode->add_flag("--kr", kr, "Decode 0xEA and 0xEC as commands that go on (kick formations)");
        decode->add_flag("--all", all, "List every command (by default the first 4096)");
        then(decode, [&](const Context& c) { return runDecode(c, image, arg1, kr, all); });
    });

    verb("lists", "Print the four lists as the window shows them after opening IMAGE", [&](CLI::App* lists) {
        imageOption(lists);
        lists->add_flag("--numbered", numbered, "Put each row's index (the slot number for Play Slots) in front");
        then(lists, [&](const Context& c) { return runLists(c, image, numbered); });
    });

    verb("cpu", "Write the gap listing of IMAGE to OUT (default: cpu.txt in the working directory; - for stdout)", [&](CLI::App* cpu) {
        imageOption(cpu);
        cpu->add_option("OUT", cpuOut, "Output file")->check(aFile);
        then(cpu, [&](const Context& c) { return runCpu(c, image, cpuOut); });
    });

    verb("copy-slot", "Copy slot FROM over slot TO (0-63 or 0x00-0x3F), then Safe Save", [&](CLI::App* copy) {
        imageOption(copy);
        copy->add_option("FROM", arg1, "Source slot")->required();
        copy->add_option("TO", arg2, "Target slot")->required();
        then(copy, [&](const Context& c) { return runSlotAction(c, image, arg1, arg2, false); });
    });

    verb("swap-slot", "Swap slots A and B (0-63 or 0x00-0x3F), then Safe Save", [&](CLI::App* swap) {
        imageOption(swap);
        swap->add_option("A", arg1, "First slot")->required();
        swap->add_option("B", arg2, "Second slot")->required();
        then(swap, [&](const Context& c) { return runSlotAction(c, image, arg1, arg2, true); });
    });

    verb("full-save", "Full Save: lay every sequence out anew from 0xA000 and rewrite all tables", [&](CLI::App* full) {
        imageOption(full);
        then(full, [&](const Context& c) { return runFullSave(c, image); });
    });

    verb("export-mask", "Export Mask ROM: 0xFF runs at the sequences' game addresses into OUT (- for stdout)", [&](CLI::App* mask) {
        imageOption(mask);
        mask->add_option("OUT", arg1, "Mask file to write")->required()->check(aFile);
        then(mask, [&](const Context& c) { return runExportMask(c, image, arg1); });
    });

    verb("export-play", "Write what the game runs from one play's entries into a play file (JSON) another image can take", [&](CLI::App* playOut) {
        imageOption(playOut);
        playOut->add_option("--play", exportPlay.play, "Play 0-115");
        playOut->add_option("--slot", exportPlay.slot, "Slot 0-63: its play (--slot-play, 1-8, default 1) with the slot's formation");
        playOut->add_option("--slot-play", exportPlay.slotPlay, "Which of the slot's eight plays (1-8)");
        playOut->add_option("--out", exportPlay.out, "Play file to write (- for standard output)")->required()->check(aFile);
        then(playOut, [&](const Context& c) { return runExportPlay(c, image, exportPlay); });
    });

    verb("import-play", "Make play Q run what a play file's play ran: copied into free bytes, fields relinked, shared logic reused", [&](CLI::App* playIn) {
        imageOption(playIn);
        playIn->add_option("FILE", arg1, "The play file (zpe export-play writes one)")->required();
        playIn->add_option("--play", importPlayNumber, "Play 0-115 that is to run it");
        playIn->add_flag("--dry-run", dryRun, "Print what it would do; write nothing");
        then(playIn, [&](const Context& c) { return runImportPlay(c, image, arg1, importPlayNumber, dryRun); });
    });

    verb("export-slot", "Write a slot (its record, formation and plays, with what the game runs from them) into a slot file", [&](CLI::App* slotOutVerb) {
        imageOption(slotOutVerb);
        slotOutVerb->add_option("--slot", slotNumber, "Slot 0-63");
        slotOutVerb->add_option("--out", slotOut, "Slot file to write (- for standard output)")->required()->check(aFile);
        then(slotOutVerb, [&](const Context& c) { return runExportSlot(c, image, slotNumber, slotOut); });
    });

    verb("import-slot", "Make slot T hold a slot file's slot: formation and plays into free records (or reused), fields relinked", [&](CLI::App* slotIn) {
        imageOption(slotIn);
        slotIn->add_option("FILE", arg1, "The slot file (zpe export-slot writes one)")->required();
        slotIn->add_option("--slot", slotNumber, "Slot 0-63 that is to hold it");
        slotIn->add_flag("--dry-run", dryRun, "Print what it would do; write nothing");
        then(slotIn, [&](const Context& c) { return runImportSlot(c, image, arg1, slotNumber, dryRun); });
    });

    verb("export-playbook", "Write all 64 slots (records, formations, plays, what the game runs from them) into a playbook file", [&](CLI::App* bookOutVerb) {
        imageOption(bookOutVerb);
        bookOutVerb->add_option("--out", bookOut, "Playbook file to write (- for standard output)")->required()->check(aFile);
        then(bookOutVerb, [&](const Context& c) { return runExportPlaybook(c, image, bookOut); });
    });

    verb("import-playbook", "Make every slot hold the playbook file's slot of its number: formations and plays reused or copied", [&](CLI::App* bookIn) {
        imageOption(bookIn);
        bookIn->add_option("FILE", arg1, "The playbook file (zpe export-playbook writes one)")->required();
        bookIn->add_flag("--dry-run", dryRun, "Print what it would do; write nothing");
        then(bookIn, [&](const Context& c) { return runImportPlaybook(c, image, arg1, dryRun); });
    });

    verb("json", "Print the whole playbook as JSON", [&](CLI::App* json) {
        imageOption(json);
        then(json, [&](const Context& c) { return runJson(c, image); });
    });

    verb("import", "Apply a playbook file in the shape zpe json writes, then Save (only what changed)", [&](CLI::App* import) {
        imageOption(import);
        import->add_option("FILE", arg1, "The playbook as JSON")->required();
        import->add_flag("--dry-run", dryRun, "Print what Save would do; write nothing");
        import->add_flag("--force", force, "Import a file written from another state of IMAGE (its fingerprint differs)");
        then(import, [&](const Context& c) { return runImport(c, image, arg1, dryRun, force); });
    });

    verb("compact", "Lay the sequence area out anew as the game reads it: every command kept, free space in one run", [&](CLI::App* compact) {
        imageOption(compact);
        compact->add_flag("--dry-run", dryRun, "Print what it would do; write nothing");
        then(compact, [&](const Context& c) { return runCompact(c, image, dryRun); });
    });

    verb("refs", "List every table entry and every command the game runs that leads to ADDRESS", [&](CLI::App* refs) {
        imageOption(refs);
        refs->add_option("ADDRESS", arg1, "Game address in hexadecimal")->required();
        refs->add_flag("--json", asJson, "Print them as JSON");
        then(refs, [&](const Context& c) { return runRefs(c, image, arg1, asJson); });
    });

    verb("fork", "Give one table entry its own copy of what the game runs from it", [&](CLI::App* fork) {
        imageOption(fork);
        fork->add_option("--play", forkRequest.play, "Play 0-115 (with --player)");
        fork->add_option("--player", forkRequest.player, "Player 0-10 of the play, or his position (QB, RB, FB, ... RT)");
        fork->add_option("--formation", forkRequest.formation, "Formation (with --position)");
        fork->add_option("--position", forkRequest.position, "Position 0-10 of the formation, or its name (QB, RB, FB, ... RT)");
        fork->add_option("--pointer", forkRequest.pointer, "Pointer 0-191");
        fork->add_flag("--dry-run", dryRun, "Print what it would do; write nothing");
        then(fork, [&](const Context& c) { return runFork(c, image, forkRequest, dryRun); });
    });

    verb("points", "List every point the play diagram of a slot's play computes, per player", [&](CLI::App* pointsVerb) {
        imageOption(pointsVerb);
        pointsVerb->add_option("--slot", moveRequest.slot, "Play slot 0-63")->required();
        pointsVerb->add_option("--play", moveRequest.play, "Which of the slot's eight plays, 1-8 (default 1)");
        pointsVerb->add_flag("--json", asJson, "Print {\"players\": [[{\"x\", \"y\", \"sequence\", \"command\"}, ...], ...]}");
        then(pointsVerb, [&](const Context& c) { return runPoints(c, image, moveRequest.slot, moveRequest.play, asJson); });
    });

    verb("move-point", "Move one point of a play's diagram: that command's data changes, then Save", [&](CLI::App* movePoint) {
        imageOption(movePoint);
        movePoint->add_option("--slot", moveRequest.slot, "Play slot 0-63")->required();
        movePoint->add_option("--play", moveRequest.play, "Which of the slot's eight plays, 1-8 (default 1)");
        movePoint->add_option("--player", moveRequest.player, "Player 0-10 or his position (QB, RB, FB, ... RT)")->required();
        movePoint->add_option("--point", moveRequest.point, "His point, from 1, in drawing order (as zpe points lists them)")->required();
        movePoint->add_option("--to", moveRequest.to, "X,Y in pixels of the picture's default size (329 x 217)")->required();
        movePoint->add_flag("--dry-run", dryRun, "Print what it would do; write nothing");
        then(movePoint, [&](const Context& c) { return runMovePoint(c, image, moveRequest, dryRun); });
    });

    verb("check", "Map the sequence area as the game reads it and report what Full Save would break", [&](CLI::App* check) {
        imageOption(check);
        check->add_flag("--json", asJson, "Print the map as JSON");
        then(check, [&](const Context& c) { return runCheck(c, image, asJson); });
    });

    verb("trace", "List every command the game can reach from a game address, in address order", [&](CLI::App* trace) {
        imageOption(trace);
        trace->add_option("ADDRESS", arg1, "Game address in the sequence area (A000-BFFF)")->required();
        then(trace, [&](const Context& c) { return runTrace(c, image, arg1); });
    });

    verb("diff", "List what differs between two images in playbook terms", [&](CLI::App* diff) {
        diff->add_option("ORIGINAL", image, "The image before")->required();
        diff->add_option("EDITED", arg1, "The image after")->required();
        diff->add_option("--ips", arg2, "Also write the byte differences as an IPS patch (- for stdout)")->check(aFile);
        diff->add_option("--bps", arg3, "Also write them as a BPS patch, which carries both images' CRC-32 (- for stdout)")->check(aFile);
        then(diff, [&](const Context& c) { return runDiff(c, image, arg1, arg2, arg3); });
    });

    verb("patch", "Apply an IPS or BPS patch to IMAGE (or write the result to --out)", [&](CLI::App* patch) {
        imageOption(patch);
        patch->add_option("PATCH", arg1, "The patch (IPS or BPS, told apart by its header)")->required();
        patch->add_option("--out", arg2, "Write the patched image here instead of over IMAGE (- for stdout)")->check(aFile);
        patch->add_option("--ips-for", ipsFor, "headed or headerless: the form of image an IPS patch was made for (needed on a headerless image)");
        patch->add_flag("--force", force, "Write a result that no longer opens as an image of the game");
        patch->add_flag("--resize", resize, "Let the patch change the image's size (cut it, or write past its end)");
        then(patch, [&](const Context& c) { return runPatch(c, image, arg1, arg2, ipsFor, force, resize); });
    });

    verb("render", "Draw a slot's play or a formation into a PNG picture", [&](CLI::App* draw) {
        imageOption(draw);
        draw->add_option("--slot", render.slot, "Play slot 0-63: its formation and one of its offensive plays");
        draw->add_option("--play", render.play, "Which of the slot's eight plays, 1-8 (default 1)");
        draw->add_option("--formation", render.formation, "Formation number (a line of forms.txt, from 0)");
        draw->add_option("--out", render.out, "PNG file to write (- for stdout)")->required()->check(aFile);
        draw->add_option("--size", render.size, "Picture size in pixels, WxH (default: the window's picture size)");
        draw->add_option("--scale", render.scale, "Draw K times larger: every coordinate and square (default 1)");
        then(draw, [&](const Context& c) { return runRender(c, image, render); });
    });
}

// The verb a command line names plainly: the first word after the global
// options (-q, --quiet, --data DIR). Empty when there is none or something
// else comes first (--help, --version): then every verb is set up. A word
// that names no verb is set up as none, so the parse fails and is done again
// with every verb, which says what is wrong.
std::string verbNamed(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "-q" || word == "--quiet" || word.rfind("--data=", 0) == 0) continue;
        if (word == "--data") {
            ++i;
            continue;
        }
        return word.empty() || word[0] == '-' ? std::string() : word;
    }
    return {};
}

// A fresh grammar over fresh values (`only` as for configure).
std::unique_ptr<CLI::App> grammar(Args& args, const std::string& only) {
    args = Args{};
    args.dataDir = zpe::dataFolderFor(executableFolder());
    auto app = std::make_unique<CLI::App>("zpe - Zentrel Playbook Editor, command line. Reads and edits the playbook of a cartridge image.");
    configure(*app, args, only);
    return app;
}

#if defined(__GLIBC__)
// A verb touches some 2 MB of heap (the image as read and as planned, the
// model's sequences), page by page: 300 to 500 first touches, each a fault
// of some 3 microseconds in a virtual machine, a third of an import's time.
// Where the system hands out 2 MiB pages to the programs that ask
// (transparent huge pages "madvise", Debian's default), the heap from the
// next 2 MiB boundary on asks for them; the bytes below that boundary are
// set aside untouched, so that what the verb allocates lies above it.
// Elsewhere (or under a sanitizer's allocator, which does not use the
// program break) nothing changes.
void heapOnHugePages() {
    constexpr uintptr_t kHugePage = uintptr_t{2} << 20;
    const auto before = reinterpret_cast<uintptr_t>(sbrk(0));
    const uintptr_t from = (before + (uintptr_t{64} << 10) + kHugePage - 1) & ~(kHugePage - 1);
    static void* volatile setAside = malloc(from - before - 4096);  // never touched: no memory of its own
    void* volatile reach = malloc(6 << 20);  // grows the heap past what a verb uses
    free(reach);
    const auto end = reinterpret_cast<uintptr_t>(sbrk(0));
    if (setAside && end > from + kHugePage) (void)madvise(reinterpret_cast<void*>(from), end - from, MADV_HUGEPAGE);
}
#endif

}  // namespace

int main(int argc, char** argv) {
    // A closed pipe or a size limit makes a write fail with a message instead of ending the program.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    std::ios::sync_with_stdio(false);
#if defined(__GLIBC__)
    // A verb lives for milliseconds and copies whole images (hundreds of KiB)
    // several times. Handed back to the system on every free and mapped anew
    // on the next copy, each would cost a system call and a page fault per
    // 4 KiB; kept in the heap, the next copy reuses the same pages.
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, 64 << 20);
    mallopt(M_TOP_PAD, 4 << 20);
    heapOnHugePages();
#endif

    Args args;
    const std::string named = verbNamed(argc, argv);
    bool whole = named.empty();
    std::unique_ptr<CLI::App> app = grammar(args, named);
    // A command line the one verb's grammar does not take, or one that asks
    // for help, is parsed again by the whole grammar: what is said then reads
    // exactly as it would with every verb set up.
    for (;;) {
        try {
            app->parse(argc, argv);
            if (args.action || whole) break;
        } catch (const CLI::CallForHelp&) {
            if (whole) {
                std::cout << app->help();
                return flushedOutput();
            }
        } catch (const CLI::CallForAllHelp&) {
            if (whole) {
                std::cout << app->help("", CLI::AppFormatMode::All);
                return flushedOutput();
            }
        } catch (const CLI::CallForVersion&) {
            if (whole) {
                std::cout << app->version() << '\n';
                return flushedOutput();
            }
        } catch (const CLI::ParseError& e) {
            if (whole) {
                std::cerr << "zpe: " << e.what() << "\n\n" << app->help();
                return kExitUsage;
            }
        }
        app = grammar(args, "");
        whole = true;
    }
    if (!args.action) {
        std::cerr << "zpe: a verb is required\n\n" << app->help();
        return kExitUsage;
    }

    int code = kExitFailed;
    try {
        const Context ctx{args.dataDir, zpe::loadCmdNames(args.dataDir), args.quiet};
        code = args.action(ctx);
    } catch (const UsageError& e) {
        if (!whole) {  // the help that follows is the whole grammar's, for the same command line
            app = grammar(args, "");
            try {
                app->parse(argc, argv);
            } catch (const CLI::ParseError&) {
            }
        }
        std::cerr << "zpe: " << e.message << "\n\n" << app->help();
        return kExitUsage;
    } catch (const Failure& e) {
        std::cerr << "zpe: " << e.message << '\n';
    } catch (const std::exception& e) {
        std::cerr << "zpe: " << e.what() << '\n';
    }
    return flushedOutput() == 0 ? code : kExitFailed;
}

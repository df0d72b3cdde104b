// zpe: the playbook editor's command line. Each verb opens the image, works
// and closes it; failures print one line on stderr and exit 1, usage errors 2.
#include "analysis/check_report.h"
#include "cli/json_export.h"
#include "cli/json_import.h"
#include "model/file_io.h"
#include "save/save_changes.h"
#include "diagram/diagram.h"
#include "model/tables.h"
#include "render/qimage_canvas.h"
#include "ui/screenshots.h"

#include <QApplication>
#include "model/hex.h"
#include "model/image.h"
#include "model/rom_error.h"
#include "playbook/list_rows.h"
#include "playbook/open_rom.h"
#include "playbook/slot_actions.h"
#include "save/saves.h"
#include "sequence/catalogue.h"
#include "sequence/sequence.h"

#include <CLI/CLI.hpp>

#include <climits>
#include <functional>
#include <iostream>
#include <string>
#include <unistd.h>

namespace {

constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

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

struct Context {
    std::string dataDir;
    zpe::CmdNames names;
};

// Opens the image as the window does (cpu.txt is written only by the verb that asks for it).
zpe::Playbook openOrFail(const std::string& path, const Context& ctx) {
    try {
        return zpe::openRom(path, ctx.dataDir);
    } catch (const zpe::RomError& e) {
        throw Failure{e.what()};
    }
}

int runDecode(const Context& ctx, const std::string& imagePath, const std::string& addressText, bool kr) {
    const int32_t address = parseAddress(addressText);
    zpe::Image image = zpe::Image::open(imagePath);
    zpe::clsSequence seq;
    seq.address(address);
    image.seekOffset(zpe::offsetOfAddress(address));
    seq.load(image, kr);
    std::cout << seq.AddressRange() << '\n'
              << "size " << seq.byteSize() << '\n'
              << "next " << zpe::hex4(seq.nextSequence()) << '\n'
              << "valid " << (seq.isValid() ? "yes" : "no") << '\n';
    for (int i = 0; i < seq.commandCount(); ++i)
        std::cout << zpe::hex4(seq.commandAddress(i)) << ": " << seq.commandName(i, ctx.names) << '\n';
    if (seq.reachedImageEnd())
        std::cerr << "zpe: " << imagePath << ": the sequence runs to the end of the image without an end command\n";
    return 0;
}

void printRows(const char* title, const std::vector<zpe::ListRow>& rows) {
    std::cout << "## " << title << '\n';
    for (const auto& row : rows) {
        for (size_t i = 0; i < row.cells.size(); ++i) std::cout << (i ? "\t" : "") << row.cells[i];
        std::cout << '\n';
    }
}

int runLists(const Context& ctx, const std::string& imagePath) {
    const zpe::ListRows rows = zpe::buildRows(openOrFail(imagePath, ctx), ctx.names);
    printRows("Formations", rows.formations);
    printRows("Play Slots", rows.playSlots);
    printRows("Plays", rows.plays);
    printRows("Sequences", rows.sequences);
    return 0;
}

int runCpu(const Context& ctx, const std::string& imagePath, const std::string& outPath) {
    zpe::writeGapListing(openOrFail(imagePath, ctx), outPath);
    return 0;
}

int parseSlot(const std::string& text) {
    try {
        size_t used = 0;
        const int v = std::stoi(text, &used, 10);
        if (used == text.size() && v >= 0 && v < zpe::kSlotCount) return v;
    } catch (const std::exception&) {
    }
    throw UsageError{"a slot is a number from 0 to 63, not '" + text + "'"};
}

int runSlotAction(const Context& ctx, const std::string& imagePath, const std::string& first, const std::string& second,
                  bool swap) {
    const int a = parseSlot(first), b = parseSlot(second);
    zpe::Playbook pb = openOrFail(imagePath, ctx);
    const zpe::SlotActionResult result = swap ? zpe::swapSlot(pb, a, b) : zpe::copySlot(pb, a, b);
    if (result.outcome == zpe::SlotActionOutcome::KindMixed) throw Failure{imagePath + ": " + zpe::kKindRefusedMessage};
    if (result.outcome == zpe::SlotActionOutcome::SameSlot) throw Failure{imagePath + ": " + zpe::kActionCancelledMessage};
    zpe::safeSave(pb);
    return 0;
}

int runFullSave(const Context& ctx, const std::string& imagePath) {
    zpe::Playbook pb = openOrFail(imagePath, ctx);
    zpe::fullSave(pb);
    return 0;
}

int runExportMask(const Context& ctx, const std::string& imagePath, const std::string& outPath) {
    zpe::Playbook pb = openOrFail(imagePath, ctx);
    zpe::exportMaskRom(pb, outPath);
    return 0;
}

int runJson(const Context& ctx, const std::string& imagePath) {
    zpe::Playbook pb = openOrFail(imagePath, ctx);
    std::cout << zpe::playbookJson(pb, ctx.names).dump(1) << '\n';
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
    const zpe::Image image = zpe::Image::open(imagePath);
    const auto area = zpe::areaBytes(image.bytes());
    for (const zpe::GameCommand& c : zpe::traceFrom(area, address))
        std::cout << zpe::hex4(c.address) << ": " << zpe::gameCommandText(c, area, ctx.names) << '\n';
    return 0;
}

int runImport(const Context& ctx, const std::string& imagePath, const std::string& jsonPath, bool dryRun) {
    const std::vector<uint8_t> bytes = zpe::readWholeFile(jsonPath);
    nlohmann::json doc;
    try {
        doc = nlohmann::json::parse(bytes.begin(), bytes.end());
    } catch (const nlohmann::json::parse_error& e) {
        throw Failure{jsonPath + ": not JSON: " + e.what()};
    }
    zpe::Playbook pb = openOrFail(imagePath, ctx);
    try {
        zpe::applyPlaybookJson(pb, doc);
    } catch (const zpe::ImportError& e) {
        throw Failure{jsonPath + ": " + e.what() + "; nothing was written"};
    }
    if (dryRun) {
        std::cout << zpe::planSave(pb, zpe::readWholeFile(imagePath)).summary.text() << '\n';
        return 0;
    }
    std::cout << zpe::saveChanges(pb, ctx.dataDir).text() << '\n';
    return 0;
}

// "WxH" in pixels, each 1 to 10000.
std::pair<int, int> parseSize(const std::string& text) {
    const auto x = text.find_first_of("xX");
    try {
        if (x != std::string::npos) {
            size_t usedW = 0, usedH = 0;
            const int w = std::stoi(text.substr(0, x), &usedW), h = std::stoi(text.substr(x + 1), &usedH);
            if (usedW == x && usedH == text.size() - x - 1 && w >= 1 && h >= 1 && w <= 10000 && h <= 10000) return {w, h};
        }
    } catch (const std::exception&) {
    }
    throw UsageError{"--size must be WIDTHxHEIGHT in pixels (1 to 10000 each), not '" + text + "'"};
}

// The picture boxes' design sizes: 4935 x 3255 and 2055 x 3255 twips at 15 twips a pixel.
constexpr int kTwipsPerPixel = 15;
constexpr std::pair<int, int> kPlayPictureSize{4935 / kTwipsPerPixel, 3255 / kTwipsPerPixel};
constexpr std::pair<int, int> kFormationPictureSize{2055 / kTwipsPerPixel, 3255 / kTwipsPerPixel};

int runRender(const Context& ctx, const std::string& imagePath, int slot, int formation, const std::string& outPath,
              const std::string& sizeText) {
    const bool drawSlot = slot >= 0;
    if (drawSlot == (formation >= 0)) throw UsageError{"render needs exactly one of --slot and --formation"};
    if (drawSlot && slot >= zpe::kSlotCount) throw UsageError{"--slot is a number from 0 to 63"};
    const auto size = sizeText.empty() ? (drawSlot ? kPlayPictureSize : kFormationPictureSize) : parseSize(sizeText);
    zpe::Playbook pb = openOrFail(imagePath, ctx);
    if (!drawSlot && static_cast<size_t>(formation) >= pb.formations.size())
        throw UsageError{"--formation is a number from 0 to " + std::to_string(pb.formations.size() - 1)};
    zpe::QImageCanvas canvas(size.first, size.second);
    if (drawSlot) {
        zpe::DrawPlay(canvas, pb, slot);
    } else {
        for (int player : zpe::drawFormation(canvas, pb, formation))
            std::cerr << "Unable to find the sequence for " << zpe::offPosNames[static_cast<size_t>(player)] << '\n';
    }
    if (!canvas.savePng(QString::fromStdString(outPath))) throw Failure{outPath + ": cannot write the picture"};
    return 0;
}

// Pictures of the window's four tabs, drawn offscreen.
int runScreenshot(const Context& ctx, const std::string& imagePath, const std::string& dir) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    int argc = 1;
    char name[] = "zpe";
    char* argv[] = {name, nullptr};
    QApplication app(argc, argv);
    try {
        for (const QString& path : zpe::writeScreenshots(QString::fromStdString(imagePath), QString::fromStdString(dir),
                                                         QString::fromStdString(ctx.dataDir)))
            std::cout << path.toStdString() << '\n';
    } catch (const std::runtime_error& e) {
        throw Failure{e.what()};
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"zpe - Zentrel Playbook Editor, command line. Reads and edits the playbook of a cartridge image."};
    app.require_subcommand(1);
    std::string dataDir = executableFolder();
    app.add_option("--data", dataDir, "Folder holding forms.txt, cmd.txt and cmdinfo/ (default: the executable's folder)");

    std::string image, arg1, arg2;
    bool kr = false;
    std::function<int(const Context&)> action;
    auto verb = [&](const char* name, const char* help) { return app.add_subcommand(name, help); };
    auto imageOption = [&](CLI::App* sub) { sub->add_option("IMAGE", image, "Cartridge image (*.nes)")->required(); };

    auto* decode = verb("decode", "Decode the sequence at a game address");
    imageOption(decode);
    decode->add_option("ADDRESS", arg1, "Game address in hexadecimal (A000 or 0xA000)")->required();
    decode->add_flag("--kr", kr, "Decode 0xEA and 0xEC as commands that go on (kick formations)");
    decode->callback([&] { action = [&](const Context& c) { return runDecode(c, image, arg1, kr); }; });

    auto* lists = verb("lists", "Print the four lists as the window shows them after opening IMAGE");
    imageOption(lists);
    lists->callback([&] { action = [&](const Context& c) { return runLists(c, image); }; });

    auto* cpu = verb("cpu", "Write the gap listing of IMAGE to OUT (default: cpu.txt in the working directory)");
    imageOption(cpu);
    std::string cpuOut = "cpu.txt";
    cpu->add_option("OUT", cpuOut, "Output file");
    cpu->callback([&] { action = [&](const Context& c) { return runCpu(c, image, cpuOut); }; });

    auto* copy = verb("copy-slot", "Copy slot FROM over slot TO (0-63), then Safe Save");
    imageOption(copy);
    copy->add_option("FROM", arg1, "Source slot")->required();
    copy->add_option("TO", arg2, "Target slot")->required();
    copy->callback([&] { action = [&](const Context& c) { return runSlotAction(c, image, arg1, arg2, false); }; });

    auto* swap = verb("swap-slot", "Swap slots A and B (0-63), then Safe Save");
    imageOption(swap);
    swap->add_option("A", arg1, "First slot")->required();
    swap->add_option("B", arg2, "Second slot")->required();
    swap->callback([&] { action = [&](const Context& c) { return runSlotAction(c, image, arg1, arg2, true); }; });

    auto* full = verb("full-save", "Full Save: lay every sequence out anew from 0xA000 and rewrite all tables");
    imageOption(full);
    full->callback([&] { action = [&](const Context& c) { return runFullSave(c, image); }; });

    auto* mask = verb("export-mask", "Export Mask ROM: 0xFF runs at the sequences' game addresses into OUT");
    imageOption(mask);
    mask->add_option("OUT", arg1, "Mask file to write")->required();
    mask->callback([&] { action = [&](const Context& c) { return runExportMask(c, image, arg1); }; });

    auto* json = verb("json", "Print the whole playbook as JSON");
    imageOption(json);
    json->callback([&] { action = [&](const Context& c) { return runJson(c, image); }; });

    auto* import = verb("import", "Apply a playbook file in the shape zpe json writes, then Save (only what changed)");
    imageOption(import);
    import->add_option("FILE", arg1, "The playbook as JSON")->required();
    bool dryRun = false;
    import->add_flag("--dry-run", dryRun, "Print what Save would do; write nothing");
    import->callback([&] { action = [&](const Context& c) { return runImport(c, image, arg1, dryRun); }; });

    auto* check = verb("check", "Map the sequence area as the game reads it and report what Full Save would break");
    imageOption(check);
    bool asJson = false;
    check->add_flag("--json", asJson, "Print the map as JSON");
    check->callback([&] { action = [&](const Context& c) { return runCheck(c, image, asJson); }; });

    auto* trace = verb("trace", "List every command the game can reach from a game address, in address order");
    imageOption(trace);
    trace->add_option("ADDRESS", arg1, "Game address in the sequence area (A000-BFFF)")->required();
    trace->callback([&] { action = [&](const Context& c) { return runTrace(c, image, arg1); }; });

    auto* render = verb("render", "Draw a slot's play or a formation into a PNG picture");
    imageOption(render);
    int slot = -1, formation = -1;
    std::string out, size;
    render->add_option("--slot", slot, "Play slot 0-63: its formation and first offensive play");
    render->add_option("--formation", formation, "Formation number (a line of forms.txt, from 0)");
    render->add_option("--out", out, "PNG file to write")->required();
    render->add_option("--size", size, "Picture size in pixels, WxH (default: the window's picture size)");
    render->callback([&] { action = [&](const Context& c) { return runRender(c, image, slot, formation, out, size); }; });

    auto* screenshot = verb("screenshot", "Save a picture of each of the window's tabs with IMAGE open into DIR");
    imageOption(screenshot);
    screenshot->add_option("DIR", arg1, "Folder for formations.png, play-slots.png, plays.png, sequences.png")->required();
    screenshot->callback([&] { action = [&](const Context& c) { return runScreenshot(c, image, arg1); }; });

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        std::cout << app.help();
        return 0;
    } catch (const CLI::CallForAllHelp&) {
        std::cout << app.help("", CLI::AppFormatMode::All);
        return 0;
    } catch (const CLI::ParseError& e) {
        std::cerr << "zpe: " << e.what() << "\n\n" << app.help();
        return kExitUsage;
    }
    if (!action) return kExitUsage;

    try {
        const Context ctx{dataDir, zpe::loadCmdNames(dataDir)};
        return action(ctx);
    } catch (const UsageError& e) {
        std::cerr << "zpe: " << e.message << "\n\n" << app.help();
        return kExitUsage;
    } catch (const Failure& e) {
        std::cerr << "zpe: " << e.message << '\n';
    } catch (const std::exception& e) {
        std::cerr << "zpe: " << e.what() << '\n';
    }
    return kExitFailed;
}

// zpe: the playbook editor's command line. Each verb opens the image, works
// and closes it; failures print one line on stderr and exit 1, usage errors 2.
#include "model/hex.h"
#include "model/image.h"
#include "model/rom_error.h"
#include "sequence/catalogue.h"
#include "sequence/sequence.h"

#include <CLI/CLI.hpp>

#include <climits>
#include <cstdio>
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

int runDecode(const std::string& imagePath, const std::string& addressText, bool kr, const std::string& dataDir) {
    const int32_t address = parseAddress(addressText);
    const zpe::CmdNames names = zpe::loadCmdNames(dataDir);
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
        std::cout << zpe::hex4(seq.commandAddress(i)) << ": " << seq.commandName(i, names) << '\n';
    if (seq.reachedImageEnd())
        std::cerr << "zpe: " << imagePath << ": the sequence runs to the end of the image without an end command\n";
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"zpe - Zentrel Playbook Editor, command line. Reads and edits the playbook of a cartridge image."};
    app.require_subcommand(1);
    std::string dataDir = executableFolder();
    app.add_option("--data", dataDir, "Folder holding forms.txt, cmd.txt and cmdinfo/ (default: the executable's folder)");

    std::string imagePath, addressText;
    bool kr = false;
    auto* decode = app.add_subcommand("decode", "Decode the sequence at a game address");
    decode->add_option("IMAGE", imagePath, "Cartridge image (*.nes)")->required();
    decode->add_option("ADDRESS", addressText, "Game address in hexadecimal (A000 or 0xA000)")->required();
    decode->add_flag("--kr", kr, "Decode 0xEA and 0xEC as commands that go on (kick formations)");

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

    try {
        if (decode->parsed()) return runDecode(imagePath, addressText, kr, dataDir);
    } catch (const UsageError& e) {
        std::cerr << "zpe: " << e.message << "\n\n" << app.help();
        return kExitUsage;
    } catch (const zpe::RomError& e) {
        std::cerr << "zpe: " << e.what() << '\n';
        return kExitFailed;
    } catch (const std::exception& e) {
        std::cerr << "zpe: " << e.what() << '\n';
        return kExitFailed;
    }
    return kExitUsage;
}

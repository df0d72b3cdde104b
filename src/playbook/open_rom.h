#pragma once
// Opening an image: every fixed table and every reachable sequence decoded
// once in discovery order, into a new Playbook. Writing the gap listing
// (cpu.txt) and building the rows of the four lists are separate steps the
// caller takes after a successful open.
#include "playbook/playbook.h"

#include <string>
#include <vector>

namespace zpe {

// The most commands an open decodes, valid or not: twenty times what a
// playbook image holds (about ten thousand), few enough that every verb on
// an image at the cap stays within 200 ms and 64 MiB.
constexpr int64_t kMaxDecodedCommands = 200000;
// The formation table holds this many records before the play table begins.
constexpr int kMaxFormations = (kPlayTableOffset - kFormationTableOffset) / kAddressRecordSize;

// Opens the image at `path` with the formation names of `dataDir`/forms.txt.
// Returns the complete playbook (openComplete true, openedBytes the file's
// bytes). Throws RomError naming the file and the reason when the open stops;
// nothing outside the returned object changes either way.
[[nodiscard]] Playbook openRom(const std::string& path, const std::string& dataDir);
// The same open on bytes already in memory (named by image.path() in messages).
[[nodiscard]] Playbook openImage(Image image, const std::string& dataDir);
// The image in the form every reading works on, with its 16-byte header: a
// headerless file gets a blank one in front (`headerless` says so), so that
// offsets and game addresses are the same for both forms. Throws RomError
// when the bytes are neither form.
[[nodiscard]] Image headedForm(Image file, bool& headerless);

// The reading part of the open on an image already in memory: the tables, the
// formations named by `formNames`, and every reachable sequence.
// Throws RomError where the open stops.
[[nodiscard]] Playbook loadPlaybook(Image& image, const std::vector<std::string>& formNames);

// The gap listing: for each pair of neighbouring sequences (ascending address)
// whose first ends in 0xE4, the bytes between them, 16 per row. CR LF line ends.
[[nodiscard]] std::string gapListing(const Playbook& pb);

// Writes the gap listing to `cpuPath` in one step. Throws RomError when it cannot.
void writeGapListing(const Playbook& pb, const std::string& cpuPath);

// The keys in ascending numeric order.
[[nodiscard]] std::vector<SeqKey> sortKeys(std::vector<SeqKey> keys);

// Why the open, reaching `address` the kick formations' way (`kick`) or the
// plain one, would stop with an error reading `pb`'s image (its openedBytes)
// there and on along the closing jumps, up to a sequence `pb` holds; "" when
// it would not (an invalid sequence there is passed over, as the open does).
[[nodiscard]] std::string chainFault(const Playbook& pb, int32_t address, bool kick);

}  // namespace zpe

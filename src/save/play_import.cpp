#include "save/play_import.h"

#include "model/file_io.h"
#include "model/hex.h"
#include "playbook/list_rows.h"
#include "playbook/open_rom.h"
#include "playbook/table_codec.h"
#include "save/saves.h"

#include <algorithm>

namespace zpe {

CarriedPlay carryPlay(const Playbook& pb, int playNumber) {
    std::vector<SeqKey> entries;
    for (int j = 0; j < kPlayersPerRecord; ++j) entries.push_back(pb.plays.at(static_cast<size_t>(playNumber)).seqAddress(j));
    CarriedPlay out;
    std::vector<CarriedLead> leads;
    out.commands = carryEntries(pb, entries, leads);
    std::copy(leads.begin(), leads.end(), out.players.begin());
    return out;
}

std::string carriedPlayFault(const CarriedPlay& play) {
    if (std::string fault = carriedLeadsFault(play.commands, play.players); !fault.empty()) return fault;
    return carriedCommandsFault(play.commands);
}

namespace {
// "1 command", "2 commands".
std::string counted(long n, const std::string& one, const std::string& many) { return thousands(static_cast<int32_t>(n)) + " " + (n == 1 ? one : many); }
}  // namespace

std::string layoutText(const CarriedLayout& laid) {
    const std::string written = laid.copied == 0 ? "nothing copied"
                                                 : counted(laid.copied, "command", "commands") + " copied (" + counted(laid.bytesWritten, "byte", "bytes") +
                                                       " in " + counted(laid.runs, "free run", "free runs") + ")";
    return written + ", " + std::to_string(laid.reused) + " reused; " + counted(laid.freeLeft, "free byte", "free bytes") + " left";
}

std::string PlayImportSummary::text() const { return playName(play) + " now runs the imported play: " + layoutText(laid) + "."; }

PlayImportPlan planPlayImport(const Playbook& pb, const CarriedPlay& play, int playNumber) {
    requireCompleteOpen(pb);
    if (playNumber < 0 || playNumber >= kPlayCount) throw SaveError(pb.romPath + ": there is no play " + std::to_string(playNumber));
    if (const std::string fault = carriedPlayFault(play); !fault.empty())
        throw SaveError(pb.romPath + ": the imported play is not one the game could run (" + fault + "); nothing was written");
    std::vector<CarriedEntry> entries;
    for (int j = 0; j < kPlayersPerRecord; ++j)
        entries.push_back({playEntryOffset(playNumber, j), play.players[static_cast<size_t>(j)], playName(playNumber) + " " + positionName(j)});
    CarriedLayout laid = layOutCarried(pb, play.commands, entries, nullptr, "the imported play");
    PlayImportPlan plan{std::move(laid.bytes), {playNumber, {}}};
    laid.reopened = {};
    plan.summary.laid = std::move(laid);
    return plan;
}

PlayImportSummary importPlay(Playbook& pb, const CarriedPlay& play, int playNumber, const std::string& dataDir,
                             const std::function<void(const PlayImportSummary&)>& confirm) {
    (void)readUnchangedImage(pb);
    const PlayImportPlan plan = planPlayImport(pb, play, playNumber);
    replaceFileContents(pb.romPath, fileBytes(pb, plan.bytes), confirm ? std::function<void()>([&] { confirm(plan.summary); }) : nullptr);
    pb = openRom(pb.romPath, dataDir);
    return plan.summary;
}

}  // namespace zpe

#include "save/slot_import.h"

#include "model/file_io.h"
#include "model/hex.h"
#include "playbook/list_rows.h"
#include "playbook/open_rom.h"
#include "playbook/table_codec.h"
#include "save/play_import.h"
#include "save/saves.h"

#include <algorithm>
#include <map>

namespace zpe {

CarriedBook carrySlots(const Playbook& pb, const std::vector<int>& slots) {
    CarriedBook book;
    std::vector<SeqKey> entries;
    std::map<int, int> formationIndex, playIndex;  // source number -> index in the book
    auto record = [&](std::map<int, int>& index, std::vector<CarriedRecord>& list, int number, const std::string& name, auto addressOf) {
        const auto [at, fresh] = index.emplace(number, static_cast<int>(list.size()));
        if (fresh) {
            list.push_back({number, name, {}});
            for (int j = 0; j < kPlayersPerRecord; ++j) entries.push_back(addressOf(j));
        }
        return at->second;
    };
    std::vector<std::pair<bool, int>> order;  // (formation?, index) in the order their entries were listed
    for (const int s : slots) {
        const clsPlaySlot& r = pb.playSlots.at(static_cast<size_t>(s));
        CarriedSlot slot{s, s < kRunningSlotCount, r, 0, {}};
        const auto f = static_cast<size_t>(r.formation());
        const bool known = f < pb.formations.size();
        const size_t before = book.formations.size();
        slot.formation = record(formationIndex, book.formations, r.formation(), known ? pb.formations[f].name() : std::string(),
                                [&](int j) { return known ? pb.formations[f].posAddress(j) : SeqKey::none(); });
        if (book.formations.size() > before) order.emplace_back(true, slot.formation);
        for (int k = 0; k < kPlaysPerSlot; ++k) {
            const int p = r.oPlay(k);
            const size_t had = book.plays.size();
            slot.plays[static_cast<size_t>(k)] = record(playIndex, book.plays, p, std::string(), [&](int j) {
                return p < kPlayCount ? pb.plays[static_cast<size_t>(p)].seqAddress(j) : SeqKey::none();
            });
            if (book.plays.size() > had) order.emplace_back(false, slot.plays[static_cast<size_t>(k)]);
        }
        book.playSlots.push_back(slot);
    }
    std::vector<CarriedLead> leads;
    book.commands = carryEntries(pb, entries, leads);
    for (size_t i = 0; i < order.size(); ++i) {
        CarriedRecord& r = order[i].first ? book.formations[static_cast<size_t>(order[i].second)] : book.plays[static_cast<size_t>(order[i].second)];
        std::copy_n(leads.begin() + static_cast<std::ptrdiff_t>(i * kPlayersPerRecord), kPlayersPerRecord, r.leads.begin());
    }
    return book;
}

std::string carriedBookFault(const CarriedBook& book) {
    if (std::string fault = carriedCommandsFault(book.commands); !fault.empty()) return fault;
    for (const auto* list : {&book.formations, &book.plays})
        for (const CarriedRecord& r : *list)
            if (std::string fault = carriedLeadsFault(book.commands, r.leads); !fault.empty())
                return (list == &book.plays ? "play " : "formation ") + std::to_string(r.source) + ": " + fault;
    for (const CarriedSlot& s : book.playSlots) {
        if (s.formation < 0 || static_cast<size_t>(s.formation) >= book.formations.size()) return "a slot names a formation the file does not carry";
        for (const int p : s.plays)
            if (p < 0 || static_cast<size_t>(p) >= book.plays.size()) return "a slot names a play the file does not carry";
    }
    return {};
}

std::string BookImportSummary::text() const {
    auto reusedOrCopied = [](bool reused) { return reused ? " (reused)" : " (copied)"; };
    std::string t;
    if (playSlots.size() == 1) {
        t = slotName(playSlots.front().first) + " now holds " + playSlots.front().second + ": formation " + std::to_string(formations.front().first) +
            reusedOrCopied(formations.front().second) + ", play" + (plays.size() == 1 ? " " : "s ");
        for (size_t p = 0; p < plays.size(); ++p) t += (p ? ", " : "") + hex2(plays[p].first) + reusedOrCopied(plays[p].second);
    } else {
        auto counted = [](const std::vector<std::pair<int, bool>>& list, const char* what) {
            const auto reused = std::count_if(list.begin(), list.end(), [](const auto& r) { return r.second; });
            return std::to_string(list.size()) + " " + what + " (" + std::to_string(reused) + " reused, " +
                   std::to_string(static_cast<long>(list.size()) - reused) + " copied)";
        };
        t = std::to_string(playSlots.size()) + " slots imported: " + counted(formations, "formations") + ", " + counted(plays, "plays");
    }
    return t + "; " + layoutText(laid) + ".";
}

namespace {

// Where each carried formation or play goes: a record that runs the same
// (kept as it is), else the first of `free` not taken; `what` names the
// records in a refusal. Among the records that run the same, those in
// `preferred[c]` come first (the ones the target slots name already), so a
// slot brought back into the image it came from keeps naming its own
// records instead of the first look-alike.
std::vector<std::pair<int, bool>> assignRecords(const std::vector<CarriedRecord>& carried, int records,
                                                const std::function<bool(const CarriedRecord&, int)>& runsSame,
                                                const std::function<bool(int)>& reusable,
                                                const std::vector<std::vector<int>>& preferred, const std::vector<int>& free,
                                                const std::string& path, const std::string& what) {
    std::vector<std::pair<int, bool>> out(carried.size(), {-1, false});
    std::vector<bool> taken(static_cast<size_t>(records), false);
    for (size_t c = 0; c < carried.size(); ++c) {
        for (const int r : preferred[c])
            if (out[c].first < 0 && r >= 0 && r < records && reusable(r) && runsSame(carried[c], r)) out[c] = {r, true};
        for (int r = 0; r < records && out[c].first < 0; ++r)
            if (reusable(r) && runsSame(carried[c], r)) out[c] = {r, true};
    }
    for (const auto& [r, reused] : out)
        if (r >= 0) taken[static_cast<size_t>(r)] = true;
    size_t next = 0;
    const auto needed = std::count_if(out.begin(), out.end(), [](const auto& o) { return o.first < 0; });
    const auto available = std::count_if(free.begin(), free.end(), [&](int r) { return !taken[static_cast<size_t>(r)]; });
    for (auto& o : out) {
        if (o.first >= 0) continue;
        while (next < free.size() && taken[static_cast<size_t>(free[next])]) ++next;
        if (next == free.size())
            throw SaveError(path + ": the import needs " + std::to_string(needed) + " " + what + (needed == 1 ? " record" : " records") +
                                " of its own, and " + std::to_string(available) + (available == 1 ? " is" : " are") +
                                " free (a record is free when no slot keeps it); nothing was written",
                            Refusal::NoFreeRun);
        o.first = free[next];
        taken[static_cast<size_t>(free[next])] = true;
    }
    return out;
}

// The records a book's formations and plays go into, and the entries that then run them.
struct Records {
    std::vector<std::pair<int, bool>> formations, plays;
    std::vector<CarriedEntry> entries;
    std::vector<CarriedLead> kept;  // the leads of records the image holds already: they run the file's commands too
};

Records placeRecords(const Playbook& pb, const CarriedBook& book, const std::vector<int>& targets, const std::vector<int>& freeFormations,
                     const std::vector<int>& freePlays) {
    const CarriedMatcher matcher(pb, book.commands);
    // The records each book slot's target names now, per carried formation and play.
    std::vector<std::vector<int>> formationsNamed(book.formations.size()), playsNamed(book.plays.size());
    for (size_t i = 0; i < book.playSlots.size() && i < targets.size(); ++i) {
        const CarriedSlot& from = book.playSlots[i];
        const clsPlaySlot& now = pb.playSlots[static_cast<size_t>(targets[i])];
        if (from.formation >= 0 && static_cast<size_t>(from.formation) < formationsNamed.size())
            formationsNamed[static_cast<size_t>(from.formation)].push_back(now.formation());
        for (int k = 0; k < kPlaysPerSlot; ++k) {
            const int p = from.plays[static_cast<size_t>(k)];
            if (p >= 0 && static_cast<size_t>(p) < playsNamed.size()) playsNamed[static_cast<size_t>(p)].push_back(now.oPlay(k));
        }
    }
    Records out;
    out.formations = assignRecords(
        book.formations, static_cast<int>(pb.formations.size()),
        [&](const CarriedRecord& c, int f) { return matcher.sameEntries(c.leads, [&](int j) { return pb.formations[static_cast<size_t>(f)].posAddress(j); }); },
        [](int f) { return !isKickFormation(f); }, formationsNamed, freeFormations, pb.romPath, "formation");
    out.plays = assignRecords(
        book.plays, kPlayCount,
        [&](const CarriedRecord& c, int p) { return matcher.sameEntries(c.leads, [&](int j) { return pb.plays[static_cast<size_t>(p)].seqAddress(j); }); },
        [](int) { return true; }, playsNamed, freePlays, pb.romPath, "play");
    for (size_t f = 0; f < book.formations.size(); ++f)
        if (out.formations[f].second) out.kept.insert(out.kept.end(), book.formations[f].leads.begin(), book.formations[f].leads.end());
    for (size_t p = 0; p < book.plays.size(); ++p)
        if (out.plays[p].second) out.kept.insert(out.kept.end(), book.plays[p].leads.begin(), book.plays[p].leads.end());
    for (size_t f = 0; f < book.formations.size(); ++f)
        if (!out.formations[f].second)
            for (int j = 0; j < kPlayersPerRecord; ++j)
                out.entries.push_back({formationEntryOffset(out.formations[f].first, j), book.formations[f].leads[static_cast<size_t>(j)],
                                       "formation " + std::to_string(out.formations[f].first) + " " + positionName(j)});
    for (size_t p = 0; p < book.plays.size(); ++p)
        if (!out.plays[p].second)
            for (int j = 0; j < kPlayersPerRecord; ++j)
                out.entries.push_back({playEntryOffset(out.plays[p].first, j), book.plays[p].leads[static_cast<size_t>(j)],
                                       playName(out.plays[p].first) + " " + positionName(j)});
    return out;
}

// Lays the book in with its slots written over `targets` (book slot i into slot targets[i]).
BookImportPlan layOutBook(const Playbook& pb, const CarriedBook& book, const std::vector<int>& targets, const Records& records) {
    Playbook edited;
    edited.playSlots = pb.playSlots;
    BookImportSummary summary;
    for (size_t i = 0; i < book.playSlots.size(); ++i) {
        const CarriedSlot& from = book.playSlots[i];
        clsPlaySlot& slot = edited.playSlots[static_cast<size_t>(targets[i])];
        const int16_t rusher = slot.Rusher();
        slot.clone(from.record);
        slot.formation(records.formations[static_cast<size_t>(from.formation)].first);
        for (int k = 0; k < kPlaysPerSlot; ++k) slot.oPlay(k, records.plays[static_cast<size_t>(from.plays[static_cast<size_t>(k)])].first);
        if (targets[i] >= kRunningSlotCount) slot.Rusher(rusher);
        summary.playSlots.emplace_back(targets[i], slot.name());
    }
    const auto writeSlots = [&](std::vector<uint8_t>& bytes) {
        Image image(pb.romPath, std::move(bytes));
        for (const int t : targets) writeSlot(edited, image, t);
        bytes = image.takeBytes();
    };
    CarriedLayout laid = layOutCarried(pb, book.commands, records.entries, writeSlots, "the import", records.kept);
    for (const int t : targets)
        if (!(laid.reopened.playSlots[static_cast<size_t>(t)] == edited.playSlots[static_cast<size_t>(t)]))
            throw SaveError(pb.romPath + ": the import would leave " + slotName(t) + " otherwise than planned; nothing was written", Refusal::WouldNotReopen);
    summary.formations = records.formations;
    summary.plays = records.plays;
    BookImportPlan plan{std::move(laid.bytes), {}};
    laid.reopened = {};
    summary.laid = std::move(laid);
    plan.summary = std::move(summary);
    return plan;
}

void requireSoundBook(const Playbook& pb, const CarriedBook& book) {
    requireCompleteOpen(pb);
    if (const std::string fault = carriedBookFault(book); !fault.empty())
        throw SaveError(pb.romPath + ": the imported slots are not ones the game could run (" + fault + "); nothing was written");
}

}  // namespace

BookImportPlan planSlotImport(const Playbook& pb, const CarriedBook& book, int target) {
    requireSoundBook(pb, book);
    const std::string& path = pb.romPath;
    if (book.playSlots.size() != 1) throw SaveError(path + ": a slot file holds one slot; nothing was written");
    if (target < 0 || target >= kSlotCount) throw SaveError(path + ": there is no slot " + std::to_string(target));
    const bool running = target < kRunningSlotCount;
    if (running != book.playSlots.front().running)
        throw SaveError(path + ": the imported slot is a " + (book.playSlots.front().running ? "running" : "passing") + " slot and " + slotName(target) +
                        " a " + (running ? "running" : "passing") + " one; they do not mix; nothing was written");
    // Records other slots use are never written; the target's own come first.
    std::vector<bool> formationKept(pb.formations.size(), false), playKept(kPlayCount, false);
    for (int s = 0; s < kSlotCount; ++s) {
        if (s == target) continue;
        const clsPlaySlot& other = pb.playSlots[static_cast<size_t>(s)];
        if (static_cast<size_t>(other.formation()) < formationKept.size()) formationKept[static_cast<size_t>(other.formation())] = true;
        for (int k = 0; k < kPlaysPerSlot; ++k)
            if (other.oPlay(k) < kPlayCount) playKept[static_cast<size_t>(other.oPlay(k))] = true;
    }
    const clsPlaySlot& own = pb.playSlots[static_cast<size_t>(target)];
    std::vector<int> freeFormations, freePlays;
    auto offer = [](std::vector<int>& list, int r, int count, const std::vector<bool>& kept, bool kick) {
        if (r >= 0 && r < count && !kept[static_cast<size_t>(r)] && !kick && std::find(list.begin(), list.end(), r) == list.end()) list.push_back(r);
    };
    const int formations = static_cast<int>(pb.formations.size());
    offer(freeFormations, own.formation(), formations, formationKept, isKickFormation(own.formation()));
    for (int f = 0; f < formations; ++f) offer(freeFormations, f, formations, formationKept, isKickFormation(f));
    for (int k = 0; k < kPlaysPerSlot; ++k) offer(freePlays, own.oPlay(k), kPlayCount, playKept, false);
    for (int p = 0; p < kPlayCount; ++p) offer(freePlays, p, kPlayCount, playKept, false);
    return layOutBook(pb, book, {target}, placeRecords(pb, book, {target}, freeFormations, freePlays));
}

BookImportPlan planPlaybookImport(const Playbook& pb, const CarriedBook& book) {
    requireSoundBook(pb, book);
    if (book.playSlots.size() != kSlotCount) throw SaveError(pb.romPath + ": a playbook file holds all 64 slots; nothing was written");
    // Every slot is replaced: the records the slots use now are free to take first (never a kick formation's).
    std::vector<int> freeFormations, freePlays, targets;
    for (int s = 0; s < kSlotCount; ++s) {
        if (book.playSlots[static_cast<size_t>(s)].running != (s < kRunningSlotCount))
            throw SaveError(pb.romPath + ": the playbook file's slot " + std::to_string(s) + " is of the other kind; nothing was written");
        targets.push_back(s);
        const clsPlaySlot& slot = pb.playSlots[static_cast<size_t>(s)];
        const int f = slot.formation();
        if (f < static_cast<int>(pb.formations.size()) && !isKickFormation(f) && std::find(freeFormations.begin(), freeFormations.end(), f) == freeFormations.end())
            freeFormations.push_back(f);
        for (int k = 0; k < kPlaysPerSlot; ++k)
            if (const int p = slot.oPlay(k); p < kPlayCount && std::find(freePlays.begin(), freePlays.end(), p) == freePlays.end()) freePlays.push_back(p);
    }
    std::sort(freeFormations.begin(), freeFormations.end());
    std::sort(freePlays.begin(), freePlays.end());
    // Then the records no slot uses, as a slot import takes them.
    for (int f = 0; f < static_cast<int>(pb.formations.size()); ++f)
        if (!isKickFormation(f) && std::find(freeFormations.begin(), freeFormations.end(), f) == freeFormations.end()) freeFormations.push_back(f);
    for (int p = 0; p < kPlayCount; ++p)
        if (std::find(freePlays.begin(), freePlays.end(), p) == freePlays.end()) freePlays.push_back(p);
    return layOutBook(pb, book, targets, placeRecords(pb, book, targets, freeFormations, freePlays));
}

BookImportSummary importBook(Playbook& pb, const BookImportPlan& plan, const std::string& dataDir,
                             const std::function<void(const BookImportSummary&)>& confirm) {
    (void)readUnchangedImage(pb);
    replaceFileContents(pb.romPath, fileBytes(pb, plan.bytes), confirm ? std::function<void()>([&] { confirm(plan.summary); }) : nullptr);
    pb = openRom(pb.romPath, dataDir);
    return plan.summary;
}

}  // namespace zpe

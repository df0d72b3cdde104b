#pragma once
// Commands carried from another image: what the game ran there from some
// table entries, as commands with their bytes, what follows each and where
// each address field leads. The engine lays such commands into an image:
// into free bytes (neither run by the game from any entry nor part of an
// editor sequence), every field written for where its target now stands,
// reusing what the image already runs the same way, and checks the result by
// the game's reading and the editor's before anything is written. Plays,
// slots and whole playbooks are carried through it.
#include "analysis/area_map.h"
#include "playbook/playbook.h"
#include "sequence/command_format.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace zpe {

// Where an entry, a command's fall-through or its field leads.
struct CarriedLead {
    enum class Kind { None, Command, Outside };
    Kind kind = Kind::None;
    int command = -1;     // Command: an index into the carried commands
    int32_t address = 0;  // Outside: a game address outside the sequence area (the game's own code)

    static CarriedLead none() { return {}; }
    static CarriedLead to(int index) { return {Kind::Command, index, 0}; }
    static CarriedLead outside(int32_t a) { return {Kind::Outside, -1, a}; }
    bool operator==(const CarriedLead&) const = default;
};

struct CarriedCommand {
    int32_t origin = -1;         // where it stood in the source image (a name for it, never an address here)
    std::vector<uint8_t> bytes;  // as the game reads it; a field's bytes as they stood in the source
    CarriedLead next;            // what the game runs after it; None when it does not go on
    CarriedLead field;           // where its address field leads; None without one
};

using CarriedLeads = std::array<CarriedLead, kPlayersPerRecord>;  // a play's players or a formation's positions

// What the game runs from the table entries naming `entries` (addresses;
// FFFF: nothing) in `pb`'s image as opened: every command it reaches inside
// the area, in address order; `leads` gets each entry as a lead to them.
[[nodiscard]] std::vector<CarriedCommand> carryEntries(const Playbook& pb, const std::vector<SeqKey>& entries, std::vector<CarriedLead>& leads);

// The first way `commands` are not ones the game could run ("" when they
// are): every command's bytes read by the game as one command of their
// length, going on exactly when `next` says so, with a field exactly when
// `field` names something; every lead in range.
[[nodiscard]] std::string carriedCommandsFault(const std::vector<CarriedCommand>& commands);
// The same for eleven entries leading into them; `what` names them in the answer ("QB's entry ...").
[[nodiscard]] std::string carriedLeadsFault(const std::vector<CarriedCommand>& commands, const CarriedLeads& leads);

// Which places of an image run what carried commands run (jumps inside the
// area are ways on, not commands: two places run the same when what follows
// their leading jumps is the same).
class CarriedMatcher {
public:
    CarriedMatcher(const Playbook& pb, const std::vector<CarriedCommand>& commands);
    ~CarriedMatcher();
    // True when a table entry naming `address` runs what `lead` runs (None: FFFF).
    [[nodiscard]] bool sameEntry(const CarriedLead& lead, int32_t address) const;
    // The same for eleven entries at once; `addressOf(j)` gives the image's entry j (a SeqKey of a laid-out image).
    template <typename F>
    [[nodiscard]] bool sameEntries(const CarriedLeads& leads, F addressOf) const {
        for (int j = 0; j < kPlayersPerRecord; ++j)
            if (!sameEntry(leads[static_cast<size_t>(j)], addressOf(j).address())) return false;
        return true;
    }

private:
    struct State;
    std::unique_ptr<State> state_;
};

// A table entry that is to run carried commands: the file offset of its word, the lead it takes, its name.
struct CarriedEntry {
    int32_t offset = 0;
    CarriedLead lead;
    std::string name;  // "play 7 (7) QB", for refusals
};

// The file offset of a table entry's word.
[[nodiscard]] int32_t entryOffset(const AreaEntry& e);

// Carried commands laid into an image, and what became of them.
struct CarriedLayout {
    std::vector<uint8_t> bytes;  // the whole new image (headed)
    Playbook reopened;           // the editor's reading of it
    int reused = 0;              // commands the image already ran the same way
    int copied = 0;              // commands written into free bytes
    int runs = 0;                // free runs written into
    int32_t bytesWritten = 0;    // joining jumps included
    int32_t freeLeft = 0;        // free bytes of the area afterwards
};

// Lays `commands` into `pb`'s image (as opened) so that each of `entries`
// runs what its lead runs, writes the entries, lets `records` write more
// (slot records) into the bytes, and checks the result: from each entry the
// game runs what the lead runs, every other entry runs the very bytes it
// ran, and the editor opens the image and reads every other entry's
// sequence as before. Throws SaveError, nothing planned: too little free
// space (NoFreeRun, with what it needs and what is free), or a result read
// otherwise than planned (WouldNotReopen, in words). `what` names what is
// imported in the refusals ("the imported play"). The count of commands
// reused is of those the entries run, and `runAlready` (the leads of records
// the image holds already, which are not written), at the image's own copies.
[[nodiscard]] CarriedLayout layOutCarried(const Playbook& pb, const std::vector<CarriedCommand>& commands,
                                          const std::vector<CarriedEntry>& entries,
                                          const std::function<void(std::vector<uint8_t>&)>& records, const std::string& what,
                                          const std::vector<CarriedLead>& runAlready = {});

}  // namespace zpe

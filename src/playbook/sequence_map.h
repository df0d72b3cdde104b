#pragma once
// The sequences of an image keyed by SeqKey (a game address, or a made
// number), enumerating in insertion order. The order is the discovery order of the open procedure and decides
// Full Save's layout, so it is kept exactly; lookups are by hash.
#include "sequence/sequence.h"

#include <cstdint>
#include <stdexcept>
#include <unordered_map>
#include <utility>
#include <vector>

namespace zpe {

class SequenceMap {
public:
    using Entry = std::pair<SeqKey, clsSequence>;

    bool contains(SeqKey key) const { return index_.count(key) != 0; }
    // Throws std::out_of_range when no sequence has that key.
    const clsSequence& at(SeqKey key) const { return entries_[indexOf(key)].second; }
    clsSequence& at(SeqKey key) { return entries_[indexOf(key)].second; }
    // nullptr when no sequence has that key.
    const clsSequence* find(SeqKey key) const {
        const auto it = index_.find(key);
        return it == index_.end() ? nullptr : &entries_[it->second].second;
    }

    // Appends a sequence under a new key; a key already present is an error.
    void insert(SeqKey key, clsSequence seq) {
        if (contains(key)) throw std::logic_error("sequence key already present");
        index_.emplace(key, entries_.size());
        entries_.emplace_back(key, std::move(seq));
    }

    // Removes the sequence under `key` (none: nothing); the others keep their order.
    void erase(SeqKey key) {
        const auto it = index_.find(key);
        if (it == index_.end()) return;
        const size_t at = it->second;
        entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(at));
        index_.erase(it);
        for (auto& [k, i] : index_)
            if (i > at) --i;
    }

    void clear() {
        entries_.clear();
        index_.clear();
    }
    size_t size() const { return entries_.size(); }
    bool empty() const { return entries_.empty(); }

    // Entries in insertion order.
    auto begin() const { return entries_.begin(); }
    auto end() const { return entries_.end(); }
    auto begin() { return entries_.begin(); }
    auto end() { return entries_.end(); }

    std::vector<SeqKey> keys() const {
        std::vector<SeqKey> out;
        out.reserve(entries_.size());
        for (const auto& e : entries_) out.push_back(e.first);
        return out;
    }

private:
    size_t indexOf(SeqKey key) const {
        const auto it = index_.find(key);
        if (it == index_.end()) throw std::out_of_range("no sequence at that address");
        return it->second;
    }

    std::vector<Entry> entries_;
    std::unordered_map<SeqKey, size_t> index_;
};

}  // namespace zpe

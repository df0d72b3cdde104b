#pragma once
// The sequences of an image keyed by game address, enumerating in insertion
// order. The order is the discovery order of the open procedure and decides
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
    using Entry = std::pair<int32_t, clsSequence>;

    bool contains(int32_t address) const { return index_.count(address) != 0; }
    // Throws std::out_of_range when no sequence has that address.
    const clsSequence& at(int32_t address) const { return entries_[indexOf(address)].second; }
    clsSequence& at(int32_t address) { return entries_[indexOf(address)].second; }
    // nullptr when no sequence has that address.
    const clsSequence* find(int32_t address) const {
        const auto it = index_.find(address);
        return it == index_.end() ? nullptr : &entries_[it->second].second;
    }

    // Appends a sequence under a new key; a key already present is an error.
    void insert(int32_t address, clsSequence seq) {
        if (contains(address)) throw std::logic_error("sequence address already present");
        index_.emplace(address, entries_.size());
        entries_.emplace_back(address, std::move(seq));
    }

    // Removes the sequence under `address` (none: nothing); the others keep their order.
    void erase(int32_t address) {
        const auto it = index_.find(address);
        if (it == index_.end()) return;
        const size_t at = it->second;
        entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(at));
        index_.erase(it);
        for (auto& [key, i] : index_)
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

    std::vector<int32_t> keys() const {
        std::vector<int32_t> out;
        out.reserve(entries_.size());
        for (const auto& e : entries_) out.push_back(e.first);
        return out;
    }

private:
    size_t indexOf(int32_t address) const {
        const auto it = index_.find(address);
        if (it == index_.end()) throw std::out_of_range("no sequence at that address");
        return it->second;
    }

    std::vector<Entry> entries_;
    std::unordered_map<int32_t, size_t> index_;
};

}  // namespace zpe

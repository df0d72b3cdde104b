#include "model/records.h"

#include <stdexcept>

namespace zpe {

namespace {
size_t playerIndex(int i) {
    if (i < 0 || i >= kPlayersPerRecord) throw std::out_of_range("player index " + std::to_string(i) + " outside 0 to 10");
    return static_cast<size_t>(i);
}

template <typename Array>
void loadAddresses(Image& fp, Array& addresses) {
    for (auto& a : addresses) a = SeqKey::at(fp.readWord());
}

template <typename Array>
void saveAddresses(Image& fp, const Array& addresses) {
    for (const SeqKey a : addresses) fp.writeWord(a.address());
}
}  // namespace

void clsFormation::load(Image& fp) { loadAddresses(fp, addresses_); }
void clsFormation::save(Image& fp) const { saveAddresses(fp, addresses_); }
SeqKey clsFormation::posAddress(int i) const { return addresses_[playerIndex(i)]; }
void clsFormation::posAddress(int i, SeqKey key) { addresses_[playerIndex(i)] = key; }

void clsPlay::load(Image& fp) { loadAddresses(fp, addresses_); }
void clsPlay::save(Image& fp) const { saveAddresses(fp, addresses_); }
SeqKey clsPlay::seqAddress(int i) const { return addresses_[playerIndex(i)]; }
void clsPlay::seqAddress(int i, SeqKey key) { addresses_[playerIndex(i)] = key; }

}  // namespace zpe

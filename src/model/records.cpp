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
    for (auto& a : addresses) a = fp.readWord();
}

template <typename Array>
void saveAddresses(Image& fp, const Array& addresses) {
    for (auto a : addresses) fp.writeWord(a);
}
}  // namespace

void clsFormation::load(Image& fp) { loadAddresses(fp, addresses_); }
void clsFormation::save(Image& fp) const { saveAddresses(fp, addresses_); }
int32_t clsFormation::posAddress(int i) const { return addresses_[playerIndex(i)]; }
void clsFormation::posAddress(int i, int32_t addr) { addresses_[playerIndex(i)] = addr; }

void clsPlay::load(Image& fp) { loadAddresses(fp, addresses_); }
void clsPlay::save(Image& fp) const { saveAddresses(fp, addresses_); }
int32_t clsPlay::seqAddress(int i) const { return addresses_[playerIndex(i)]; }
void clsPlay::seqAddress(int i, int32_t addr) { addresses_[playerIndex(i)] = addr; }

}  // namespace zpe

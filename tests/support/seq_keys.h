#pragma once
// Sequence keys in tests: 0xA000_seq is the sequence read at game address A000.
#include "model/seq_key.h"

constexpr zpe::SeqKey operator""_seq(unsigned long long address) { return zpe::SeqKey::at(static_cast<int32_t>(address)); }

#pragma once
#include <stdexcept>
#include <string>

namespace zpe {

// A file failure: cannot open, read past the end, write failure, a position
// before the start of the file. The message names the file and what failed.
class RomError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace zpe

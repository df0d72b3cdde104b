#pragma once
// Runs a program and captures its exit code, standard output and standard error.
#include <string>
#include <vector>

namespace zpe::test {

struct ProcessResult {
    int exitCode = -1;
    std::string out;
    std::string err;
};

// Runs `program` with `args` (no shell involved) in the working directory `cwd`
// (the current one when empty).
ProcessResult runProcess(const std::string& program, const std::vector<std::string>& args, const std::string& cwd = "");

}  // namespace zpe::test

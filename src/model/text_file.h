#pragma once
// The data files beside the program: forms.txt (one formation name per line)
// and the free-format field stream shared by cmd.txt and the command sheets.
#include <cstddef>
#include <string>
#include <vector>

namespace zpe {

// A name, label or note read from a data file keeps at most this many bytes:
// a data file with a megabyte-long name cannot make every list row that long.
constexpr size_t kMaxDataTextLength = 255;

// Splits text into lines. CR LF, LF and a lone CR all end a line; a last line
// without a line end counts; a line end at the very end adds no empty line.
// Lines are kept unchanged otherwise (no trimming).
std::vector<std::string> splitLines(const std::string& text);

// The folder of the data files for a program in `executableFolder`: beside it
// when forms.txt is there, else ../share/zpe (where an install puts them).
[[nodiscard]] std::string dataFolderFor(const std::string& executableFolder);

// Reads a text file whole. Throws RomError naming the file when it cannot be read.
std::string readTextFile(const std::string& path);

// Formation names from forms.txt, one per line, in formation-table order, each
// cut at kMaxDataTextLength bytes.
std::vector<std::string> readFormNames(const std::string& path);

// Reads fields one at a time from free-format text:
//  - fields are separated by a comma or a line end (CR LF, LF or CR);
//  - blanks (spaces, tabs) before a field are skipped, blanks at the end of an
//    unquoted field are dropped;
//  - a field starting with a double quote runs to the next double quote and
//    the quotes are not part of it (text between the closing quote and the next
//    separator is discarded);
//  - a line holding nothing but blanks holds no field at all: blank lines are
//    skipped, so a stray empty line cannot shift the fields that follow.
class FieldReader {
public:
    explicit FieldReader(std::string text);

    // True while another field can be read: some non-blank text remains, or the
    // previous field ended with a comma (an empty field follows it).
    bool hasField() const;
    // The next field, cut at `limit` bytes; "" when none is left. A note
    // (kWholeField) is kept whole: the file it comes from is bounded in size.
    std::string next(size_t limit = kMaxDataTextLength);
    static constexpr size_t kWholeField = std::string::npos;

private:
    bool atLineEnd(size_t i) const;
    size_t skipLineEnd(size_t i) const;
    size_t skipBlanks(size_t i) const;
    size_t fieldStart() const;
    void consumeSeparator();

    std::string text_;
    size_t pos_ = 0;
    bool afterComma_ = false;
};

}  // namespace zpe

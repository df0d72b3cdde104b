#include "model/text_file.h"

#include "model/file_io.h"

#include <unistd.h>
#include <utility>

namespace zpe {

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::string current;
    bool open = false;  // a line has started and not yet been ended
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '\r' || c == '\n') {
            if (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n') ++i;
            lines.push_back(std::move(current));
            current.clear();
            open = false;
        } else {
            current.push_back(c);
            open = true;
        }
    }
    if (open) lines.push_back(std::move(current));
    return lines;
}

std::string dataFolderFor(const std::string& executableFolder) {
    if (::access((executableFolder + "/forms.txt").c_str(), R_OK) == 0) return executableFolder;
    return executableFolder + "/../share/zpe";
}

std::string readTextFile(const std::string& path) {
    const auto bytes = readWholeFile(path);
    return std::string(bytes.begin(), bytes.end());
}

std::vector<std::string> readFormNames(const std::string& path) {
    std::vector<std::string> names = splitLines(readTextFile(path));
    for (std::string& name : names)
        if (name.size() > kMaxDataTextLength) name.resize(kMaxDataTextLength);
    return names;
}

FieldReader::FieldReader(std::string text) : text_(std::move(text)) {}

bool FieldReader::atLineEnd(size_t i) const { return i < text_.size() && (text_[i] == '\r' || text_[i] == '\n'); }

size_t FieldReader::skipLineEnd(size_t i) const {
    if (i < text_.size() && text_[i] == '\r') {
        ++i;
        if (i < text_.size() && text_[i] == '\n') ++i;
    } else if (i < text_.size() && text_[i] == '\n') {
        ++i;
    }
    return i;
}

size_t FieldReader::skipBlanks(size_t i) const {
    while (i < text_.size() && (text_[i] == ' ' || text_[i] == '\t')) ++i;
    return i;
}

// Where the next field's text begins: blanks skipped and, unless a comma has
// just announced a field, blank lines skipped too.
size_t FieldReader::fieldStart() const {
    size_t i = skipBlanks(pos_);
    if (!afterComma_) {
        while (atLineEnd(i)) i = skipBlanks(skipLineEnd(i));
    }
    return i;
}

bool FieldReader::hasField() const { return afterComma_ || fieldStart() < text_.size(); }

void FieldReader::consumeSeparator() {
    afterComma_ = false;
    if (pos_ < text_.size() && text_[pos_] == ',') {
        ++pos_;
        afterComma_ = true;
    } else if (atLineEnd(pos_)) {
        pos_ = skipLineEnd(pos_);
    }
}

std::string FieldReader::next(size_t limit) {
    if (!hasField()) return {};
    pos_ = fieldStart();
    std::string field;
    if (pos_ < text_.size() && text_[pos_] == '"') {
        const size_t close = text_.find('"', pos_ + 1);
        const size_t end = close == std::string::npos ? text_.size() : close;
        field = text_.substr(pos_ + 1, end - pos_ - 1);
        pos_ = close == std::string::npos ? text_.size() : close + 1;
        while (pos_ < text_.size() && text_[pos_] != ',' && !atLineEnd(pos_)) ++pos_;
    } else {
        const size_t start = pos_;
        while (pos_ < text_.size() && text_[pos_] != ',' && !atLineEnd(pos_)) ++pos_;
        field = text_.substr(start, pos_ - start);
        const auto last = field.find_last_not_of(" \t");
        field.erase(last == std::string::npos ? 0 : last + 1);
    }
    consumeSeparator();
    if (field.size() > limit) field.resize(limit);
    return field;
}

}  // namespace zpe

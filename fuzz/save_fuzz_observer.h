#pragma once
// What the save fuzzer tells a runner about each input: whether the image
// opened, what the saves did. Under libFuzzer no observer is set and the
// fuzzer only aborts when a save's check before the write fires.
#include <string>

namespace zpe::fuzz {

class SaveFuzzObserver {
public:
    virtual ~SaveFuzzObserver() = default;
    // The image the input stands for opened with something to edit (`ok`), or
    // did not (the open stopped, found no sequence, or a slot names a
    // formation beyond the 22 names).
    virtual void opened(bool structured, bool ok) = 0;
    // `which` ("Save", "Full Save") planned its bytes and its check passed.
    virtual void saved(const char* which) = 0;
    // `which` refused with `message` (a SaveError: a refusal a user reads).
    virtual void refused(const char* which, const std::string& message) = 0;
    // `which`'s check before the write fired (a VerifyError: a planning bug),
    // or, with `which` "Edit", an edit left a sequence the editor cannot
    // write. True: the runner counted it, go on with the next input; false: abort.
    virtual bool checkFired(const char* which, const std::string& message) = 0;
    // False: the fuzzer skips Full Save and Compact and Save (Save only).
    virtual bool wantsFullSave() const { return true; }
    // True when the fuzzer should describe each edit through note().
    virtual bool wantsNotes() const { return false; }
    virtual void note(const std::string&) {}
};

// The observer of this process; nullptr (the default) under libFuzzer.
inline SaveFuzzObserver*& saveFuzzObserver() {
    static SaveFuzzObserver* observer = nullptr;
    return observer;
}

}  // namespace zpe::fuzz

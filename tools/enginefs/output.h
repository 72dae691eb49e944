#pragma once

#include <string>

#include "names.h"

/// A file of the file system that is being made: removed again, with a word about it, unless it was finished.
class Output {
public:
    /// Opens it for writing, in place where a source holds it already.
    explicit Output(const std::string& name);
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    ~Output();

    SFsFile* file() const { return file_.get(); }  // null when it cannot be opened; last_error says why
    void finish() { finished_ = true; }

private:
    const std::string name_;
    FilePtr file_;
    bool finished_ = false;
};

#pragma once

#include <functional>
#include <optional>
#include <string>

#include "command.h"
#include "interruption.h"
#include "names.h"

/// The place below a directory of a name from outside; "" for one that would leave it or that no disk of ours could hold.
std::string safe_name(const std::string& name);

/// A file that is being made. It is written beside its place and put there by finish(), so that what is there stays whole
/// until then, and stays when this ends before. What goes wrong is said on standard error. A file of the mounted file system
/// is on the disk by then; of the many below a directory each is not waited for.
class Output {
public:
    Output() = default;
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    ~Output();

    /// Begins a file of this virtual name: a new one in the first source, or in the place of the one that has the name.
    bool open(const std::string& name, FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE);
    /// Begins a file of the disk below a directory, with the directories of its name. Links on the way and in its place
    /// are replaced: what they point to may lie anywhere. `name` is a safe_name.
    bool open_below(const std::filesystem::path& root, const std::string& name);
    bool write(const void* data, std::uint64_t size);
    /// When the file is to have been written last.
    void keep_time(std::filesystem::file_time_type time) { time_ = time; }
    bool finish();

private:
    bool create(const std::string& name, const std::function<SFsFile*()>& open);
    bool put_in_place();

    std::string name_;              // as it is told
    std::filesystem::path place_;   // where a file below a directory goes
    std::filesystem::path beside_;  // where that is written; "" when nothing is left there
    fs::file_ptr file_;
    std::optional<std::filesystem::file_time_type> time_;
    const Interruption interruption_;
};

/// Begins the file that is written, as `flags` say, and gives the bytes of the one that is read to `take`. They must not be
/// the same file.
bool copy_to(Output& output, const FromTo& given, const char* label, const TakeBytes& take,
             FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE);

/// Makes a directory of the disk, and those above it. False, with a word on standard error of `told`, when it is none then.
bool make_directory(const std::string& told, const std::filesystem::path& path);

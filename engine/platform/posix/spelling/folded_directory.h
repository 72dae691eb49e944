#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace platform {

/// The names of one directory, found without regard to ASCII case.
class FoldedDirectory {
public:
    /// Nothing when the directory cannot be read to its end; may throw std::bad_alloc, as add() may.
    static std::optional<FoldedDirectory> read(int directory);

    void add(const char* name, std::size_t length);

    /// The spelling that stands for `name`: the exact one if the directory holds it, else the one without upper-case
    /// letters, else the smallest by bytes. Null when no spelling is held. It is as long as `name`.
    const char* find(const char* name, std::size_t length) const;

    std::size_t size_bytes() const { return text_.capacity() + slots_.capacity() * sizeof(std::uint32_t); }

private:
    void enter(std::size_t at);
    void grow();

    std::vector<char> text_;            // of each name: its length in one byte, then the name
    std::vector<std::uint32_t> slots_;  // hash table of offsets into text_ plus one; 0 is free
    std::size_t count_ = 0;
};

/// What a directory's list of names was when we looked. The change time is taken and not the modification time, since
/// nobody can set it back.
struct DirectoryStamp {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;  // 0: not looked yet
    std::int64_t seconds = 0;
    std::int64_t nanoseconds = 0;
    bool trusted = false;  // any later change must give another stamp

    bool same(const DirectoryStamp& other) const {
        return device == other.device && inode == other.inode && seconds == other.seconds &&
               nanoseconds == other.nanoseconds;
    }
};

/// Looks at the directory at `path`, links followed. False with errno set when there is none.
bool stamp_directory(const char* path, DirectoryStamp& out);

/// Gives the `length` bytes at `name` the spelling that the directory at `path` holds; false when it holds none or
/// cannot be read. `stamp` may hold what was just seen of it, and receives the stamp that the answer belongs to. May
/// throw std::bad_alloc.
bool find_spelling(const char* path, DirectoryStamp& stamp, char* name, std::size_t length);

/// This process has just added `name` to the directory at `path`, whose stamp was `before`: what is remembered of it
/// stays good. Without this, each of many files that are created one after another would have the directory read anew.
void note_created(const char* path, const DirectoryStamp& before, const char* name);
/// What is remembered of this directory has turned out wrong.
void forget_directory(const DirectoryStamp& stamp);

}  // namespace platform

#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace platform {

/// The names of one directory, found without regard to ASCII case.
class FoldedDirectory {
public:
    /// Null when the directory cannot be read to its end or memory is short.
    static std::shared_ptr<const FoldedDirectory> read(int directory);

    /// The spelling that stands for `name`: the exact one if the directory holds it, else the one without upper-case
    /// letters, else the smallest by bytes. Null when no spelling is held. It is as long as `name`.
    const char* find(const char* name, std::size_t length) const;

    std::size_t size_bytes() const { return text_.capacity() + slots_.capacity() * sizeof(std::uint32_t); }

private:
    void add(const char* name);
    void index();

    std::vector<char> text_;            // of each name: its length in one byte, then the name
    std::vector<std::uint32_t> slots_;  // hash table of offsets into text_ plus one; 0 is free
    std::size_t count_ = 0;
};

/// What a directory's list of names was when we looked. The change time is taken and not the modification time, since
/// nobody can set it back.
struct DirectoryStamp {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t seconds = 0;
    std::int64_t nanoseconds = 0;
    bool settled = false;  // old enough that any later change must give another stamp

    bool same(const DirectoryStamp& other) const {
        return device == other.device && inode == other.inode && seconds == other.seconds &&
               nanoseconds == other.nanoseconds;
    }
};

/// Looks at the directory at `path`, links followed. False with errno set when there is none.
bool stamp_directory(const char* path, DirectoryStamp& out);

/// The names of the directory at `path`, from the cache while its stamp has not changed. Null when it cannot be read.
/// `stamp` may hold what was just seen of it, and receives the stamp that the names belong to.
std::shared_ptr<const FoldedDirectory> folded_directory(const char* path, DirectoryStamp& stamp);

}  // namespace platform

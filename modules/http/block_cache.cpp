#include "block_cache.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <zlib.h>

#include "bytes.h"
#include "connection.h"

namespace fs::http {

namespace {

constexpr char magic[] = "engine_filesystem_http 1\n";

bool read_at(int file, std::uint64_t offset, void* to, std::uint64_t size) {
    auto* bytes = static_cast<char*>(to);
    while (size != 0) {
        const ssize_t got = ::pread(file, bytes, size, static_cast<off_t>(offset));
        if (got <= 0) return false;
        bytes += got;
        offset += static_cast<std::uint64_t>(got);
        size -= static_cast<std::uint64_t>(got);
    }
    return true;
}

bool write_at(int file, std::uint64_t offset, const void* from, std::uint64_t size) {
    const auto* bytes = static_cast<const char*>(from);
    while (size != 0) {
        const ssize_t put = ::pwrite(file, bytes, size, static_cast<off_t>(offset));
        if (put <= 0) return false;
        bytes += put;
        offset += static_cast<std::uint64_t>(put);
        size -= static_cast<std::uint64_t>(put);
    }
    return true;
}

/// -1 when it is no regular file, or somebody else has it.
int open_alone(const std::string& path) {
    const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
    struct stat told {};
    if (file < 0 || (::fstat(file, &told) == 0 && S_ISREG(told.st_mode) && ::flock(file, LOCK_EX | LOCK_NB) == 0))
        return file;
    ::close(file);
    return -1;
}

int open_nameless() {
    std::error_code error;
    std::string path = (std::filesystem::temp_directory_path(error) / "enginefs-XXXXXX").string();
    const int file = ::mkostemp(path.data(), O_CLOEXEC);
    if (file >= 0) ::unlink(path.c_str());
    return file;
}

/// Never 0, which means that there is no block.
std::uint32_t sum_of(const char* bytes, std::uint64_t size) {
    const auto sum = static_cast<std::uint32_t>(crc32_z(0, reinterpret_cast<const Bytef*>(bytes), size));
    return std::max(sum, 1u);
}

}  // namespace

BlockCache::~BlockCache() {
    if (file_ >= 0) ::close(file_);
}

void BlockCache::open(const std::string& directory, const std::string& name) {
    if (!directory.empty()) {
        std::error_code error;
        std::filesystem::create_directories(directory, error);
        file_ = open_alone(directory + "/" + name);
    }
    char begin[sizeof magic - 1];
    is_kept_ = file_ >= 0 && read_at(file_, 0, begin, sizeof begin) && std::memcmp(begin, magic, sizeof begin) == 0;
    if (file_ < 0) file_ = open_nameless();
}

void BlockCache::accept(const Version& version) {
    file_size_ = version.size;
    const std::uint64_t blocks = (version.size + block_size - 1) / block_size;
    data_start_ = page + (blocks * 4 + page - 1) / page * page;
    std::string header = magic + std::to_string(version.size) + "\n" + version.validator + "\n";
    const bool is_known = !version.validator.empty() && header.size() <= page;
    header.resize(page);
    std::string found(page, '\0');
    const std::lock_guard guard(lock_);
    states_.assign(blocks, State::ABSENT);
    sums_.assign(blocks, 0);
    held_.clear();
    if (is_kept_ && is_known && read_at(file_, 0, found.data(), page) && found == header) return load_sums();
    if (::ftruncate(file_, 0) != 0 || (is_known && !write_at(file_, 0, header.data(), page))) {
        if (file_ >= 0) ::close(file_);
        file_ = -1;  // every block stays in memory
    }
}

void BlockCache::load_sums() {
    const std::uint64_t most = sums_.size() * 4;
    std::vector<char> bytes(most);
    const ssize_t got = ::pread(file_, bytes.data(), most, static_cast<off_t>(page));
    for (std::uint64_t block = 0; got > 0 && (block + 1) * 4 <= static_cast<std::uint64_t>(got); ++block) {
        sums_[block] = load_u32(&bytes[block * 4]);
        if (sums_[block] != 0) states_[block] = State::UNCHECKED;
    }
}

std::uint64_t BlockCache::size_of(std::uint64_t block) const {
    return std::min(block_size, file_size_ - block * block_size);
}

bool BlockCache::has(std::uint64_t block) {
    {
        const std::lock_guard guard(lock_);
        if (states_[block] != State::UNCHECKED) return states_[block] != State::ABSENT;
    }
    return check(block);
}

bool BlockCache::may_have(std::uint64_t block) {
    const std::lock_guard guard(lock_);
    return states_[block] != State::ABSENT;
}

/// Two threads may both check one block; they come to the same answer.
bool BlockCache::check(std::uint64_t block) {
    std::string bytes(size_of(block), '\0');
    const bool is_good = read_at(file_, place_of(block), bytes.data(), bytes.size()) &&
                         sum_of(bytes.data(), bytes.size()) == sums_[block];
    const std::lock_guard guard(lock_);
    if (states_[block] == State::UNCHECKED) states_[block] = is_good ? State::IN_FILE : State::ABSENT;
    return states_[block] != State::ABSENT;
}

void BlockCache::put(std::uint64_t block, const char* bytes) {
    const std::uint64_t size = size_of(block);
    char sum[4];
    store_u32(sum, sum_of(bytes, size));
    const bool is_written =
        write_at(file_, place_of(block), bytes, size) && write_at(file_, page + block * 4, sum, sizeof sum);
    const std::lock_guard guard(lock_);
    if (is_written) {
        states_[block] = State::IN_FILE;
    } else {
        hold(block, bytes);
    }
}

void BlockCache::hold(std::uint64_t block, const char* bytes) {
    if (held_.size() >= most_in_memory) {
        states_[held_.begin()->first] = State::ABSENT;
        held_.erase(held_.begin());
    }
    held_[block].assign(bytes, size_of(block));
    states_[block] = State::IN_MEMORY;
}

bool BlockCache::read(std::uint64_t offset, char* to, std::uint64_t size) {
    while (size != 0) {
        const std::uint64_t block = offset / block_size;
        const std::uint64_t skip = offset % block_size;
        const std::uint64_t part = std::min(size, block_size - skip);
        if (!read_part(block, skip, to, part)) return false;
        offset += part;
        to += part;
        size -= part;
    }
    return true;
}

bool BlockCache::read_part(std::uint64_t block, std::uint64_t skip, char* to, std::uint64_t size) {
    {
        const std::lock_guard guard(lock_);
        if (states_[block] == State::IN_MEMORY) return std::memcpy(to, held_[block].data() + skip, size), true;
        if (states_[block] != State::IN_FILE) return false;
    }
    if (read_at(file_, place_of(block) + skip, to, size)) return true;
    const std::lock_guard guard(lock_);
    states_[block] = State::ABSENT;
    return false;
}

}  // namespace fs::http

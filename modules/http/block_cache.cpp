#include "block_cache.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <zlib.h>

#include "connection.h"

namespace fs::http {

namespace {

constexpr char magic[] = "engine_filesystem_http 1\n";

/// Files of the disk give and take whole blocks. What is cut short has failed: it is fetched again, or stays in memory.
bool read_at(int file, std::uint64_t offset, char* to, std::uint64_t size) {
    return ::pread(file, to, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
}

bool write_at(int file, std::uint64_t offset, const char* from, std::uint64_t size) {
    return ::pwrite(file, from, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
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

std::uint64_t fnv1a(const std::string& text, std::uint64_t hash) {
    for (const char byte : text) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
    return hash;
}

/// A file name of 32 hexadecimal digits for a text; which does not give the text away.
std::string hashed_name(const std::string& text) {
    char name[33];
    std::snprintf(name, sizeof name, "%016llx%016llx", static_cast<unsigned long long>(fnv1a(text, 0xCBF29CE484222325)),
                  static_cast<unsigned long long>(fnv1a(text, 0x9E3779B97F4A7C15)));
    return name;
}

}  // namespace

BlockCache::~BlockCache() {
    if (file_ >= 0) ::close(file_);
}

void BlockCache::open(const std::string& directory, const std::string& whose) {
    if (!directory.empty()) {
        std::error_code error;
        std::filesystem::create_directories(directory, error);
        file_ = open_alone(directory + "/" + hashed_name(whose) + ".blocks");
    }
    has_name_ = file_ >= 0;
    if (!has_name_) file_ = open_nameless();
}

bool BlockCache::is_kept() const {
    char begin[sizeof magic - 1];
    return has_name_ && read_at(file_, 0, begin, sizeof begin) && std::memcmp(begin, magic, sizeof begin) == 0;
}

void BlockCache::accept(const Version& version) {
    file_size_ = version.size;
    const std::uint64_t blocks = (version.size + block_size - 1) / block_size;
    data_start_ = page + (blocks * 4 + page - 1) / page * page;
    std::string header = magic + std::to_string(version.size) + "\n" + version.validator + "\n";
    has_name_ = has_name_ && !version.validator.empty() && header.size() <= page;
    header.resize(page);
    std::string found(page, '\0');
    states_.assign(blocks, State::ABSENT);
    sums_.assign(blocks, 0);
    if (has_name_ && read_at(file_, 0, found.data(), page) && found == header) return load_sums();
    if (::ftruncate(file_, 0) == 0 && (!has_name_ || write_at(file_, 0, header.data(), page))) return;
    if (file_ >= 0) ::close(file_);
    file_ = -1;  // every block stays in memory
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

/// Two threads may both check one block; they come to the same answer.
bool BlockCache::has(std::uint64_t block) {
    std::unique_lock guard(lock_);
    if (states_[block] != State::UNCHECKED) return states_[block] != State::ABSENT;
    guard.unlock();
    std::string bytes(size_of(block), '\0');
    const bool is_good = read_at(file_, place_of(block), bytes.data(), bytes.size()) &&
                         sum_of(bytes.data(), bytes.size()) == sums_[block];
    guard.lock();
    if (states_[block] == State::UNCHECKED) states_[block] = is_good ? State::IN_FILE : State::ABSENT;
    return states_[block] != State::ABSENT;
}

bool BlockCache::may_have(std::uint64_t block) {
    const std::lock_guard guard(lock_);
    return states_[block] != State::ABSENT;
}

void BlockCache::put(std::uint64_t block, const char* bytes) {
    const std::uint64_t size = size_of(block);
    bool is_written = write_at(file_, place_of(block), bytes, size);
    if (is_written && has_name_) {  // a later run will want the sum
        char sum[4];
        store_u32(sum, sum_of(bytes, size));
        is_written = write_at(file_, page + block * 4, sum, sizeof sum);
    }
    const std::lock_guard guard(lock_);
    if (!is_written && held_.size() >= most_in_memory) {
        states_[held_.begin()->first] = State::ABSENT;
        held_.erase(held_.begin());
    }
    if (!is_written) held_[block].assign(bytes, size);
    states_[block] = is_written ? State::IN_FILE : State::IN_MEMORY;
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

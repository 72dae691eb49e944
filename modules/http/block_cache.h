#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace fs::http {

/// Little-endian numbers, in packs and in the file of fetched blocks.
inline std::uint32_t load_u32(const char* bytes) {
    std::uint32_t number = 0;
    for (unsigned at = 4; at-- > 0;) number = number << 8 | static_cast<unsigned char>(bytes[at]);
    return number;
}

inline void store_u32(char (&bytes)[4], std::uint32_t number) {
    for (unsigned at = 0; at < 4; ++at) bytes[at] = static_cast<char>(number >> (8 * at));
}

struct Version;

/// The blocks of one remote file that were fetched, in a sparse file: a page that says which version of which size they
/// are of, the CRC-32 of each block (0: not there), and the blocks in their places.
///
/// Trust    nothing that the file says is used unless it belongs to the version on the server, and a block that an
///          earlier run left not before its CRC matches. So a file that was cut or damaged costs fetching, no more.
/// Sharing  one at a time has the kept file, in this process or another; who comes later has a file without a name.
/// Failure  a block that cannot be written stays in memory; when there are many such blocks, the first are dropped.
/// Threads  any number, once accept() has returned.
class BlockCache {
public:
    static constexpr std::uint64_t block_size = 64 * 1024;

    ~BlockCache();

    /// Opens the kept file of whoever has this name in `directory`; one without a name when that is "" or does not work.
    void open(const std::string& directory, const std::string& whose);
    /// Whether an earlier run left something.
    bool is_kept() const;
    /// Drops what is of another version. Before anything below.
    void accept(const Version& version);

    std::uint64_t blocks() const { return states_.size(); }
    std::uint64_t size_of(std::uint64_t block) const;
    bool has(std::uint64_t block);
    /// The same of what an earlier run left, before it was looked at.
    bool may_have(std::uint64_t block);
    void put(std::uint64_t block, const char* bytes);
    /// Of blocks that it has. False when one of them is not to be had after all.
    bool read(std::uint64_t offset, char* to, std::uint64_t size);

private:
    enum class State : std::uint8_t { ABSENT, UNCHECKED, IN_FILE, IN_MEMORY };
    static constexpr std::uint64_t page = 4096;
    static constexpr std::size_t most_in_memory = 1024;

    void load_sums();
    bool read_part(std::uint64_t block, std::uint64_t skip, char* to, std::uint64_t size);
    std::uint64_t place_of(std::uint64_t block) const { return data_start_ + block * block_size; }

    int file_ = -1;
    bool has_name_ = false;        // and so may serve a later run
    std::uint64_t file_size_ = 0;  // of the remote file
    std::uint64_t data_start_ = 0;
    std::mutex lock_;  // guards what follows; what a state tells of the file holds as long as the state does
    std::vector<State> states_;
    std::vector<std::uint32_t> sums_;  // of UNCHECKED blocks
    std::map<std::uint64_t, std::string> held_;
};

}  // namespace fs::http

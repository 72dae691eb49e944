#pragma once

#include <cstdint>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

/// One file of a pack, as the pack's central directory records it.
struct ZipEntry {
    std::string name;
    std::uint64_t header_offset = 0;
    std::uint64_t packed_size = 0;
    std::uint64_t size = 0;
    std::uint32_t crc = 0;
    std::uint32_t method = 0;  // 0 stored, 8 deflated
    bool encrypted = false;
    std::uint32_t dos_time = 0;  // date in the high half, time in the low one
};

/// Reads a pack entry by entry with its recorded checksums, which the file system itself does not look at. For the files
/// that the library mounts (ZIP application note 4.3, without zip64, encryption and comment).
class ZipDirectory {
public:
    /// False, with the reason in error(), when the file is no such zip.
    bool open(const std::string& native_path);
    const std::string& error() const { return error_; }

    /// Every entry but the directories, in recorded order.
    const std::vector<ZipEntry>& entries() const { return entries_; }

    /// Decodes an entry, handing its bytes on in pieces. The answer is "" or what is wrong: the data, the size, the
    /// checksum, or "stopped" when the consumer answered false.
    std::string decode(const ZipEntry& entry, const std::function<bool(const char*, std::size_t)>& consumer);

private:
    bool fail(const std::string& reason);
    bool read_at(std::uint64_t offset, char* buffer, std::size_t size);
    bool read_entries(const std::string& directory, std::size_t count);
    std::string find_data(const ZipEntry& entry, std::uint64_t& offset);

    std::ifstream file_;
    std::uint64_t length_ = 0;
    std::vector<ZipEntry> entries_;
    std::string error_;
};

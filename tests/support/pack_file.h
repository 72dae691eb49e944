#pragma once

#include <engine/filesystem/containers.h>

#include <random>
#include <string>
#include <string_view>
#include <vector>

/// Bytes that compress to about half and hold no long repetitions.
inline std::string noise(std::size_t size, std::uint32_t seed) {
    std::mt19937 random(seed);
    std::string out(size, '\0');
    for (char& byte : out) byte = static_cast<char>('a' + (random() & 15));
    return out;
}

struct PackFileEntry {
    std::string_view name;
    std::string_view bytes;
    int level = 6;  // 0 stores
};

/// Writes a pack with these entries; false when one of them cannot be added.
inline bool write_pack(const std::string& path, const std::vector<PackFileEntry>& entries) {
    fs::pack_writer writer;
    if (!writer.open(path.c_str())) return false;
    for (const PackFileEntry& entry : entries) {
        if (!writer.add(std::string(entry.name).c_str(), entry.bytes.data(), entry.bytes.size(), entry.level, 0))
            return false;
    }
    return writer.finish();
}

#pragma once

#include <cstdio>
#include <string>

/// The bytes of a native file; none when it cannot be opened.
inline std::string read_file(const std::string& path) {
    std::string out;
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) return out;
    char buffer[65536];
    for (std::size_t got = 1; got != 0;) {
        got = std::fread(buffer, 1, sizeof buffer, file);
        out.append(buffer, got);
    }
    std::fclose(file);
    return out;
}

/// Writes a native file; false when not all of it was written.
inline bool write_file(const std::string& path, const std::string& bytes) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) return false;
    const bool whole = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    return std::fclose(file) == 0 && whole;
}

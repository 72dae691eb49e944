#pragma once

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <system_error>

/// The bytes of a native file; none when it cannot be opened.
inline std::string read_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

/// Writes a native file; false when not all of it was written.
inline bool write_file(const std::string& path, std::string_view bytes) {
    std::ofstream out(path, std::ios::binary);
    return out.write(bytes.data(), static_cast<std::streamsize>(bytes.size())).flush().good();
}

/// A directory of a test's own, removed with everything in it at the end. Its path is full, lower-case and
/// "/"-separated.
class TempDirectory {
public:
    TempDirectory() {
        static std::atomic<unsigned> serial{0};
        const auto base = std::filesystem::current_path();
        do path_ = base / ("t" + std::to_string(serial.fetch_add(1)));
        while (!std::filesystem::create_directory(path_));
        text_ = path_.generic_string();
        for (char& c : text_) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
        if (!std::filesystem::exists(text_)) text_ = path_.generic_string();
    }
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;
    ~TempDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    /// Without a trailing "/".
    const std::string& path() const { return text_; }
    std::string operator/(std::string_view name) const { return text_ + "/" + std::string(name); }

    /// Makes a file with its directories; returns its full path.
    std::string write(std::string_view name, std::string_view bytes) const {
        const std::string full = *this / name;
        std::filesystem::create_directories(std::filesystem::path(full).parent_path());
        write_file(full, bytes);
        return full;
    }
    std::string read(std::string_view name) const { return read_file(*this / name); }
    bool exists(std::string_view name) const { return std::filesystem::exists(*this / name); }

private:
    std::filesystem::path path_;
    std::string text_;
};

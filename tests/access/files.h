#pragma once

#include <engine/filesystem/comfort.h>

#include <string>
#include <string_view>

namespace test {

/// Opens, writes `text` and closes; false when either fails.
inline bool save(const char* path, std::string_view text, EFSMode::TYPE mode = EFSMode::WRITE,
                 FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE) {
    const fs::file_ptr file = fs::open_file(path, mode, flags);
    return file && fs::write(file.get(), text.data(), text.size()) == text.size();
}

/// What the file holds; "(none)" when it cannot be read.
inline std::string load(const char* path, FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE) {
    const fs::file_ptr file = fs::open_file(path, EFSMode::READ, flags);
    std::string text;
    return file && fs::read_rest(file.get(), text) ? text : "(none)";
}

}  // namespace test

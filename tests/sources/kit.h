#pragma once

#include <engine/filesystem.h>
#include <engine/filesystem/comfort.h>

#include <gmock/gmock.h>
#include <zlib.h>

#include "engine/platform/error.h"
#include "tests/support/failure.h"
#include "tests/support/memory_source.h"
#include "tests/support/temp_directory.h"

// What tests of sources say again and again.

inline fs::path as_path(const std::string& text, bool lower = true) { return fs::path(text.c_str(), lower); }

inline fs::path as_dir(const std::string& text, bool lower = true) {
    fs::path dir;
    dir.Set(text.c_str(), "", lower);
    return dir;
}

inline std::string as_text(const fs::path& path) { return std::string(path.PathName()) + path.FileName(); }

/// Every name of the source, in the order of its list.
inline std::vector<std::string> all_names(CFSSource& source) {
    return test::take_names(source.get_file_list(nullptr, nullptr, true));
}

/// Reads to the end and closes; "(null)" for a null handle.
inline std::string read_all(SFsFile* file) {
    if (!file) return "(null)";
    std::string bytes;
    EXPECT_TRUE(fs::read_rest(file, bytes));
    fs::close(file);
    return bytes;
}

/// Writes and closes; false for a null handle.
inline bool write_all(SFsFile* file, const std::string& bytes) {
    const bool written = file && fs::write(file, bytes.data(), bytes.size()) == bytes.size();
    fs::close(file);
    return written;
}

/// The bytes as a stream of zlib.
inline std::string zipped(const std::string& data, int level = 6) {
    uLongf size = compressBound(static_cast<uLong>(data.size()));
    std::string out(size, '\0');
    compress2(reinterpret_cast<Bytef*>(out.data()), &size, reinterpret_cast<const Bytef*>(data.data()),
              static_cast<uLong>(data.size()), level);
    out.resize(size);
    return out;
}
/// The same without its header and checksum: a bare deflate stream.
inline std::string deflated(const std::string& data, int level = 6) {
    const std::string stream = zipped(data, level);
    return stream.substr(2, stream.size() - 6);
}

/// Notes what the file monitor hears, as NAME MODE+FLAGS.
class RecordingMonitor : public fs::IFsMonitor {
public:
    RecordingMonitor() { fs::set_monitor(this); }
    ~RecordingMonitor() { fs::set_monitor(nullptr); }
    void touch_file(const char* path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) override {
        const std::string name(path);
        touched.push_back(name.substr(name.rfind('/') + 1) + " " + std::to_string(mode) + "+" + std::to_string(flags));
    }
    std::vector<std::string> touched;
};

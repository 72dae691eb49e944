#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <engine/filesystem/contract/file.h>

/// What happened to a file, shared with the test because the stream destroys the file itself.
struct FileRecord {
    std::string bytes;
    std::vector<std::uint64_t> reads = {};   // sizes asked for
    std::vector<std::uint64_t> writes = {};  // sizes given
    bool closed = false;
    int failing_read = -1;  // the read, counted from 0, that fails without a reason
};

/// An open file over a record in memory.
class RecordingFile : public SFsFile {
public:
    explicit RecordingFile(FileRecord& record) : record_(record) {}
    ~RecordingFile() override { record_.closed = true; }

    std::uint64_t read(void* buffer, std::uint64_t size) override {
        record_.reads.push_back(size);
        if (static_cast<int>(record_.reads.size()) - 1 == record_.failing_read) return UINT64_MAX;
        const std::uint64_t begin = std::min(at_, length());
        const std::uint64_t there = std::min(size, length() - begin);
        std::memcpy(buffer, record_.bytes.data() + begin, there);
        at_ += there;
        return there;
    }
    std::uint64_t write(const void* data, std::uint64_t size) override {
        record_.writes.push_back(size);
        if (record_.bytes.size() < at_ + size) record_.bytes.resize(at_ + size);
        std::memcpy(record_.bytes.data() + at_, data, size);
        at_ += size;
        return size;
    }
    bool seek(std::int64_t offset, EFSSeek::TYPE origin) override {
        const std::uint64_t from[] = {0, at_, length()};
        at_ = from[origin] + static_cast<std::uint64_t>(offset);
        return true;
    }
    std::uint64_t length() override { return record_.bytes.size(); }
    std::uint64_t tell() override { return at_; }
    bool set_eof() override {
        record_.bytes.resize(at_);
        return true;
    }

private:
    FileRecord& record_;
    std::uint64_t at_ = 0;
};

/// Bytes that do not repeat soon, so that a misplaced one is seen.
inline std::string sample_bytes(std::size_t size, std::uint32_t seed = 1) {
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
        seed = seed * 1664525u + 1013904223u;
        byte = static_cast<char>(seed >> 24);
    }
    return bytes;
}

#pragma once

#include <engine/filesystem/contract/error.h>
#include <engine/filesystem/streams.h>

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "engine/platform/error.h"
#include "tests/support/failure.h"
#include "tests/support/memory_source.h"
#include "tests/support/temp_directory.h"

/// What happened to a file, shared with the test because the stream destroys the file itself.
struct FileRecord {
    explicit FileRecord(const std::string& content = "") : bytes(std::make_shared<std::string>(content)) {}
    const test::Bytes bytes;                // shared with the file while that is open
    std::vector<std::uint64_t> reads = {};  // sizes asked for
    std::vector<test::Write> writes = {};
    bool fails_to_read = false;  // without a reason
};

class RecordingFile : public test::MemoryFile {
public:
    explicit RecordingFile(FileRecord& record) : MemoryFile(nullptr, "", record.bytes, 0), record_(record) {
        writes = &record.writes;
    }

    std::uint64_t read(void* buffer, std::uint64_t size) override {
        record_.reads.push_back(size);
        return record_.fails_to_read ? UINT64_MAX : MemoryFile::read(buffer, size);
    }

private:
    FileRecord& record_;
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

/// A stream over a vector of its own, open for writing at first.
struct VectorStream {
    VectorStream() { stream.open_from_memory(EFSMode::WRITE, &bytes, false); }
    std::string written() const { return {bytes.begin(), bytes.end()}; }
    bool start_reading(const std::string& from, bool zip = false) {
        stream.close();
        bytes.assign(from.begin(), from.end());
        return stream.open_from_memory(EFSMode::READ, &bytes, zip);
    }
    ztl::vector<unsigned char> bytes;
    fs::vectorfile stream;
};

/// What is left of a stream, in pieces of `piece` bytes.
inline std::string read_all(fs::ifile& stream, std::size_t piece = 1000) {
    std::string bytes;
    std::string buffer(piece, '\0');
    while (const std::uint64_t got = stream.read(buffer.data(), piece)) {
        if (got > piece) return "failed";
        bytes.append(buffer, 0, got);
    }
    return bytes;
}

inline std::string gzip_member_of(const std::string& plain) {
    VectorStream member;
    member.stream.open_from_memory(EFSMode::WRITE, &member.bytes, true);
    member.stream.write(plain.data(), plain.size());
    member.stream.close();
    return member.written();
}

#pragma once

#include <engine/filesystem/streams.h>

#include <gmock/gmock.h>

#include <tuple>
#include <utility>

#include "engine/platform/error.h"
#include "tests/support/failure.h"
#include "tests/support/pack_file.h"
#include "tests/support/temp_directory.h"

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

#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include <engine/filesystem/streams.h>

/// A gzip member in an open file, from some position on: the library's stream over the file's own operations, so that
/// memory does not grow with the member.
class MemberFile : public fs::izipped_buffer_file {
public:
    /// The member begins at `start`. The file must outlive this.
    MemberFile(SFsFile* file, std::uint64_t start) : file_(file), start_(start) {}

    bool write_failed() const { return write_failed_; }
    const std::string& write_error() const { return write_error_; }
    /// Where in the file a member that was read to its end ends. Nothing can be read afterwards.
    std::uint64_t find_end();

    std::uint64_t write_data(const void* data, std::uint64_t size) override;
    std::uint64_t read_data(void* buffer, std::uint64_t size) override;
    std::uint64_t get_size() override;
    bool set_size(std::uint64_t) override { return false; }
    std::uint64_t get_current_pos() override;
    bool set_current_pos(std::int64_t position) override;

private:
    SFsFile* const file_;
    const std::uint64_t start_;
    bool write_failed_ = false;
    std::string write_error_;
    bool dry_ = false;    // the file is not asked any more
    bool asked_ = false;  // but the stream did ask
};

/// What decoding a member came to.
struct MemberResult {
    std::string wrong{};    // "": it was whole
    std::uint64_t end = 0;  // where a whole member ends in the file
};

/// Takes decoded bytes; false stops the decoding.
using TakeBytes = std::function<bool(const char* data, std::uint64_t size)>;

/// Decodes the member that begins at `start`, and holds it against its checksum and length.
MemberResult decode_member(SFsFile* file, std::uint64_t start, const TakeBytes& take);

#include "member_file.h"

#include <vector>

#include <engine/filesystem.h>

namespace {

constexpr std::uint64_t failed = ~std::uint64_t{0};
constexpr std::size_t piece_size = 1u << 20;
constexpr std::uint64_t size_field = 4;
constexpr std::uint64_t most_read_ahead = 4096;  // what the stream may have taken from the file behind the member

std::uint32_t little_endian(const unsigned char* bytes) {
    return bytes[0] | std::uint32_t{bytes[1]} << 8 | std::uint32_t{bytes[2]} << 16 | std::uint32_t{bytes[3]} << 24;
}

/// The plain length, in its lower 32 bits, that the trailer before `end` records.
bool read_recorded_size(SFsFile* file, std::uint64_t end, std::uint32_t& size) {
    unsigned char bytes[size_field];
    if (end < size_field || !fs::seek(file, static_cast<std::int64_t>(end - size_field), EFSSeek::BEGIN)) return false;
    if (fs::read(file, bytes, sizeof bytes) != sizeof bytes) return false;
    size = little_endian(bytes);
    return true;
}

}  // namespace

std::uint64_t MemberFile::write_data(const void* data, std::uint64_t size) {
    if (!write_failed_ && fs::write(file_, data, size) == size) return size;
    if (!write_failed_) write_error_ = fs::last_error().text;
    write_failed_ = true;
    return 0;
}

std::uint64_t MemberFile::read_data(void* buffer, std::uint64_t size) {
    if (dry_) return asked_ = true, 0;
    const std::uint64_t got = fs::read(file_, buffer, size);
    return got == failed ? 0 : got;
}

std::uint64_t MemberFile::get_size() {
    const std::uint64_t length = fs::length(file_);
    return length == failed || length < start_ ? 0 : length - start_;
}

std::uint64_t MemberFile::get_current_pos() {
    const std::uint64_t position = fs::tell(file_);
    return position == failed || position < start_ ? 0 : position - start_;
}

bool MemberFile::set_current_pos(std::int64_t position) {
    return position >= 0 && fs::seek(file_, static_cast<std::int64_t>(start_) + position, EFSSeek::BEGIN);
}

std::uint64_t MemberFile::find_end() {
    // The stream reads ahead and does not tell how far: its bytes are taken one by one until it asks for more.
    const std::uint64_t reached = fs::tell(file_);
    dry_ = true;
    std::uint64_t ahead = 0;
    for (; ahead <= most_read_ahead; ++ahead) {
        get_byte();
        if (asked_) break;
    }
    return reached == failed ? failed : reached - ahead;
}

MemberResult decode_member(SFsFile* file, std::uint64_t start, const TakeBytes& take) {
    if (!fs::seek(file, static_cast<std::int64_t>(start), EFSSeek::BEGIN)) return {.wrong = "it cannot be read"};
    MemberFile member(file, start);
    if (!member.init(EFSMode::READ, true)) return {.wrong = "no gzip member begins there"};
    std::vector<char> buffer(piece_size);
    std::uint64_t produced = 0;
    while (const std::uint64_t got = member.read(buffer.data(), buffer.size())) {
        produced += got;
        if (!take(buffer.data(), got)) return {.wrong = "it was not decoded to its end"};
    }
    // A stream that failed has no position any more.
    if (member.tell() != produced) return {.wrong = "it is damaged or cut off"};
    const std::uint64_t end = member.find_end();
    std::uint32_t recorded = 0;
    if (end == failed || !read_recorded_size(file, end, recorded)) return {.wrong = "its trailer cannot be read"};
    if (recorded != static_cast<std::uint32_t>(produced)) return {.wrong = "its length is not the recorded one"};
    return {.wrong = "", .end = end};
}

#include "engine/platform/files.h"

#include <algorithm>

#include "engine/platform/text.h"

// What is the same on every system. The position of a file is kept here, and every read and write names its offset: so
// seeking costs no call of the system, and reading behind a seek costs one.

namespace platform {
namespace {

constexpr std::uint64_t largest_position = 0x7FFF'FFFF'FFFF'FFFF;
constexpr std::uint64_t largest_piece = 0x4000'0000;  // a multiple of any alignment, and below every system's limit

std::uint64_t fail_size(Failure failure) {
    fail(failure);
    return all_ones;
}

/// Moves pieces until all is done, the file ends, or a call fails: what was moved before that counts. A piece that is no
/// multiple of `alignment` is the end of a file that is read unbuffered.
template <class Move>
std::uint64_t move_all(std::uint64_t size, std::uint32_t alignment, Move move) {
    std::uint64_t done = 0;
    while (done < size) {
        const std::uint64_t moved = move(done, std::min(size - done, largest_piece));
        if (moved == all_ones) return done > 0 ? done : all_ones;
        done += moved;
        if (moved == 0 || done % alignment != 0) break;
    }
    return done;
}

/// Opened for writing, and so refused on a read-only file and on one that is in use. 0 is no time.
bool change_times(const char* path, std::int64_t time, bool all) {
    if (meets_fault(FaultPoint::CHANGE)) return false;
    if (time < 0) return fail(Failure::OTHER);
    File file = File::open(path, OpenOptions{.access = Access::WRITE});
    return file.valid() && (time == 0 || file.set_times(time, all));
}

/// Windows gives these to devices whatever extension follows: "nul", "NUL.txt", "com1 .log".
bool is_device(std::string_view name) {
    constexpr std::string_view devices[] = {"con", "prn", "aux", "nul", "conin$", "conout$"};
    std::string_view stem = name.substr(0, name.find('.'));
    stem = stem.substr(0, stem.find_last_not_of(' ') + 1);
    if (std::ranges::any_of(devices, [&](std::string_view device) { return equal_folded(stem, device); })) return true;
    const std::string_view kind = stem.substr(0, 3);
    const bool is_numbered = stem.size() == 4 && stem[3] >= '1' && stem[3] <= '9';
    return is_numbered && (equal_folded(kind, "com") || equal_folded(kind, "lpt"));
}

}  // namespace

File& File::operator=(File&& other) noexcept {
    if (this == &other) return *this;
    close();
    state_ = std::exchange(other.state_, {});
    return *this;
}

bool File::close() {
    const bool is_whole = !valid() || close_handle();
    state_ = {};
    return is_whole;
}

File File::open(const PathAt& path, const OpenOptions& options) {
    File file;
    if (meets_fault(FaultPoint::OPEN)) return file;
    bool created = false;
    file.open_unchanged(path, options, created);
    if (!file.valid()) return file;
    const bool empties = options.truncates() && !created;
    if (options.at_end && !created && !empties) {
        file.state_.position = file.length();
        if (file.state_.position == all_ones) file.close();
    }
    if (empties && (meets_fault(FaultPoint::TRUNCATE) || !file.end_at(0))) file.close();
    return file;
}

std::uint64_t File::read(void* buffer, std::uint64_t size) {
    const std::uint64_t moved = read_at(buffer, size, state_.position);
    if (moved != all_ones) state_.position += moved;
    return moved;
}

std::uint64_t File::read_at(void* buffer, std::uint64_t size, std::uint64_t offset) const {
    if (!valid()) return fail_size(Failure::INVALID_HANDLE);
    if (offset > largest_position) return fail_size(Failure::OTHER);
    if (meets_fault(FaultPoint::READ)) return all_ones;
    size = std::min(size, largest_position - offset);  // a read that reaches beyond is a mistake to the systems
    return move_all(size, state_.alignment, [&](std::uint64_t done, std::uint64_t piece) {
        return read_some(static_cast<char*>(buffer) + done, piece, offset + done);
    });
}

std::uint64_t File::write(const void* buffer, std::uint64_t size) {
    if (!valid()) return fail_size(Failure::INVALID_HANDLE);
    if (const auto fault = fault_at(FaultPoint::WRITE)) {
        fail(*fault != Failure::NONE ? *fault : Failure::DISK_FULL);
        if (*fault != Failure::NONE) return all_ones;
        size /= 2;
    }
    const std::uint64_t moved = move_all(size, 1, [&](std::uint64_t done, std::uint64_t piece) {
        const std::uint64_t some = write_some(static_cast<const char*>(buffer) + done, piece, state_.position + done);
        if (some == 0) fail(Failure::DISK_FULL);
        return some;
    });
    if (moved != all_ones) state_.position += moved;
    return moved;
}

bool File::seek(std::int64_t offset, Origin origin) {
    if (!valid()) return fail(Failure::INVALID_HANDLE);
    std::uint64_t base = 0;
    if (origin == Origin::CURRENT) base = state_.position;
    if (origin == Origin::END && (base = length()) == all_ones) return false;
    const std::uint64_t target = base + static_cast<std::uint64_t>(offset);  // wraps where it cannot be a position
    if (target > largest_position) return fail(Failure::OTHER);
    state_.position = target;
    return true;
}

std::uint64_t File::tell() const { return valid() ? state_.position : fail_size(Failure::INVALID_HANDLE); }

std::uint64_t File::length() const {
    if (!valid()) return fail_size(Failure::INVALID_HANDLE);
    return meets_fault(FaultPoint::LENGTH) ? all_ones : ask_length();
}

bool File::set_end() {
    if (!valid()) return fail(Failure::INVALID_HANDLE);
    return !meets_fault(FaultPoint::SET_END) && end_at(state_.position);
}

bool File::sync() {
    if (!valid()) return fail(Failure::INVALID_HANDLE);
    return !meets_fault(FaultPoint::SYNC) && flush();
}

bool File::replace(const char* from, const char* to) {
    if (!valid()) return fail(Failure::INVALID_HANDLE);
    if (meets_fault(FaultPoint::RENAME) || !rename_open(from, to)) return false;
    close();
    return true;
}

bool File::remove(const char* from) {
    if (!valid()) return fail(Failure::INVALID_HANDLE);
    if (meets_fault(FaultPoint::REMOVE) || !remove_open(from)) return false;
    close();
    return true;
}

bool set_write_time(const char* path, std::int64_t time) { return change_times(path, time, false); }
bool set_all_times(const char* path, std::int64_t time) { return change_times(path, time, true); }

bool is_valid_name(const char* text, std::size_t length) {
    constexpr std::size_t longest_name = 255;
    constexpr std::string_view forbidden = "<>:\"|?*/\\\x7F";
    const std::string_view name(text, length);
    if (name.empty() || name.size() > longest_name || name.back() == '.' || name.back() == ' ') return false;
    const auto is_forbidden = [&](char c) {
        return static_cast<unsigned char>(c) < 0x20 || forbidden.find(c) != std::string_view::npos;
    };
    return std::ranges::none_of(name, is_forbidden) && !is_device(name);
}

}  // namespace platform

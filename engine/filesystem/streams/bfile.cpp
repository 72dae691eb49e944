// One buffer over a native file: a window of the file that holds bytes read, bytes pending, or both. The pending ones
// are one run inside the window. Reading or writing inside the window touches memory only; stepping out of it first
// writes the run.
#include <engine/filesystem/streams/bfile.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>
#include <utility>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/open_file.h"
#include "engine/filesystem/handles/native_open.h"
#include "engine/platform/files.h"

namespace fs {

namespace {

constexpr std::uint64_t largest_position = std::numeric_limits<std::int64_t>::max();
constexpr std::uint64_t value_size = 4;
constexpr FFSOpenFlags::FLAGS gzip_flags =
    FFSOpenFlags::GZIP | FFSOpenFlags::GZIP_LEVEL1 | FFSOpenFlags::GZIP_LEVEL5 | FFSOpenFlags::GZIP_LEVEL9;
constexpr FFSOpenFlags::FLAGS known_flags = FFSOpenFlags::CREATE | FFSOpenFlags::WRITE_THROUGH;

}  // namespace

struct bfile_win32::State {
    State(std::string path, EFSMode::TYPE mode, std::uint32_t size)
        : name(std::move(path)),
          readable(mode == EFSMode::READ || mode == EFSMode::READ_WRITE),
          writable(mode != EFSMode::READ),
          buffer_size(size),
          buffer(new std::uint8_t[size]) {}

    bool start(const platform::OpenOptions& options) {
        file = platform::File::open(name.c_str(), options);
        if (!file.valid()) return refuse_by_disk(name.c_str(), "cannot be opened");
        length = options.truncates() ? 0 : file.length();
        if (length > largest_position) return refuse_by_disk(name.c_str(), "does not tell its length");
        pos = base = options.at_end ? length : 0;
        return true;
    }

    bool flush() {
        while (dirty_begin != dirty_end) {
            const std::uint64_t done =
                write_at(buffer.get() + dirty_begin, dirty_end - dirty_begin, base + dirty_begin);
            if (done == 0) return false;
            dirty_begin += static_cast<std::uint32_t>(done);
        }
        dirty_begin = dirty_end = 0;
        failed = false;
        return true;
    }

    /// Bytes written; 0, with the failure kept, when there are none.
    std::uint64_t write_at(const std::uint8_t* data, std::uint64_t size, std::uint64_t offset) {
        const bool placed = file.seek(static_cast<std::int64_t>(offset), platform::Origin::BEGIN);
        const std::uint64_t done = placed ? file.write(data, size) : failed_size;
        if (done <= size && done != 0) return done;
        failed = true;
        refuse_by_disk(name.c_str(), "cannot be written");
        return 0;
    }

    void set_end() {
        if (!writable || !flush()) return;
        uncut = !file.seek(static_cast<std::int64_t>(pos), platform::Origin::BEGIN) || !file.set_end();
        if (uncut) {
            refuse_by_disk(name.c_str(), "cannot be cut");
            return;
        }
        length = pos;
        move_window(pos);
    }

    /// What the window holds, and then what must be fetched: into the window, or, when that is smaller than what is wanted,
    /// straight into the caller's memory.
    std::uint64_t read(std::uint8_t* out, std::uint64_t size) {
        if (!readable) return fail(EFSError::INVALID_ARGUMENT, "The stream is not open for reading.", name.c_str());
        std::uint64_t done = 0;
        while (done < size) {
            const std::uint64_t wanted = size - done;
            if (const std::uint64_t inside = pos - base; inside < valid) {
                const std::uint64_t now = std::min<std::uint64_t>(valid - inside, wanted);
                std::memcpy(out + done, buffer.get() + inside, static_cast<std::size_t>(now));
                done += now;
                pos += now;
                continue;
            }
            if (!flush()) return done == 0 ? failed_size : done;
            const bool direct = wanted >= buffer_size;
            if (!direct) move_window(pos);
            const std::uint64_t got =
                file.read_at(direct ? out + done : buffer.get(), direct ? wanted : buffer_size, pos);
            if (got == failed_size) {
                refuse_by_disk(name.c_str(), "cannot be read");
                return done == 0 ? failed_size : done;
            }
            if (got == 0) break;
            length = std::max(length, pos + got);
            if (direct) {
                done += got;
                pos += got;
            } else {
                valid = static_cast<std::uint32_t>(got);
            }
        }
        return done;
    }

    /// Writes into the window at the position, which lies in it or right behind it.
    void put(const std::uint8_t* data, std::uint32_t size) {
        const auto from = static_cast<std::uint32_t>(pos - base);
        const std::uint32_t to = from + size;
        std::memcpy(buffer.get() + from, data, size);
        const bool clean = dirty_begin == dirty_end;
        // Between two pending places the window holds the file's own bytes, so one run may cover both.
        dirty_begin = clean ? from : std::min(dirty_begin, from);
        dirty_end = clean ? to : std::max(dirty_end, to);
        valid = std::max(valid, to);
        pos += size;
        length = std::max(length, pos);
    }

    std::uint64_t write(const std::uint8_t* data, std::uint64_t size) {
        if (!writable) return fail(EFSError::INVALID_ARGUMENT, "The stream is not open for writing.", name.c_str());
        if (size > largest_position - pos)
            return fail(EFSError::TOO_LARGE, "No file is as long as this.", name.c_str());
        for (std::uint64_t done = 0; done < size;) {
            const std::uint64_t inside = pos - base;
            const std::uint64_t room = inside <= valid ? buffer_size - inside : 0;
            std::uint64_t now = std::min(room, size - done);
            if (now != 0) {
                put(data + done, static_cast<std::uint32_t>(now));
                done += now;
                continue;
            }
            if (!flush()) return done == 0 ? failed_size : done;
            move_window(pos);
            if (size - done < buffer_size) continue;
            now = write_at(data + done, size - done, pos);
            if (now == 0) return done == 0 ? failed_size : done;
            done += now;
            pos += now;
            length = std::max(length, pos);
            move_window(pos);
        }
        return size;
    }

    // Typed values come four bytes at a time; these two make no call.

    bool read_value(void* out) {
        const std::uint64_t inside = pos - base;
        if (!readable || valid < value_size || inside > valid - value_size) return false;
        std::memcpy(out, buffer.get() + inside, value_size);
        pos += value_size;
        return true;
    }

    /// Only where the value goes on behind the pending run, at the window's end.
    bool write_value(const void* data) {
        const std::uint64_t inside = pos - base;
        if (dirty_begin == dirty_end || inside != dirty_end || inside != valid || buffer_size - inside < value_size)
            return false;
        std::memcpy(buffer.get() + inside, data, value_size);
        valid = dirty_end = static_cast<std::uint32_t>(inside + value_size);
        pos += value_size;
        length = std::max(length, pos);
        return true;
    }

    /// Nothing may be pending.
    void move_window(std::uint64_t to) {
        base = to;
        valid = 0;
    }

    const std::string name;
    const bool readable;
    const bool writable;
    bool failed = false;  // what is pending could not be written
    bool uncut = false;   // the end could not be set
    platform::File file;
    std::uint64_t pos = 0;
    std::uint64_t length = 0;  // with what is pending
    // The window: the file's bytes [base, base + valid). Of these, [dirty_begin, dirty_end) counted from base are pending.
    std::uint64_t base = 0;
    std::uint32_t valid = 0;
    std::uint32_t dirty_begin = 0;
    std::uint32_t dirty_end = 0;
    const std::uint32_t buffer_size;
    const std::unique_ptr<std::uint8_t[]> buffer;
};

bfile_win32::bfile_win32(std::uint32_t buffer_size) : buffer_size_(std::max<std::uint32_t>(buffer_size, 1)) {}

bfile_win32::~bfile_win32() { close(); }

bool bfile_win32::open(const char* name, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    return guarded("", false, [&] {
        std::string path(name == nullptr ? "" : name);  // which may be the name of the file that is closed
        close();
        failed_ = false;
        if (mode > EFSMode::READ_WRITE || has_any(flags, gzip_flags))
            return refuse(EFSError::INVALID_ARGUMENT, path.c_str(),
                          "A buffered native stream has no such mode, and no gzip.");
        // The memory comes before the open, which may empty the file.
        auto state = std::make_unique<State>(std::move(path), mode, buffer_size_);
        if (!state->start(native_options(mode, flags & known_flags))) return false;
        state_ = std::move(state);
        return true;
    });
}

void bfile_win32::close() {
    if (state_ == nullptr) return;
    const bool is_written = state_->flush() && !state_->uncut;
    const bool is_closed = state_->file.close() || refuse_by_disk(name(), "cannot be closed");
    failed_ = !is_written || !is_closed;
    state_.reset();
}

bool bfile_win32::flush() { return state_ == nullptr ? !failed_ : state_->flush(); }

bool bfile_win32::failed() const { return state_ == nullptr ? failed_ : state_->failed || state_->uncut; }

std::uint64_t bfile_win32::length() { return state_ == nullptr ? failed_size : state_->length; }

std::uint64_t bfile_win32::tell() { return state_ == nullptr ? failed_size : state_->pos; }

const char* bfile_win32::name() const { return state_ == nullptr ? nullptr : state_->name.c_str(); }

void bfile_win32::set_eof() {
    if (state_ != nullptr) state_->set_end();
}

bool bfile_win32::seek(std::int64_t offset, EFSSeek::TYPE origin) {
    if (state_ == nullptr || origin > EFSSeek::END) return false;
    const std::uint64_t from = origin == EFSSeek::BEGIN ? 0 : origin == EFSSeek::CURRENT ? state_->pos : state_->length;
    const std::uint64_t target = from + static_cast<std::uint64_t>(offset);
    if (target > largest_position) return false;
    state_->pos = target;
    return true;
}

std::uint64_t bfile_win32::read(void* buffer, std::uint64_t size) {
    if (state_ == nullptr) return not_open();
    if (size == value_size && state_->read_value(buffer)) return value_size;
    return state_->read(static_cast<std::uint8_t*>(buffer), size);
}

std::uint64_t bfile_win32::write(const void* data, std::uint64_t size) {
    if (state_ == nullptr) return not_open();
    if (size == value_size && state_->write_value(data)) return value_size;
    return state_->write(static_cast<const std::uint8_t*>(data), size);
}

}  // namespace fs

#include "mount/window_cache.h"

#include <algorithm>
#include <cstring>

#include "names.h"

namespace {

/// Reads all of it, or fails: damage that comes with the bytes counts as failed.
bool read_all(SFsFile* file, char* out, std::uint64_t size) {
    for (std::uint64_t done = 0; done < size;) {
        const std::uint64_t got = fs::read(file, out + done, size - done);
        if (got == failed || got == 0 || fs::last_error().code != EFSError::NONE) return false;
        done += got;
    }
    return true;
}

}  // namespace

std::uint64_t WindowCache::read(const File& file, std::uint64_t offset, char* out, std::uint64_t size) {
    if (offset >= file.size) return 0;
    fs::clear_error();
    if (const std::lock_guard guard(mutex_); damaged_.contains(file.id)) return failed;
    size = std::min(size, file.size - offset);
    if (read_part(file, offset, out, size)) return size;
    // A checksum is looked at only where a file is read in order: who asks again for the last piece alone would get it.
    if (!file.is_decoded || fs::last_error().code != EFSError::BAD_FORMAT) return failed;
    const std::lock_guard guard(mutex_);
    damaged_.insert(file.id);
    return failed;
}

bool WindowCache::read_part(const File& file, std::uint64_t offset, char* out, std::uint64_t size) {
    if (!file.is_decoded) {
        Stream stream;
        return read_on(stream, file, offset, out, size);
    }
    for (std::uint64_t done = 0; done < size;) {
        const std::uint64_t at = offset + done;
        const std::uint64_t part = std::min(size - done, window_size - at % window_size);
        if (!read_window(file, at, out + done, part)) return false;
        done += part;
    }
    return true;
}

bool WindowCache::read_window(const File& file, std::uint64_t offset, char* out, std::uint64_t size) {
    const Key key{file.id, offset / window_size};
    Block block = find(key, size);
    if (block == nullptr) {
        const std::shared_ptr<Stream> stream = stream_of(file.id);
        const std::lock_guard guard(stream->lock);
        block = find(key, size);  // another thread may have decoded it meanwhile
        // A file of one window is mostly read in one go, or in order, and often only its beginning is.
        if (block == nullptr && file.size <= window_size && offset == stream->position)
            return read_on(*stream, file, offset, out, size);
        if (block == nullptr) block = decode(*stream, file, key.index, size);
        if (block == nullptr) return false;
    }
    std::memcpy(out, block.get() + offset % window_size, size);
    return true;
}

bool WindowCache::read_on(Stream& stream, const File& file, std::uint64_t offset, char* out, std::uint64_t size) {
    if (stream.file == nullptr) {
        stream.file = open_(file.id);
        stream.position = 0;
    }
    const bool is_good =
        stream.file != nullptr &&
        (offset == stream.position || fs::seek(stream.file.get(), static_cast<std::int64_t>(offset), EFSSeek::BEGIN)) &&
        read_all(stream.file.get(), out, size);
    stream.position = offset + size;
    if (!is_good || stream.position == file.size) {
        stream.file = nullptr;
        stream.position = 0;
        const std::lock_guard guard(mutex_);
        stream.used = 0;
    }
    return is_good;
}

void WindowCache::prepare(const File& file) {
    if (!file.is_decoded || file.size > window_size) return;
    fs::clear_error();
    const std::shared_ptr<Stream> stream = stream_of(file.id);
    const std::lock_guard guard(stream->lock);
    if (find({file.id, 0}, 0) == nullptr) decode(*stream, file, 0, 0);
}

/// Where to begin for this window. What lies between the stream's place and it must be decoded anyhow, so its windows are
/// kept too, as far as there is room.
std::uint64_t WindowCache::first_missing(const Stream& stream, Key key) const {
    const std::uint64_t next = (stream.position + window_size - 1) / window_size;
    if (key.index < next || (key.index - next + 1) * window_size > budget_) return key.index;
    const std::lock_guard guard(mutex_);
    while (key.index > next && !by_key_.contains({key.id, key.index - 1})) --key.index;
    return key.index;
}

WindowCache::Block WindowCache::decode(Stream& stream, const File& file, std::uint64_t index, std::uint64_t served) {
    Block block;
    for (std::uint64_t at = first_missing(stream, {file.id, index}); at <= index; ++at) {
        const std::uint64_t size = std::min(window_size, file.size - at * window_size);
        block = take_block();
        if (!read_on(stream, file, at * window_size, block.get(), size)) return nullptr;
        keep({{file.id, at}, block, size, at == index ? served : 0}, stream);
    }
    return block;
}

std::shared_ptr<WindowCache::Stream> WindowCache::stream_of(std::uint64_t id) {
    const std::lock_guard guard(mutex_);
    auto found = streams_.find(id);
    if (found == streams_.end()) found = streams_.emplace(id, std::make_shared<Stream>()).first;
    std::shared_ptr<Stream> stream = found->second;
    stream->used = ++clock_;
    const auto used = [](const auto& entry) { return entry.second->used; };
    if (streams_.size() > most_open) streams_.erase(std::ranges::min_element(streams_, {}, used));
    return stream;
}

WindowCache::Block WindowCache::find(Key key, std::uint64_t served) {
    const std::lock_guard guard(mutex_);
    const auto found = by_key_.find(key);
    if (found == by_key_.end()) return nullptr;
    const Place window = found->second;
    window->served += served;
    windows_.splice(window->was_read_through() ? windows_.end() : windows_.begin(), windows_, window);
    return window->block;
}

void WindowCache::make_room() {
    while (!windows_.empty() && ((windows_.size() + 1) * window_size > budget_ || windows_.back().was_read_through()))
        drop(std::prev(windows_.end()));
}

WindowCache::Block WindowCache::take_block() {
    {
        const std::lock_guard guard(mutex_);
        make_room();
    }
    return std::make_shared_for_overwrite<char[]>(window_size);
}

/// Nothing is kept of a file that was forgotten, or put aside, while it was decoded.
void WindowCache::keep(Window window, const Stream& stream) {
    const std::lock_guard guard(mutex_);
    const auto found = streams_.find(window.key.id);
    if (found == streams_.end() || found->second.get() != &stream) return;
    make_room();  // others may have filled it meanwhile
    windows_.push_front(std::move(window));
    by_key_[windows_.front().key] = windows_.begin();
}

void WindowCache::forget(std::uint64_t id) {
    const std::lock_guard guard(mutex_);
    damaged_.erase(id);
    streams_.erase(id);
    for (auto at = by_key_.lower_bound({id, 0}); at != by_key_.end() && at->first.id == id;) drop((at++)->second);
}

void WindowCache::drop(Place window) {
    by_key_.erase(window->key);
    windows_.erase(window);
}

std::uint64_t WindowCache::bytes() const {
    const std::lock_guard guard(mutex_);
    return windows_.size() * window_size;
}

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
    // Most files are read in one go and need no window.
    if (!file.is_decoded || size == file.size) {
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
        // A file of one window is mostly read in order, and often only its beginning is.
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
    }
    return is_good;
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
        block = take_block(size);
        if (!read_on(stream, file, at * window_size, block.get(), size)) return nullptr;
        keep({{file.id, at}, block, size, at == index ? served : 0}, stream);
    }
    return block;
}

std::shared_ptr<WindowCache::Stream> WindowCache::stream_of(std::uint64_t id) {
    const std::lock_guard guard(mutex_);
    const auto found = std::ranges::find(streams_, id, [](const auto& entry) { return entry.first; });
    if (found != streams_.end())
        streams_.splice(streams_.begin(), streams_, found);
    else
        streams_.emplace_front(id, std::make_shared<Stream>());
    if (streams_.size() > most_open) streams_.pop_back();
    return streams_.front().second;
}

WindowCache::Block WindowCache::find(Key key, std::uint64_t served) {
    const std::lock_guard guard(mutex_);
    const auto found = by_key_.find(key);
    if (found == by_key_.end()) return nullptr;
    const Place window = found->second;
    window->served += served;
    const bool was_read_through = window->served >= window->size;
    windows_.splice(was_read_through ? windows_.end() : windows_.begin(), windows_, window);
    return window->block;
}

/// Memory for a window; that of one which is not needed any more where there is one.
WindowCache::Block WindowCache::take_block(std::uint64_t size) {
    const std::lock_guard guard(mutex_);
    Block block;
    while (!windows_.empty()) {
        const Window& last = windows_.back();
        if (used_ + size <= budget_ && last.served < last.size) break;
        if (last.block.use_count() == 1 && last.size == size) block = last.block;
        drop(std::prev(windows_.end()));
    }
    return block != nullptr ? block : std::make_shared_for_overwrite<char[]>(size);
}

/// Nothing is kept of a file that was forgotten, or put aside, while it was decoded.
void WindowCache::keep(Window window, const Stream& stream) {
    const std::lock_guard guard(mutex_);
    const auto is_it = [&stream](const auto& entry) { return entry.second.get() == &stream; };
    if (std::ranges::none_of(streams_, is_it)) return;
    used_ += window.size;
    windows_.push_front(std::move(window));
    by_key_[windows_.front().key] = windows_.begin();
}

void WindowCache::forget(std::uint64_t id) {
    const std::lock_guard guard(mutex_);
    damaged_.erase(id);
    std::erase_if(streams_, [id](const auto& entry) { return entry.first == id; });
    for (auto at = by_key_.lower_bound({id, 0}); at != by_key_.end() && at->first.id == id;) drop((at++)->second);
}

void WindowCache::drop(Place window) {
    used_ -= window->size;
    by_key_.erase(window->key);
    windows_.erase(window);
}

std::uint64_t WindowCache::bytes() const {
    const std::lock_guard guard(mutex_);
    return used_;
}

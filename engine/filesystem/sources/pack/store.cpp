#include "engine/filesystem/sources/pack/store.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include <engine/filesystem/access/monitor.h>
#include <engine/filesystem/pack_reader.h>

#include "engine/filesystem/contract/failure.h"
#include "engine/platform/directories.h"

namespace fs {

bool PackStore::open_file(const char* path, bool in_memory, const PackStore* before) {
    path_ = path;
    ErrorScope scope;
    platform::File file = platform::File::open(path, {.sharing = platform::Sharing::NONE});
    if (file.valid()) {
        monitor_touch_file(path);
        file_ = std::make_shared<const platform::File>(std::move(file));
    } else {
        refuse_by_disk(path, "cannot be opened as a pack");
        if (!before || !before->file_ || !platform::leads_to(path, *before->file_)) return false;
        file_ = before->file_;
        scope.forget();
    }
    length_ = file_->length();
    if (length_ == failed) return refuse_by_disk(path, "does not tell its length");
    return load(in_memory);
}

bool PackStore::open_reader(const char* name, std::shared_ptr<pack_reader> reader, bool in_memory) {
    path_ = name;
    reader_ = std::move(reader);
    length_ = guarded(name, failed, [&] {
        const std::uint64_t length = reader_->length();
        return length != failed ? length : fail_for_host("its length is not known");
    });
    return length_ != failed && load(in_memory);
}

/// False when the pack cannot be read.
bool PackStore::load(bool in_memory) {
    if (!in_memory) return true;
    std::unique_ptr<std::uint8_t[]> bytes(new (std::nothrow) std::uint8_t[static_cast<std::size_t>(length_)]);
    if (!bytes) return true;
    const std::uint64_t got = read(0, bytes.get(), length_);
    if (got == failed) return false;
    length_ = got;
    memory_ = std::move(bytes);
    file_.reset();
    reader_.reset();
    return true;
}

std::uint64_t PackStore::read(std::uint64_t offset, void* buffer, std::uint64_t size) const {
    const std::uint64_t wanted = offset < length_ ? std::min(size, length_ - offset) : 0;
    if (wanted == 0) return 0;
    if (memory_) return std::memcpy(buffer, memory_.get() + offset, static_cast<std::size_t>(wanted)), wanted;
    if (reader_) return read_from_host(offset, buffer, wanted);
    const std::uint64_t got = file_->read_at(buffer, wanted, offset);
    if (got == failed) refuse_by_disk(path_.c_str(), "cannot be read as a pack");
    return got;
}

std::uint64_t PackStore::read_from_host(std::uint64_t offset, void* buffer, std::uint64_t size) const {
    return guarded(path_.c_str(), failed, [&] {
        ErrorScope scope;
        const std::int64_t got = reader_->read_at(offset, buffer, size);
        if (got < 0) return fail_for_host("its reader failed");
        if (static_cast<std::uint64_t>(got) == size) {
            scope.forget();  // what failed on the reader's own way to them
            return size;
        }
        return fail_for_host("its reader answered " + std::to_string(got) + " for the " + std::to_string(size) +
                             " bytes at " + std::to_string(offset));
    });
}

std::uint64_t PackStore::fail_for_host(const std::string& otherwise) const {
    const std::string said = reader_->last_failure();
    set_error(EFSError::IO, path_.c_str(),
              "The pack \"" + path_ + "\" cannot be read: " + (said.empty() ? otherwise : said) + ".");
    return failed;
}

const std::uint8_t* PackStore::view(std::uint64_t offset, std::uint64_t size) const {
    if (!memory_ || offset > length_ || size > length_ - offset) return nullptr;
    return memory_.get() + offset;
}

platform::Mapping PackStore::map(std::uint64_t offset, std::uint64_t size) const {
    platform::Mapping mapping(*file_, offset, size);
    if (mapping.IsEmpty()) refuse_by_disk(path_.c_str(), "cannot be mapped");
    return mapping;
}

void PackStore::prefetch(std::uint64_t offset, std::uint64_t size) const {
    if (!reader_ || offset >= length_) return;
    const ErrorKeeper keep;  // it is only a hint
    guarded(path_.c_str(), [&] { reader_->prefetch(offset, std::min(size, length_ - offset)); });
}

}  // namespace fs

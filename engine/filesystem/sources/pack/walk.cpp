#include "engine/filesystem/sources/pack/walk.h"

#include <algorithm>

#include "engine/filesystem/sources/pack/refusal.h"

namespace fs {

bool DirectoryWalk::begin() {
    std::uint8_t bytes[zip::end_record_size];
    if (store_.length() < sizeof bytes) return refuse_short_pack(store_);
    const std::uint64_t got = store_.read(store_.length() - sizeof bytes, bytes, sizeof bytes);
    if (got == PackStore::failed) return false;
    if (got != sizeof bytes) return refuse_short_pack(store_);
    end_ = zip::read_end_record(bytes);
    next_ = end_.directory_offset;
    return !refuse_miscounted(store_, count());
}

bool DirectoryWalk::next() {
    if (done_ == count()) return false;
    const std::uint8_t* bytes = nullptr;
    entry_ = next_;
    Load loaded = take(zip::central_header_size, bytes);
    if (loaded != Load::DONE) return fail(loaded);
    if (kernel::load_u32(bytes) != zip::central_signature) return fail(Load::ENDS);
    header_ = zip::read_central_header(bytes);
    loaded = take(header_.name_size, bytes);
    if (loaded != Load::DONE) return fail(loaded);
    name_ = {reinterpret_cast<const char*>(bytes), header_.name_size};
    next_ += header_.texts_size;
    ++done_;
    return true;
}

/// The next `size` bytes, which stay until the next call.
DirectoryWalk::Load DirectoryWalk::take(std::uint32_t size, const std::uint8_t*& bytes) {
    const std::uint64_t end = start_ + filled_;
    const bool inside = next_ >= start_ && next_ <= end && size <= end - next_;
    if (!inside) {
        const Load loaded = load(size);
        if (loaded != Load::DONE) return loaded;
    }
    bytes = view_ + (next_ - start_);
    next_ += size;
    return Load::DONE;
}

DirectoryWalk::Load DirectoryWalk::load(std::uint32_t size) {
    start_ = next_;
    filled_ = 0;
    if (start_ > store_.length() || size > store_.length() - start_) return Load::ENDS;
    filled_ = std::min(capacity, store_.length() - start_);
    view_ = store_.view(start_, filled_);
    if (view_) return Load::DONE;
    buffer_.resize(capacity);
    view_ = buffer_.data();
    filled_ = store_.read(start_, buffer_.data(), filled_);
    if (filled_ == PackStore::failed) {
        filled_ = 0;
        return Load::FAILED;
    }
    return filled_ >= size ? Load::DONE : Load::ENDS;
}

bool DirectoryWalk::fail(Load reason) const {
    return reason != Load::FAILED && refuse_pack(store_, done_, count(), entry_);
}

}  // namespace fs

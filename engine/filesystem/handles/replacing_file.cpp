#include "engine/filesystem/handles/replacing_file.h"

#include "engine/filesystem/contract/guarded.h"

ReplacingHandle::~ReplacingHandle() { commit(); }

bool ReplacingHandle::NoteWrite(bool done) {
    // A disk that fills takes a part without a word.
    if (!done && failure_ == EFSError::NONE) failure_ = EFSError::DISK_FULL;
    return done;
}

std::uint64_t ReplacingHandle::write(const void* buffer, std::uint64_t size) {
    const fs::ErrorScope scope;
    const std::uint64_t written = writer_->write(buffer, size);
    if (written != size && scope.has_error()) failure_ = fs::last_error().code;
    NoteWrite(written == size);
    return written;
}

bool ReplacingHandle::set_eof() { return NoteWrite(writer_->set_eof()); }

bool ReplacingHandle::commit() {
    if (writer_ == nullptr) return true;
    if (failure_ != EFSError::NONE) {
        const EFSError::TYPE failure = failure_;
        discard();
        return fs::refuse(failure, target_.c_str(), "A write failed, so the file stays as it was.");
    }
    const fs::ErrorScope scope;
    platform::File file = writer_->Release();
    writer_.reset();
    if (!scope.has_error() && PutInPlace(file)) return true;
    file.remove(beside_.c_str());
    return false;
}

bool ReplacingHandle::PutInPlace(platform::File& file) {
    return fs::guarded(target_.c_str(), false, [&] {
        const auto refuse = [this] { return fs::refuse_by_disk(target_.c_str(), "cannot be replaced"); };
        const auto place = [&] { return file.replace(beside_.c_str(), target_.c_str()) || refuse(); };
        // The content is on the disk before the name is, and nobody is kept from asking for names meanwhile.
        return file.sync() ? enter_ ? enter_(place) : place() : refuse();
    });
}

void ReplacingHandle::discard() {
    if (writer_ == nullptr) return;
    writer_->Release().remove(beside_.c_str());
    writer_.reset();
}

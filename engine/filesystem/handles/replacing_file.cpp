#include "engine/filesystem/handles/replacing_file.h"

#include "engine/filesystem/contract/error.h"

ReplacingHandle::~ReplacingHandle() { commit(); }

void ReplacingHandle::NoteFailure(const fs::ErrorScope& scope) {
    // A disk that fills takes a part without a word.
    if (failure_ == EFSError::NONE) failure_ = scope.has_error() ? fs::last_error().code : EFSError::DISK_FULL;
}

std::uint64_t ReplacingHandle::write(const void* buffer, std::uint64_t size) {
    const fs::ErrorScope scope;
    const std::uint64_t written = writer_->write(buffer, size);
    if (written != size) NoteFailure(scope);
    return written;
}

bool ReplacingHandle::set_eof() {
    const fs::ErrorScope scope;
    if (writer_->set_eof()) return true;
    NoteFailure(scope);
    return false;
}

bool ReplacingHandle::commit() {
    if (writer_ == nullptr) return true;
    if (failure_ != EFSError::NONE) {
        discard();
        return fs::refuse(failure_, target_.c_str(), "A write failed, so the file stays as it was.");
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

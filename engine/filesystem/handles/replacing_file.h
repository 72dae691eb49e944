#pragma once

#include <memory>
#include <string>

#include <engine/filesystem/contract/file.h>
#include <engine/filesystem/contract/replacing_file.h>

#include "engine/filesystem/contract/error.h"
#include "engine/platform/files.h"

/// A handle that writes a native file.
class NativeWriter : public SFsFile {
public:
    /// Writes what is buffered and gives the file away, open and locked. The thread's failure is set when that failed.
    virtual platform::File Release() = 0;
};

/// A file that is written by another handle, beside its target, and takes the place of the target when it is closed.
/// The lock of the file beside goes with it, so a second writer of the same target is refused, and what a killed process
/// left there is written anew.
class ReplacingHandle final : public SFsFile, public fs::ReplacingFile {
public:
    ReplacingHandle(CFSSource* owner, std::string target, std::string beside)
        : target_(std::move(target)), beside_(std::move(beside)) {
        source = owner;
    }
    ~ReplacingHandle() override;
    void Attach(std::unique_ptr<NativeWriter> writer) { writer_ = std::move(writer); }

    std::uint64_t read(void* buffer, std::uint64_t size) override { return writer_->read(buffer, size); }
    std::uint64_t write(const void* buffer, std::uint64_t size) override;
    bool seek(std::int64_t offset, EFSSeek::TYPE origin) override { return writer_->seek(offset, origin); }
    std::uint64_t length() override { return writer_->length(); }
    std::uint64_t tell() override { return writer_->tell(); }
    bool set_eof() override;

    bool commit() override;
    void discard() override;
    void on_commit(std::function<bool(const Place& place)> enter) override { enter_ = std::move(enter); }

private:
    void NoteFailure(const fs::ErrorScope& scope);
    bool PutInPlace(platform::File& file);

    const std::string target_;
    const std::string beside_;
    std::unique_ptr<NativeWriter> writer_;  // until the file has its place, or is given up
    std::function<bool(const Place& place)> enter_;
    EFSError::TYPE failure_ = EFSError::NONE;  // of the first write that failed
};

#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <engine/filesystem/contract/file.h>
#include <engine/filesystem/contract/replacing_file.h>
#include <engine/filesystem/contract/viewable_file.h>

#include "engine/filesystem/contract/failure.h"
#include "engine/platform/files.h"

struct gzFile_s;

/// A handle that writes a native file.
class NativeWriter : public SFsFile {
public:
    explicit NativeWriter(CFSSource* owner) { source = owner; }
    /// Writes what is buffered and gives the file away, open and locked. The thread's failure is set when that failed.
    virtual platform::File Release() = 0;
};

/// A synchronous native file.
class Win32FileHandle final : public NativeWriter, public fs::ViewableFile {
public:
    using NativeWriter::NativeWriter;
    ~Win32FileHandle() override;
    void Attach(platform::File file) { file_ = std::move(file); }

    std::uint64_t read(void* buffer, std::uint64_t size) override;
    std::uint64_t write(const void* buffer, std::uint64_t size) override;
    bool seek(std::int64_t offset, EFSSeek::TYPE origin) override;
    std::uint64_t length() override;
    std::uint64_t tell() override { return file_.tell(); }
    bool set_eof() override;
    platform::File Release() override { return std::move(file_); }
    /// From now on every write goes to the end of the file, also when a forked process writes it too.
    bool append_only() { return file_.append_only(); }
    const void* view(std::uint64_t& size, bool populate) override;

    /// Reads at an offset, by any number of threads at once; the position stays. As read otherwise.
    std::uint64_t read_at(void* buffer, std::uint64_t size, std::uint64_t offset) const;

private:
    std::uint64_t check_read(std::uint64_t done, void* buffer, std::uint64_t size) const;

    platform::File file_;
    platform::Mapping mapping_;  // empty until the first view
    std::uint64_t mapped_size_ = 0;
};

/// A gzip file read or written through zlib's gz layer. A file that is not gzip is read as it stands.
class FileGzipped final : public NativeWriter {
public:
    using NativeWriter::NativeWriter;
    ~FileGzipped() override { Finish(); }
    /// Puts the gz layer over an open file; `mode` is "rb", "wb1", "wb5" or "wb9". A writer empties the file, as the last
    /// step that can fail but for the gz layer's own few bytes. False, with the thread's failure set for `path`.
    bool Attach(platform::File file, const char* path, const char* mode);

    std::uint64_t read(void* buffer, std::uint64_t size) override;
    std::uint64_t write(const void* buffer, std::uint64_t size) override;
    bool seek(std::int64_t offset, EFSSeek::TYPE origin) override;
    std::uint64_t length() override;  // not known
    std::uint64_t tell() override;
    platform::File Release() override;

private:
    void Finish();  // flushes a writer
    void FillGapAtStart();
    void ReportWriteFailure(int result, const char* action) const;
    bool ReportReadFailure(const void* buffer, std::uint64_t size, int result);

    platform::File file_;  // keeps the sharing rules; the gz layer has a descriptor of its own
    gzFile_s* gz_ = nullptr;
    bool writes_ = false;
    bool is_untouched_ = true;  // nothing was written yet
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
    ~ReplacingHandle() override { commit(); }
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
    bool Note(bool is_good, const fs::ErrorScope& scope);
    bool PutInPlace(platform::File& file);

    const std::string target_;
    const std::string beside_;
    std::unique_ptr<NativeWriter> writer_;  // until the file has its place, or is given up
    std::function<bool(const Place& place)> enter_;
    EFSError::TYPE failure_ = EFSError::NONE;  // of the first write that failed
};

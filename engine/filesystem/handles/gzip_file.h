#pragma once

#include "engine/filesystem/handles/replacing_file.h"

struct gzFile_s;

/// A gzip file read or written through zlib's gz layer. A file that is not gzip is read as it stands.
class FileGzipped final : public NativeWriter {
public:
    explicit FileGzipped(CFSSource* owner) { source = owner; }
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

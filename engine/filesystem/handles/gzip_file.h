#pragma once

#include <engine/filesystem/contract/file.h>

#include "engine/platform/files.h"

struct gzFile_s;

/// A gzip file read or written through zlib's gz layer. A file that is not gzip is read as it stands.
class FileGzipped final : public SFsFile {
public:
    /// Puts the gz layer over an open file; `mode` is "rb", "wb1", "wb5" or "wb9". Null on failure.
    static FileGzipped* Create(CFSSource* owner, platform::File file, const char* mode);
    ~FileGzipped() override;  // flushes a writer

    std::uint64_t read(void* buffer, std::uint64_t size) override;
    std::uint64_t write(const void* buffer, std::uint64_t size) override;
    bool seek(std::int64_t offset, EFSSeek::TYPE origin) override;
    std::uint64_t length() override;  // not known
    std::uint64_t tell() override;

private:
    FileGzipped(CFSSource* owner, platform::File file, gzFile_s* gz);
    bool ReportReadFailure(const void* buffer, std::uint64_t size, int result);

    const platform::File file_;  // keeps the sharing rules; the gz layer has a descriptor of its own
    gzFile_s* const gz_;
};

#pragma once

#include <utility>

#include <engine/filesystem/contract/file.h>

#include "engine/platform/files.h"

/// A synchronous native file.
class Win32FileHandle final : public SFsFile {
public:
    explicit Win32FileHandle(CFSSource* owner) { source = owner; }
    void Attach(platform::File file) { file_ = std::move(file); }

    std::uint64_t read(void* buffer, std::uint64_t size) override;
    std::uint64_t write(const void* buffer, std::uint64_t size) override;
    bool seek(std::int64_t offset, EFSSeek::TYPE origin) override;
    std::uint64_t length() override;
    std::uint64_t tell() override;
    bool set_eof() override;

private:
    platform::File file_;
};

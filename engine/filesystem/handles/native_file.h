#pragma once

#include <utility>

#include <engine/filesystem/contract/viewable_file.h>

#include "engine/filesystem/handles/replacing_file.h"
#include "engine/platform/files.h"

/// A synchronous native file.
class Win32FileHandle final : public NativeWriter, public fs::ViewableFile {
public:
    explicit Win32FileHandle(CFSSource* owner) { source = owner; }
    void Attach(platform::File file) { file_ = std::move(file); }

    std::uint64_t read(void* buffer, std::uint64_t size) override;
    std::uint64_t write(const void* buffer, std::uint64_t size) override;
    bool seek(std::int64_t offset, EFSSeek::TYPE origin) override;
    std::uint64_t length() override;
    std::uint64_t tell() override;
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
};

#pragma once

#include <atomic>
#include <functional>
#include <optional>

#include <engine/filesystem/pack_reader.h>

#include "engine/filesystem/formats/zip.h"
#include "engine/filesystem/formats/zstd.h"
#include "engine/kernel/bytes.h"
#include "tests/sources/kit.h"
#include "tests/support/pack_file.h"

namespace packs {

/// One entry as it will stand in the pack, right or wrong.
struct Entry {
    std::string name;
    std::string packed;
    std::uint32_t size = 0;
    std::uint32_t packed_size = 0;
    std::uint16_t method = 8;
    std::uint32_t crc = 0;
    std::string local_extra = {};
    std::string central_extra = {};
    std::string comment = {};
    std::optional<std::uint32_t> header_offset = {};  // not set: where the header is
};

/// The entry after a change.
template <typename Change>
Entry with(Entry entry, Change change) {
    change(entry);
    return entry;
}

inline Entry packed_entry(const std::string& name, const std::string& data, std::uint16_t method,
                          const std::string& packed) {
    return {.name = name,
            .packed = packed,
            .size = static_cast<std::uint32_t>(data.size()),
            .packed_size = static_cast<std::uint32_t>(packed.size()),
            .method = method,
            .crc = kernel::crc32(0, data.data(), data.size())};
}
inline Entry deflated_entry(const std::string& name, const std::string& data) {
    return packed_entry(name, data, 8, deflated(data));
}
inline Entry stored_entry(const std::string& name, const std::string& data) {
    return packed_entry(name, data, 0, data);
}

/// The data as "deflated", "stored" and, where the library was built with it, "zstd".
inline std::vector<Entry> entries_of_all_methods(const std::string& data) {
    std::vector<Entry> entries = {deflated_entry("deflated", data), stored_entry("stored", data)};
    if (fs::has_zstd()) {
        const auto packed = fs::make_zstd_compressor()->compress(data.data(), data.size(), 3, data.size());
        entries.push_back(packed_entry("zstd", data, EFSPackMethod::ZSTD, {packed.begin(), packed.end()}));
    }
    return entries;
}

/// The bytes of a pack of these entries.
inline std::string build(const std::vector<Entry>& entries) {
    std::string out;
    std::string directory;
    const auto set_size = [](std::string& in, std::size_t at, const std::string& text) {
        kernel::store_u16(reinterpret_cast<std::uint8_t*>(&in[at]), static_cast<std::uint16_t>(text.size()));
    };
    for (const Entry& entry : entries) {
        const std::size_t local = out.size();
        const std::size_t central = directory.size();
        const fs::zip::NewEntry told{.name = entry.name,
                                     .crc = entry.crc,
                                     .packed_size = entry.packed_size,
                                     .size = entry.size,
                                     .header_offset = entry.header_offset.value_or(static_cast<std::uint32_t>(local)),
                                     .method = static_cast<EFSPackMethod::TYPE>(entry.method)};
        fs::zip::append_local_header(out, told);
        fs::zip::append_central_header(directory, told);
        set_size(out, local + 28, entry.local_extra);
        set_size(directory, central + 30, entry.central_extra);
        set_size(directory, central + 32, entry.comment);
        out += entry.local_extra + entry.packed;
        directory += entry.central_extra + entry.comment;
    }
    const auto offset = static_cast<std::uint32_t>(out.size());
    out += directory;
    fs::zip::append_end_record(out, static_cast<std::uint32_t>(entries.size()), offset,
                               static_cast<std::uint32_t>(directory.size()));
    return out;
}

/// A pack in memory that answers by `fault` while that is set.
class MemoryReader final : public fs::pack_reader {
public:
    using Fault = std::function<std::int64_t(std::uint64_t size)>;

    explicit MemoryReader(std::string bytes) : bytes_(std::move(bytes)) {}
    std::uint64_t length() override { return length_known ? bytes_.size() : ~std::uint64_t{0}; }
    std::int64_t read_at(std::uint64_t offset, void* to, std::uint64_t size) override {
        EXPECT_TRUE(offset <= bytes_.size() && size <= bytes_.size() - offset);
        ++reads;
        if (during_read) during_read();
        if (fault) return fault(size);
        std::memcpy(to, bytes_.data() + offset, size);
        return static_cast<std::int64_t>(size);
    }
    fs::string last_failure() override { return reason; }
    void release() noexcept override { ++released; }

    Fault fault;
    std::function<void()> during_read;
    fs::string reason;
    bool length_known = true;
    std::atomic<int> reads{0};
    int released = 0;

private:
    const std::string bytes_;
};

/// Mounts the pack at this native path; null when that fails.
inline std::unique_ptr<CZip_dir> mount_file(const std::string& path,
                                            FFSAddSourceFlags::ENUM flags = FFSAddSourceFlags::NONE) {
    auto source = std::make_unique<CZip_dir>();
    source->set_native_spelling(path.c_str());
    if (!source->init(as_path(path), flags, nullptr)) return nullptr;
    return source;
}

/// Writes the bytes to "test.pak" and mounts it.
inline std::unique_ptr<CZip_dir> mount(const std::string& bytes,
                                       FFSAddSourceFlags::ENUM flags = FFSAddSourceFlags::NONE) {
    EXPECT_TRUE(write_file("test.pak", bytes));
    return mount_file("test.pak", flags);
}

inline std::unique_ptr<SFsFile> open(CZip_dir& source, const std::string& name) {
    return std::unique_ptr<SFsFile>(source.open_read(as_path(name), FFSOpenFlags::NONE));
}

/// The whole file by one read; "(null)" when it does not open.
inline std::string content(CZip_dir& source, const std::string& name) { return read_all(open(source, name).release()); }

/// The same of the pack at this native path; "(no pack)" when it does not mount.
inline std::string content_of(const std::string& path, const std::string& name) {
    const auto source = mount_file(path, FFSAddSourceFlags::PACK_IN_MEMORY);
    return source ? content(*source, name) : "(no pack)";
}

}  // namespace packs

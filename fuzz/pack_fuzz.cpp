// A file of any bytes mounted as a pack; then everything that can be asked of it, and every entry read with seeks. The
// first byte says whether it is read into memory, and whether by a reader of the host.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include <engine/filesystem/pack_reader.h>
#include <engine/filesystem/sources/pack.h>

#include "fuzz/require.h"

namespace {

/// One file that takes the bytes of every run.
const std::string& pack_path() {
    static const std::string path = [] {
        const auto place = std::filesystem::temp_directory_path() / ("pack_fuzz_" + std::to_string(std::rand()));
        return place.string() + std::to_string(reinterpret_cast<std::uintptr_t>(&place) & 0xFFFFFF) + ".pak";
    }();
    return path;
}

bool write_pack(const std::uint8_t* data, std::size_t size) {
    std::FILE* file = std::fopen(pack_path().c_str(), "wb");
    if (!file) return false;
    const bool whole = std::fwrite(data, 1, size, file) == size;
    return std::fclose(file) == 0 && whole;
}

/// Reads `length` bytes at `at`, which the entry's length bounds.
void read_at(SFsFile& file, std::uint64_t at, std::uint64_t length) {
    static char buffer[70000];
    file.seek(static_cast<std::int64_t>(at), EFSSeek::BEGIN);
    const std::uint64_t got = file.read(buffer, length);
    require(got <= length);
    require(got == 0 || file.tell() <= file.length());
}

void read_entry(CZip_dir& source, const fs::path& name) {
    require(source.exists(name));
    const std::unique_ptr<SFsFile> file(source.open_read(name, FFSOpenFlags::NONE));
    if (!file) return;
    const std::uint64_t size = file->length();
    if (size <= 70000) read_at(*file, 0, size);
    read_at(*file, 40000, 100);
    read_at(*file, 0, 70000);
    read_at(*file, size - 1, 5);
    read_at(*file, 33000, 40000);
    read_at(*file, size + 10, 5);
    read_at(*file, 3, 1);
}

class BytesReader final : public fs::pack_reader {
public:
    BytesReader(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    std::uint64_t length() override { return size_; }
    std::int64_t read_at(std::uint64_t offset, void* to, std::uint64_t size) override {
        require(offset <= size_ && size <= size_ - offset);
        std::memcpy(to, data_ + offset, size);
        return static_cast<std::int64_t>(size);
    }

private:
    const std::uint8_t* data_;
    const std::size_t size_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const bool by_reader = size != 0 && (data[0] & 4) != 0;
    if (size == 0 || (!by_reader && !write_pack(data + 1, size - 1))) return 0;
    CZip_dir source;
    const FFSAddSourceFlags::ENUM flags =
        data[0] % 2 == 0 ? FFSAddSourceFlags::PACK_IN_MEMORY : FFSAddSourceFlags::NONE;
    source.set_native_spelling(pack_path().c_str());
    if (by_reader) source.set_reader(std::make_shared<BytesReader>(data + 1, size - 1));
    if (!source.init(fs::path("fuzz.pak", true), flags, nullptr)) return 0;
    FS_NAME* names = source.get_file_list(nullptr, nullptr, true);
    int entries = 0;
    for (const FS_NAME* name = names; name && ++entries < 50; name = name->next) {
        read_entry(source, fs::path(name->name, true));
    }
    fs::free_names(names);
    fs::free_names(source.get_file_list("a", "*.t?t", true));
    fs::free_names(source.search_substring("a"));
    return 0;
}

#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include <engine/filesystem/api.h>
#include <engine/filesystem/contract/file.h>
#include <engine/filesystem/contract/followed_source.h>
#include <engine/filesystem/contract/placed_source.h>
#include <engine/filesystem/contract/read_only_source.h>
#include <engine/filesystem/contract/viewable_file.h>
#include <engine/filesystem/contract/whole_names.h>
#include <engine/filesystem/formats/pack_method.h>
#include <engine/kernel/ztl.h>

namespace fs {

class EntryReader;
class pack_reader;
struct PackArchive;
struct PackView;
enum class PackFault : std::uint8_t;

}  // namespace fs

/// A source over one pack: a zip file of stored, deflated or zstd entries, without a comment (docs/packs.md).
///
/// Names    lower case; asked for with the end of a directory only ("b/c.txt" finds "a/b/c.txt"), or without one; with
///          FFSOpenFlags::WHOLE_NAME as a whole.
/// Threads  questions and opens from any number of threads between init and clear.
/// Memory   open files share the archive, so that they stay readable after clear and after the source's end.
class ENGINE_FS_API CZip_dir : public fs::ReadOnlySource,
                               public fs::WholeNames,
                               public fs::PlacedSource,
                               public fs::FollowedSource {
public:
    CZip_dir();
    ~CZip_dir() override;

    /// The spelling of the pack's own path on a disk that tells case apart; given before init. Null: as init spells it.
    void set_native_spelling(const char* native_path);

    /// What reads the pack in place of the disk (pack_reader.h); given before init. The source and its open files keep it.
    void set_reader(std::shared_ptr<fs::pack_reader> reader);

    /// Reads the pack's directory; with FFSAddSourceFlags::PACK_IN_MEMORY its every byte. With EXACT_SEEKS stored entries
    /// are read at the position asked for. False, with the reason in fs::last_error, when it is no pack.
    bool init(const fs::path& root, FFSAddSourceFlags::ENUM flags, fs::dir_listing* listing) override;
    void clear() override;
    EFSSourceType::TYPE type() override;
    bool exists(const fs::path& p) override;
    bool exists_whole(const fs::path& p) override;
    std::uint64_t place(const fs::path& p) override;
    void root_path(fs::path& out, const fs::path& p) override;
    std::int64_t write_time(const fs::path& p) override;  // 0
    /// An SZipFile. Null, with the reason in fs::last_error, when the entry cannot be opened: its local header is out of
    /// reach, it is in zip64 form, or it is packed by a method that the library was built without. FFSOpenFlags::SEEKABLE
    /// is EXACT_SEEKS for this one file.
    SFsFile* open_read(const fs::path& p, FFSOpenFlags::FLAGS flags) override;
    FS_NAME* get_file_list(const char* dir, const char* mask, bool recursive) override;
    FS_NAME* search_substring(const char* text) override;
    fs::dir* dir_tree() override;
    std::unique_ptr<fs::Follower> make_follower() override;
    std::function<void()> read_anew() override;

private:
    struct State;
    std::unique_ptr<State> state_;
};

/// An open entry of a pack, decoded in blocks of 32 KiB as it is read. Seeking back within the last two blocks is free,
/// and to what was decoded before it costs at most 4 MiB of decoding.
///
/// Stored   without EXACT_SEEKS or SEEKABLE a stored entry is for forward reading: after a seek behind the last two blocks
///          its reading goes on from the input that comes next, not from the position.
/// Threads  one at a time.
class ENGINE_FS_API SZipFile : public SFsFile, public fs::ViewableFile {
public:
    SZipFile(CFSSource* owner, std::shared_ptr<fs::PackArchive> archive, std::uint32_t entry, bool exact_seeks = false);
    ~SZipFile() override;

    /// Bytes read; 0 at the end, and where the compressed data is damaged. Bytes that the pack lost, or that the disk does
    /// not give, are zeros. Whenever an entry is not what the pack says, its checksum included once it was read through
    /// in order, fs::last_error says so (BAD_FORMAT, or IO), and the log has one message for each open file.
    std::uint64_t read(void* buffer, std::uint64_t size) override;
    std::uint64_t write(const void* buffer, std::uint64_t size) override;  // 0
    bool seek(std::int64_t offset, EFSSeek::TYPE origin) override;         // true, whatever the position
    std::uint64_t length() override;
    std::uint64_t tell() override;
    /// Of a stored entry alone; its checksum is not looked at.
    const void* view(std::uint64_t& size, bool populate) override;

private:
    std::uint64_t read_some(std::uint8_t* buffer, std::uint64_t count);
    void report(fs::PackFault fault);

    std::shared_ptr<fs::PackArchive> archive_;
    std::unique_ptr<fs::EntryReader> reader_;  // null until the first read that needs one
    std::unique_ptr<fs::PackView> view_;       // null until the first view
    std::uint64_t position_ = 0;
    std::uint32_t size_ = 0;
    std::uint32_t entry_ = 0;
    std::uint32_t checked_ = 0;  // bytes from the start that crc_ counts
    std::uint32_t crc_ = 0;
    bool exact_seeks_;
    bool told_ = false;
};

/// One entry of a pack as its central directory records it.
struct SFsPackEntry {
    fs::string name;  // as it stands in the pack, its case too
    std::uint64_t size = 0;
    std::uint64_t packed_size = 0;
    std::uint32_t method = 0;  // see EFSPackMethod
    std::uint32_t crc = 0;     // CRC-32 of the plain bytes
    std::int64_t time = 0;     // 100 ns since 1601, in whatever time zone the pack was made
};

namespace fs {

/// Lists a pack's entries, directories left out, in the order in which the pack records them. One that is mounted in this
/// process is listed too; of a pack that a host reads, `native_path` is the name that it was mounted by.
///
/// Returns  false, with the reason in fs::last_error and `out` as it was, when the file is no pack.
/// Threads  any.
ENGINE_FS_API bool list_pack(const char* native_path, ztl::vector<SFsPackEntry>& out);

}  // namespace fs

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <engine/filesystem/contract/flags.h>

#include "engine/kernel/bytes.h"
#include "engine/platform/directories.h"

namespace fs {

struct DirectoryState;
struct MountedNames;

/// What a stored listing was recorded for. One recorded for anything else is foreign.
struct ListingKey {
    std::string_view source_path;  // prepared: normalised, lower case, without a last "/"
    std::uint32_t flags = 0;       // those add-source flags that decide what a scan enters
};

/// A recorded listing of a directory source: every directory that its scan entered, in the order of the scan, with its
/// files. Directories are relative to the native root and spelled as the disk spells them.
/// What adds, encodes or decodes may throw std::bad_alloc.
class dir_listing {
public:
    /// Times that let nobody trust the record.
    static constexpr platform::DirectoryTimes untrusted_times{-1, -1};

    bool is_empty() const { return bytes_.empty(); }
    /// False once something could not be recorded.
    bool is_whole() const { return is_whole_; }
    void spoil() { is_whole_ = false; }
    /// Whether it comes from a file, and is to be checked against the disk before it is used.
    bool is_stored() const { return is_stored_; }
    void clear() { *this = {}; }

    /// Begins a directory; the files that follow are its own.
    void add_directory(std::string_view dir, const platform::DirectoryTimes& times);
    void add_file(std::string_view name);

    /// Calls `on_directory(dir, times)` and `on_file(name)` in the order of recording. False once one of them answers that,
    /// or where the bytes are damaged.
    template <class OnDirectory, class OnFile>
    bool for_each(OnDirectory on_directory, OnFile on_file) const {
        std::string_view rest(reinterpret_cast<const char*>(bytes_.data()), bytes_.size());
        std::string_view text;
        while (!rest.empty()) {
            if (rest.front() != 0 || rest.size() < directory_head) return false;
            const auto* const head = reinterpret_cast<const std::uint8_t*>(rest.data());
            const platform::DirectoryTimes times{static_cast<std::int64_t>(kernel::load_u64(head + 1)),
                                                 static_cast<std::int64_t>(kernel::load_u64(head + 9))};
            rest.remove_prefix(directory_head);
            if (!take_text(rest, text) || !on_directory(text, times)) return false;
            while (!rest.empty() && rest.front() != 0) {
                if (!take_text(rest, text) || !on_file(text)) return false;
            }
        }
        return true;
    }

    std::size_t bytes() const { return bytes_.size(); }
    /// The number of files of a stored listing.
    std::size_t files() const { return files_; }

    /// The bytes to store.
    std::vector<std::uint8_t> encode(const ListingKey& key) const;
    /// Takes stored bytes. False, and empty, when they are damaged, cut off, of another version or foreign.
    [[nodiscard]] bool decode(const ListingKey& key, const std::vector<std::uint8_t>& bytes);

private:
    static constexpr std::size_t directory_head = 1 + 8 + 8;

    /// Takes a text that ends with a zero from the front. False when there is none.
    static bool take_text(std::string_view& from, std::string_view& text) {
        const std::size_t end = from.find('\0');
        if (end == std::string_view::npos) return false;
        text = from.substr(0, end);
        from.remove_prefix(end + 1);
        return true;
    }

    std::vector<std::uint8_t> bytes_;
    bool is_whole_ = true;
    bool is_stored_ = false;
    std::size_t files_ = 0;
};

enum class Checking : std::uint8_t { STORED, NONE };  // which listings are checked against the disk

/// Fills table and tree from a recorded listing. False when it is checked and a directory no longer has the times that were
/// recorded of it; what was filled is then to be thrown away. May throw std::bad_alloc.
[[nodiscard]] bool replay_listing(const DirectoryState& state, MountedNames& to, const dir_listing& listing,
                                  Checking checking = Checking::STORED);

/// The recorded listing of one source path, while the source mounts with it. It only saves time: whatever goes wrong with
/// it, silently, means that the disk is scanned.
class ListingStore {
public:
    /// Listings are recorded in the directory `below` of `cache_dir`; `source_path` is prepared. Null when there is no
    /// such directory, when SKIP_LISTING_CACHE forbids them, or without memory.
    static std::unique_ptr<ListingStore> open(const char* cache_dir, const char* below, const char* source_path,
                                              FFSAddSourceFlags::ENUM flags);

    /// Handed to CFSSource::init: with records when there is a listing, else empty, to be filled by the scan.
    dir_listing* listing() { return &listing_; }
    /// Stores what the scan recorded. Not called when mounting fails.
    void finish();

private:
    ListingKey key() const { return {source_path_, flags_}; }

    std::string file_;
    std::string source_path_;
    FFSAddSourceFlags::ENUM flags_ = FFSAddSourceFlags::NONE;
    dir_listing listing_;
};

}  // namespace fs

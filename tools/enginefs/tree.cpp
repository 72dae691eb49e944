#include "tree.h"

#include <algorithm>
#include <ctime>
#include <system_error>

#include <zlib.h>

namespace stdfs = std::filesystem;

namespace {

constexpr std::int64_t ticks_a_second = 10'000'000;
constexpr std::int64_t seconds_from_1601_to_1970 = 11'644'473'600;

std::int64_t offset_at(std::int64_t seconds) {
    const auto as_universal = static_cast<std::time_t>(seconds);
    const std::tm* const known = std::gmtime(&as_universal);
    if (known == nullptr) return 0;
    std::tm fields = *known;
    fields.tm_isdst = -1;
    return std::mktime(&fields) - as_universal;
}

}  // namespace

std::int64_t LocalTimes::time_of(std::int64_t ticks) {
    const std::int64_t seconds = ticks / ticks_a_second - seconds_from_1601_to_1970;
    const auto [known, is_new] = offsets_.try_emplace(seconds / 900);
    if (is_new) known->second = offset_at(seconds);
    return (seconds + known->second) * 1'000'000'000 + ticks % ticks_a_second * 100;
}

bool Tree::open(const std::string& path) {
    const std::string full = full_native_path(path);
    std::error_code unknown;
    if (!stdfs::is_directory(fs::to_path(full), unknown)) return open_pack(path);
    if (full.size() > longest_path) return fail(path, "its full path is longer than 259 bytes");
    path_ = path;
    auto directory = std::make_unique<CWin32_dir>(EFSSourceType::DIR);
    directory->set_native_spelling(full.c_str());
    directory_ = directory.get();
    source_ = std::move(directory);
    return mount(full + "/");
}

bool Tree::open_directory(const std::string& path) {
    return open(path) && (!is_pack() || fail(path, "it is no directory"));
}

bool Tree::open_pack(const std::string& path) {
    path_ = path;
    const std::string full = full_native_path(path);
    if (!attempt(path, "it cannot be read", [&] { return fs::list_pack(full.c_str(), entries_); })) return false;
    for (const SFsPackEntry& entry : entries_) shown_.emplace(normalised(entry.name), &entry);
    auto pack = std::make_unique<CZip_dir>();
    pack->set_native_spelling(full.c_str());
    source_ = std::move(pack);
    return mount(full);
}

bool Tree::mount(const std::string& full) {
    constexpr auto flags = FFSAddSourceFlags::RECURSIVE | FFSAddSourceFlags::EXACT_SEEKS;
    if (!attempt(path_, "it cannot be mounted",
                 [&] { return source_->init(fs::path(full.c_str(), true), flags, nullptr); }))
        return false;
    if (directory_ != nullptr && directory_->unlisted_directories() != 0) unlisted_ = fs::last_error().text;
    const fs::found_files found =
        ask(path_, [&] { return fs::found_files(source_->get_file_list("", nullptr, true)); });
    names_.assign(found.begin(), found.end());
    std::sort(names_.begin(), names_.end());
    names_.erase(std::unique(names_.begin(), names_.end()), names_.end());
    return true;
}

bool Tree::is_whole() const { return unlisted_.empty() || fail(path_, unlisted_); }

bool Tree::holds(const std::string& name) const { return std::binary_search(names_.begin(), names_.end(), name); }

bool Tree::holds_below(const std::string& directory) const {
    const std::string prefix = directory + "/";
    const auto first = std::lower_bound(names_.begin(), names_.end(), prefix);
    return first != names_.end() && first->starts_with(prefix);
}

const SFsPackEntry* Tree::entry_of(const std::string& name) const {
    const auto found = shown_.find(name);
    return found != shown_.end() ? found->second : nullptr;
}

fs::file_ptr Tree::open_file(const std::string& name) const {
    return fs::file_ptr(source_->open_read(fs::path(name.c_str(), true), FFSOpenFlags::WHOLE_NAME));
}

bool Tree::read(const std::string& name, const std::string& label, const TakeBytes& take) const {
    fs::file_ptr file;
    const auto open = [&] { return (file = open_file(name)) != nullptr; };
    return attempt(label, is_pack() ? "a mounted pack shows no file of this name" : "it cannot be read", open) &&
           read_to_end(file.get(), label, take);
}

std::uint64_t Tree::size_of(const std::string& name) const {
    const SFsPackEntry* const entry = entry_of(name);
    if (entry != nullptr) return entry->size;
    // What everybody may read need not be opened to be sure.
    constexpr auto readable = stdfs::perms::owner_read | stdfs::perms::group_read | stdfs::perms::others_read;
    const stdfs::path path = fs::to_path(native_path(name));
    std::error_code error;
    const bool is_open_to_all = (stdfs::status(path, error).permissions() & readable) == readable;
    const std::uint64_t size = is_open_to_all ? stdfs::file_size(path, error) : failed;
    return size != failed ? size : fs::length(open_file(name).get());
}

bool Tree::crc_of(const std::string& name, std::uint32_t& crc) const {
    const SFsPackEntry* const entry = entry_of(name);
    crc = entry != nullptr ? entry->crc : 0;
    return entry != nullptr || read(name, path_ + "/" + name, [&crc](const char* data, std::uint64_t size) {
               crc = static_cast<std::uint32_t>(
                   ::crc32(crc, reinterpret_cast<const Bytef*>(data), static_cast<uInt>(size)));
               return true;
           });
}

std::int64_t Tree::time_of(const std::string& name) const {
    const SFsPackEntry* const entry = entry_of(name);
    return entry != nullptr ? entry->time : source_->write_time(fs::path(name.c_str(), true));
}

std::string Tree::native_path(const std::string& name) const {
    char place[longest_path + 1];
    const bool known =
        directory_ != nullptr && directory_->native_path(fs::path(name.c_str(), true), place, sizeof place);
    return known ? place : "";
}

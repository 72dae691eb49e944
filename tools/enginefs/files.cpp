#include "files.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <fstream>
#include <random>
#include <system_error>

namespace stdfs = std::filesystem;

namespace {

constexpr std::size_t piece_size = 1u << 20;

/// Whether a file may be made in the place of the one that has the name, if one has.
bool may_replace(const std::string& name) {
    if (is_directory(name)) return fail(name, "it is a directory");
    const bool is_whole = name.starts_with("./");  // then it is not meant for the end of another
    if (holders_of(name, is_whole ? FFSOpenFlags::WHOLE_NAME : FFSOpenFlags::NONE).empty()) return true;
    return can_change(name) && (!fs::read_only(name.c_str()) || fail(name, "it is read-only"));
}

/// Makes the directories of a name below `root`. A link on the way is replaced by a directory: what it points to may lie
/// anywhere. False, with a word on standard error, when that fails.
bool make_directories(const stdfs::path& root, const std::string& name) {
    stdfs::path at = root;
    for (const stdfs::path& part : fs::to_path(name).parent_path()) {
        std::error_code error, unknown;
        at /= part;
        if (stdfs::is_symlink(stdfs::symlink_status(at, unknown))) stdfs::remove(at, error);
        if (!error) stdfs::create_directory(at, error);
        if (stdfs::is_directory(at, unknown)) continue;
        const bool taken = stdfs::exists(at, unknown);
        return fail(name, "its directory cannot be made: " +
                              (taken ? fs::from_path(at) + " is there and is no directory" : error.message()));
    }
    return true;
}

}  // namespace

bool fail_to_read(const std::string& name, const std::string& otherwise) {
    return fs::last_error().code == EFSError::NOT_FOUND ? fail_not_held(name) : fail_with_last_error(name, otherwise);
}

fs::file_ptr open_file(const std::string& name) {
    fs::clear_error();
    fs::file_ptr file = fs::open_file(name.c_str(), EFSMode::READ);
    if (file == nullptr) fail_to_read(name);
    return file;
}

bool read_to_end(SFsFile* file, const std::string& name, const TakeBytes& take) {
    const std::uint64_t length = fs::length(file);
    std::uint64_t at = fs::tell(file);
    std::vector<char> buffer(piece_size);
    for (;;) {
        fs::clear_error();
        const std::uint64_t got = fs::read(file, buffer.data(), buffer.size());
        // Bytes may come and be known as damaged. What takes them may use the library, which forgets that.
        const SFsError error = fs::last_error();
        if (got != failed && got != 0 && !take(buffer.data(), got)) return false;
        if (got == failed || error.code != EFSError::NONE)
            return fail(name, error.text.empty() ? "it cannot be read" : error.text);
        if (got == 0) break;
        at += got;
    }
    return length == failed || at >= length ||  // a file of the disk may grow meanwhile
           fail(name, "it ended after " + std::to_string(at) + " of " + std::to_string(length) + " bytes");
}

bool read_lines(const std::string& path, std::vector<std::string>& lines) {
    std::ifstream in(fs::to_path(path));
    if (!in) return fail(path, "it cannot be read");
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (!line.empty()) lines.push_back(line);
    }
    return !in.bad() || fail(path, "it cannot be read");  // a directory, say
}

bool same_bytes(SFsFile* first, SFsFile* second, const std::string& told) {
    const auto fail_if = [&told](bool is_bad) {
        if (!is_bad) return;
        fail_with_last_error(told, "it cannot be read");
        throw CommandFailed();
    };
    const auto read = [&](SFsFile* file, std::vector<char>& piece) {
        const std::uint64_t got = fs::read(file, piece.data(), piece_size);
        fail_if(got == failed || fs::last_error().code != EFSError::NONE);
        return got;
    };
    fail_if(first == nullptr || second == nullptr);
    fs::clear_error();
    std::vector<char> one(piece_size), other(piece_size);
    for (;;) {
        const std::uint64_t got = read(first, one);
        if (read(second, other) != got) return false;
        if (got == 0) return true;
        if (std::memcmp(one.data(), other.data(), static_cast<std::size_t>(got)) != 0) return false;
    }
}

std::string time_on_disk(const std::string& place) {
    using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;
    constexpr std::int64_t from_1601_to_1970 = 116'444'736'000'000'000;
    std::error_code error;
    const stdfs::file_time_type time = stdfs::last_write_time(fs::to_path(place), error);
    if (error) return "";
    const auto since_1970 = std::chrono::file_clock::to_sys(std::chrono::time_point_cast<Ticks>(time));
    const std::string text = time_text(since_1970.time_since_epoch().count() + from_1601_to_1970);
    return text.empty() ? "" : text + "Z";
}

std::string time_text(std::int64_t ticks) {
    std::string text = ask("a time", [&] { return fs::get_time_as_str(ticks); });
    return text.empty() ? text : text.replace(10, 1, "T");
}

std::string safe_name(const std::string& name) {
    if (name.find('\0') != std::string::npos || name.find(':') != std::string::npos) return "";
    std::string out = normalised(name, /*keep_case*/ true);
    const bool climbs = out == ".." || out.compare(0, 3, "../") == 0;
    return out.empty() || out[0] == '/' || climbs ? "" : out;
}

bool make_directory(const std::string& told, const stdfs::path& path) {
    std::error_code error, unknown;
    stdfs::create_directories(path, error);
    return stdfs::is_directory(path, unknown) ||
           fail(told, "it cannot be made a directory" + (error ? ": " + error.message() : ""));
}

bool remove_on_disk(const std::string& place) {
    std::error_code error;
    return stdfs::remove(fs::to_path(place), error) || fail(place, "it cannot be removed: " + error.message());
}

Output::~Output() {
    fs::discard(file_.release());
    std::error_code error;
    if (!beside_.empty() && !stdfs::remove(beside_, error))
        std::fputs("enginefs: an incomplete file is left\n", stderr);
}

bool Output::open(const std::string& name, FFSOpenFlags::FLAGS flags) {
    flags = flags | FFSOpenFlags::REPLACE | FFSOpenFlags::WHOLE_NAME;
    return may_replace(name) && create(name, [&] { return fs::open(name.c_str(), EFSMode::WRITE, flags); });
}

bool Output::open_below(const stdfs::path& root, const std::string& name) {
    place_ = root / fs::to_path(name);
    if (!make_directories(root, name)) return false;
    static const std::string suffix = formatted(".%08x", static_cast<unsigned>(std::random_device()()));
    const std::string beside = fs::from_path(place_) + suffix;
    stdfs::path made = fs::to_path(beside);  // what removes it later takes no memory
    const auto open = [&] { return fs::open_native(nullptr, beside.c_str(), EFSMode::WRITE, FFSOpenFlags::CREATE); };
    if (!create(fs::from_path(place_), open)) return false;
    beside_.swap(made);
    return true;
}

bool Output::create(const std::string& name, const std::function<SFsFile*()>& open) {
    name_ = name;
    return attempt(name_, "it cannot be created", [&] { return (file_ = fs::file_ptr(open())) != nullptr; });
}

bool Output::write(const void* data, std::uint64_t size) {
    if (Interruption::requested()) return fail(name_, "interrupted; it is as it was");
    const auto* bytes = static_cast<const char*>(data);
    // A disk that fills takes a part first; only the call after that says why it takes no more.
    return attempt(name_, "it cannot be written", [&] {
        while (size != 0) {
            const std::uint64_t done = fs::write(file_.get(), bytes, size);
            if (done == 0 || done > size) return false;
            bytes += done;
            size -= done;
        }
        return true;
    });
}

bool Output::finish() {
    const auto commit = [this] { return fs::commit(file_.release()); };
    if (!attempt(name_, "it cannot be written", commit)) return false;
    if (beside_.empty()) return true;
    std::error_code error, unkept;  // a disk need not keep modes and times
    const stdfs::file_status before = stdfs::symlink_status(place_, unkept);
    if (stdfs::is_symlink(before))
        stdfs::remove(place_, unkept);
    else if (stdfs::exists(before))
        stdfs::permissions(beside_, before.permissions(), unkept);
    if (time_) stdfs::last_write_time(beside_, *time_, unkept);
    stdfs::rename(beside_, place_, error);
    if (error) return fail(name_, "it cannot be replaced: " + error.message());
    beside_.clear();
    return true;
}

bool copy_to(Output& output, const FromTo& given, const char* label, const TakeBytes& take, FFSOpenFlags::FLAGS flags) {
    const fs::file_ptr source = open_file(given.from);
    if (source == nullptr) return false;
    const std::string place = place_on_disk(given.from);
    const bool is_there = fs::exists(given.to.c_str(), FFSOpenFlags::WHOLE_NAME);
    if (is_there && !place.empty() && place == place_on_disk(given.to))
        return fail(given.to, "it is the file that is read");
    if (!output.open(given.to, flags)) return false;
    Progress progress(label + given.from, fs::length(source.get()), true);
    return read_to_end(source.get(), given.from, [&](const char* data, std::uint64_t size) {
        progress.add(size);
        return take(data, size);
    });
}

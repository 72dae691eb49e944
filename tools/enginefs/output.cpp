#include "output.h"

#include <random>
#include <system_error>

#include <engine/filesystem.h>

#include "report.h"
#include "terminal.h"

namespace stdfs = std::filesystem;

namespace {

/// What a name has behind it while its file is being made.
const std::string& suffix() {
    static const std::string text = formatted(".%08x", static_cast<unsigned>(std::random_device()()));
    return text;
}

/// Whether a file may be made in the place of the one that has the name, if one has.
bool may_replace(const std::string& name) {
    if (is_directory(name)) return fail(name, "it is a directory");
    if (holders_of(name).empty()) return true;
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

std::string safe_name(const std::string& name) {
    if (name.find('\0') != std::string::npos || name.find(':') != std::string::npos) return "";
    std::string out = normalised(name, /*keep_case*/ true);
    const bool climbs = out == ".." || out.compare(0, 3, "../") == 0;
    return out.empty() || out[0] == '/' || climbs ? "" : out;
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
    std::error_code error;
    if (!make_directories(root, name)) return false;
    if (stdfs::is_symlink(stdfs::symlink_status(place_, error))) stdfs::remove(place_, error);
    const std::string beside = fs::from_path(place_) + suffix();
    stdfs::path made = fs::to_path(beside);  // what removes it later takes no memory
    const auto open = [&] { return fs::open_native(nullptr, beside.c_str(), EFSMode::WRITE, FFSOpenFlags::CREATE); };
    if (!create(fs::from_path(place_), open)) return false;
    beside_.swap(made);
    return true;
}

bool Output::create(const std::string& name, const std::function<SFsFile*()>& open) {
    name_ = name;
    return attempt(name_, "it cannot be created", [&] {
        file_.reset(open());
        return file_ != nullptr;
    });
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
    if (!attempt(name_, "it cannot be written", commit) || !put_in_place()) return false;
    beside_.clear();
    return true;
}

bool Output::put_in_place() {
    if (beside_.empty()) return true;
    std::error_code error;
    const stdfs::file_status before = stdfs::status(place_, error);
    if (stdfs::exists(before)) stdfs::permissions(beside_, before.permissions(), error);
    if (time_) stdfs::last_write_time(beside_, *time_, error);
    stdfs::rename(beside_, place_, error);
    return !error || fail(name_, "it cannot be replaced: " + error.message());
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

bool make_directory(const std::string& told, const stdfs::path& path) {
    std::error_code error, unknown;
    stdfs::create_directories(path, error);
    return stdfs::is_directory(path, unknown) ||
           fail(told, "it cannot be made a directory" + (error ? ": " + error.message() : ""));
}

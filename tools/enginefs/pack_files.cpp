// Files on their way into packs: read and packed on every core, written in their order.

#include "pack_files.h"

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <sstream>
#include <system_error>
#include <thread>

namespace {

namespace stdfs = std::filesystem;

constexpr std::size_t most_entries = 65535;
constexpr std::uint64_t most_held = 256u << 20;  // bytes of files that are packed and not yet written
constexpr std::size_t most_ahead = 4096;         // files
// 1980-01-01, where the time of a zip begins: the time of every entry when the pack must not depend on it.
constexpr std::int64_t fixed_time = 119600064000000000;

std::set<std::string> extensions_of(const std::string& list) {
    std::set<std::string> all;
    std::istringstream in(lower_case(list));
    for (std::string ext; std::getline(in, ext, ',');)
        if (!ext.empty()) all.insert(ext[0] == '.' ? ext : "." + ext);
    return all;
}

SFsPacking packing_of(const Packing& how) {
    if (how.level > 12 && how.method == "deflate")
        fail_usage("--level " + std::to_string(how.level), "deflate has levels from 0 to 12, zstd to 22");
    const bool is_zstd = how.method == "zstd";
    const int usual = is_zstd ? 9 : 6;
    return {.method = is_zstd ? EFSPackMethod::ZSTD : EFSPackMethod::DEFLATE,
            .level = how.level >= 0 ? how.level : usual,
            .worth = how.worth};
}

/// A file on its way into a pack.
struct PackedFile {
    std::string error;  // not "": why it cannot be packed
    SFsPackedEntry entry{};
    std::int64_t time = 0;
};

PackedFile make_file(const Tree& tree, const std::string& name, bool deterministic, const SFsPacking& how,
                     fs::entry_packer& packer) {
    PackedFile file;
    std::vector<char> plain;
    const fs::file_ptr open = tree.open_file(name);
    if (open == nullptr || !fs::read_rest(open.get(), plain))
        file.error = "it cannot be read: " + fs::last_error().text;
    else if (!packer.pack(plain.data(), plain.size(), how, file.entry))
        file.error = fs::last_error().text;
    if (!file.error.empty()) return file;
    fs::clear_error();
    file.time = deterministic ? fixed_time : tree.time_of(name);
    if (file.time < 0) file.error = "its time cannot be told: " + fs::last_error().text;
    return file;
}

/// Packs files on every core that gives a thread, and hands them out in their order. What is finished or under way is
/// bounded.
class Compressor {
public:
    /// Makes one file; called from several threads, which have a packer each.
    using Make = std::function<PackedFile(std::size_t index, fs::entry_packer& packer)>;

    Compressor(std::size_t count, Make make) : make_(std::move(make)), files_(count) {
        const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
        try {
            while (threads_.size() < cores) threads_.emplace_back([this] { work(); });
        } catch (const std::exception&) {
            // The system gives no more threads: those that started do the work, or take() itself.
        }
    }
    ~Compressor() {
        const std::lock_guard lock(mutex_);
        next_ = files_.size();
        changed_.notify_all();
    }

    /// Waits for file `index` and takes it; called once for each, in ascending order.
    PackedFile take(std::size_t index) {
        if (threads_.empty()) {
            fs::entry_packer packer;
            return make(index, packer);
        }
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return files_[index].has_value(); });
        PackedFile file = *std::move(files_[index]);
        held_ -= file.entry.bytes.size();
        files_[index].reset();
        taken_ = index + 1;
        changed_.notify_all();
        return file;
    }

private:
    void work() {
        fs::entry_packer packer;
        for (std::size_t index = 0; next_index(index);) {
            PackedFile file = make(index, packer);
            const std::lock_guard lock(mutex_);
            held_ += file.entry.bytes.size();
            files_[index] = std::move(file);
            changed_.notify_all();
        }
    }

    PackedFile make(std::size_t index, fs::entry_packer& packer) const try {
        return make_(index, packer);
    } catch (const std::bad_alloc&) {
        return {.error = "no memory"};  // short enough to take none
    }

    /// Waits until another file may be begun. The one that is waited for may always be, or nothing would move.
    bool next_index(std::size_t& index) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] {
            return next_ == files_.size() || next_ == taken_ || (held_ < most_held && next_ - taken_ < most_ahead);
        });
        if (next_ == files_.size()) return false;
        index = next_++;
        return true;
    }

    const Make make_;
    std::mutex mutex_;  // guards all below
    std::condition_variable changed_;
    std::vector<std::optional<PackedFile>> files_;  // that are finished and were not taken
    std::size_t next_ = 0;                          // the first file that nobody works on
    std::size_t taken_ = 0;                         // files handed out
    std::uint64_t held_ = 0;                        // bytes of those that are finished
    std::vector<std::jthread> threads_;             // the first to go
};

/// The packs that are made: OUT, and behind it OUT.2, OUT.3 and so on, before the extension, where one would not do.
class Volumes {
public:
    Volumes(const std::string& out, const Packing& how)
        : out_(out),
          split_(how.splits()),
          limit_(how.split_size != 0 ? std::min(how.split_size, most_bytes) : most_bytes) {}

    bool add(const std::string& name, const PackedFile& file) {
        constexpr std::uint64_t headers = 30 + 46;  // of an entry, which has its name in both
        if (!file.error.empty()) return fail(name, file.error);
        const std::uint64_t bytes = headers + 2 * name.size() + file.entry.bytes.size();
        const bool is_full = split_ && entries_ != 0 && (entries_ == most_entries || bytes_ + bytes > limit_);
        if ((writers_.empty() || is_full) && !begin()) return false;
        fs::clear_error();
        // What is wrong with an entry is said of its name; what fails on the disk, of the pack.
        if (!writers_.back()->add_packed(name.c_str(), file.entry, file.time))
            return fail_with_last_error(fs::last_error().path == name ? name : place(writers_.size()),
                                        "it cannot be written");
        ++entries_;
        bytes_ += bytes;
        total_ += bytes;
        return true;
    }

    bool finish() {
        if (writers_.empty() && !begin()) return false;
        for (std::size_t i = 0; i < writers_.size(); ++i)
            if (!attempt(place(i + 1), "it cannot be written", [&] { return writers_[i]->complete(); })) return false;
        for (std::size_t i = 0; i < writers_.size(); ++i)
            if (!attempt(place(i + 1), "it cannot be replaced", [&] { return writers_[i]->finish(); })) return false;
        std::error_code unknown;
        const std::string next = place(writers_.size() + 1);
        if (split_ && stdfs::exists(fs::to_path(next), unknown))
            note(next, "it is left from before, and no part of this");
        return true;
    }

    std::string summary(std::uint64_t bytes_in) const {
        const double percent =
            100.0 * static_cast<double>(total_) / static_cast<double>(std::max<std::uint64_t>(bytes_in, 1));
        return (writers_.size() > 1 ? " in " + std::to_string(writers_.size()) + " packs" : "") +
               formatted(", %" PRIu64 " bytes in, %" PRIu64 " out (%.1f %%)", bytes_in, total_, percent);
    }

private:
    std::string place(std::size_t number) const { return part_of(out_, number); }

    bool begin() {
        constexpr std::uint64_t end_record = 22;
        writers_.push_back(std::make_unique<fs::pack_writer>());
        entries_ = 0;
        bytes_ = end_record;
        total_ += end_record;
        const std::string told = place(writers_.size());
        return attempt(told, "it cannot be written",
                       [&] { return writers_.back()->open(full_native_path(told).c_str()); });
    }

    const std::string out_;  // as it is told
    const bool split_;
    const std::uint64_t limit_;
    std::vector<std::unique_ptr<fs::pack_writer>> writers_{};
    std::size_t entries_ = 0;  // of the last pack, as the next
    std::uint64_t bytes_ = 0;
    std::uint64_t total_ = 0;
};

/// What needs no look at the files.
bool may_begin(const std::string& out, std::size_t count, const Packing& how) {
    if (count > most_entries && !how.splits())
        return fail(out, std::to_string(count) + " files; a pack holds at most 65535, --split makes several");
    std::error_code unknown;
    const stdfs::path parent = fs::to_path(out).parent_path();
    return parent.empty() || stdfs::is_directory(parent, unknown) || fail(out, "its directory does not exist");
}

}  // namespace

void leave_out_packs(std::vector<std::string>& names, const std::string& dir, const std::string& out,
                     const Packing& how) {
    const std::string root = lower_case(full_native_path(dir)) + "/";
    const auto leave_out = [&](const std::string& pack) {
        const std::string place = lower_case(full_native_path(pack));
        return std::erase_if(names, [&](const std::string& name) { return root + name == place; }) != 0;
    };
    leave_out(out);
    for (std::size_t number = 2; how.splits() && leave_out(part_of(out, number)); ++number) continue;
}

bool write_packs(const Tree& tree, const std::vector<std::string>& names, std::uint64_t total_bytes,
                 const std::string& out, const Packing& how) {
    const auto start = std::chrono::steady_clock::now();
    const SFsPacking packing = packing_of(how);
    if (!may_begin(out, names.size(), how)) return false;
    const std::set<std::string> stored = extensions_of(how.store);
    const Interruption interruption;
    Volumes volumes(out, how);
    Compressor compressor(names.size(), [&](std::size_t i, fs::entry_packer& packer) {
        const bool store = stored.contains(names[i].substr(std::min(names[i].rfind('.'), names[i].size())));
        return make_file(tree, names[i], how.deterministic,
                         store ? SFsPacking{.method = EFSPackMethod::STORE} : packing, packer);
    });
    Progress progress("pack " + out, total_bytes, true);
    for (std::size_t i = 0; i < names.size(); ++i) {
        const PackedFile file = compressor.take(i);
        if (!volumes.add(names[i], file)) return false;
        if (Interruption::requested()) return fail(out, "interrupted; it is as it was");
        progress.add(file.entry.size);
    }
    if (!volumes.finish()) return false;
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    return print(shown(out) + ": " + counted(names.size(), "file", "files") + volumes.summary(total_bytes) +
                 formatted(", %.1f s\n", took.count()));
}

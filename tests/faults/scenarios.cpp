#include <engine/filesystem/comfort.h>
#include <engine/filesystem_c.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <utility>

#include "engine/filesystem/contract/failure.h"
#include "tests/faults/stage.h"

// What each family must keep when any single step of it fails: an answer of true is the whole truth, and what failed
// left the old data whole.

namespace test {

namespace {

// Made beforehand, so that nothing but the library meets a missing block of memory.
const fs::string old_save = "the old save";
const fs::string new_save = "the new save, which is longer";
const fs::string fresh = "fresh";
constexpr const char* save_txt = "root/save.txt";
const fs::string long_text(5000, 'x');

void bare(Stage&) {}
/// A pack at the head of the list creates nothing.
void without_pack(Stage& stage) {
    stage.mount();
    fs::rem_source(stage.pack.c_str());
}

/// A name that takes memory, and a backup of it.
const std::string long_save = std::string(100, 's');

void with_backup(Stage& stage) {
    stage.write({{"root/" + long_save, old_save}, {"root/" + long_save + ".bak", "an older save"}});
    without_pack(stage);
}

std::string first_of(std::initializer_list<std::string> complaints) {
    for (const std::string& complaint : complaints)
        if (!complaint.empty()) return complaint;
    return "";
}

/// For calls without an answer of their own.
template <typename Work>
auto quiet(Work work) {
    return [work](Stage&) {
        fs::clear_error();
        work();
        return fs::last_error().code == EFSError::NONE;
    };
}

/// Whether a mount that answered true left names out without saying so.
std::string all_is_mounted() {
    std::uint32_t unlisted = 0;
    ztl::vector<SFsSourceInfo> sources;
    fs::get_sources(sources);
    for (const SFsSourceInfo& source : sources) unlisted += source.unlisted_directories;
    for (const auto& [name, bytes] : stage_tree()) {
        const std::string below = name.substr(name.find('/') + 1);
        const std::string complaint = expect(below, load(below.c_str()), bytes);
        if (!complaint.empty() && unlisted == 0) return complaint;
    }
    return first_of({expect("stored.bin", load("stored.bin"), "stored"),
                     expect("packed.txt", load("packed.txt").substr(0, 14), "line 0\nline 1\n")});
}

std::string mount_is_whole(Stage&, bool answer) { return answer ? all_is_mounted() : ""; }

/// Writes and closes.
bool write_all(fs::file_ptr file, std::string_view text) {
    return file && fs::write(file.get(), text.data(), text.size()) == text.size();
}

bool append_to_save(Stage&) { return write_all(fs::open_file("save.txt", EFSMode::APPEND), "+"); }

std::string save_begins_as_before(Stage& stage, bool answer) {
    const std::string found = stage.on_disk("root/save.txt");
    if (!found.starts_with(old_save)) return "save.txt lost its beginning: \"" + found + "\"";
    return answer && !found.ends_with("+") ? "what was added is not there" : "";
}

// Packs and archives

bool write_pack(Stage& stage, std::vector<const char*>& added) {
    fs::pack_writer pack;
    if (!pack.open(stage.new_pack.c_str())) return false;
    added.clear();
    for (const char* name : {"a.txt", "b.txt", "c.txt"}) {
        if (pack.add(name, long_text.data(), long_text.size(), 6, 0)) added.push_back(name);
    }
    const bool all = added.size() == 3;
    return pack.finish() && all;
}

bool mounts_with(const std::string& path, const std::vector<const char*>& names) {
    if (!fs::add_source(path.c_str(), FFSAddSourceFlags::NONE)) return false;
    bool whole = true;
    for (const char* name : names) whole = whole && load(name) == long_text;
    fs::rem_source(path.c_str());
    return whole;
}

Scenario pack_scenario() {
    static std::vector<const char*> added;
    const auto prepare = [](Stage& stage) {
        write_pack(stage, added);  // the old one, and room for what is added
        fs::init(stage.root.c_str(), FFSAddSourceFlags::NONE, "", false, false, nullptr);
    };
    const auto check = [](Stage& stage, bool) -> std::string {
        if (!mounts_with(stage.new_pack, {"a.txt", "b.txt", "c.txt"}) && !mounts_with(stage.new_pack, added))
            return "the pack is neither the old one nor what was added";
        return "";
    };
    return {"pack writer", [](Stage& stage) { return write_pack(stage, added); }, prepare, "new.pak", check, true};
}

bool write_zip(Stage&) {
    void* const archive = MiniZ::ZipCreate("out.pak");
    if (archive == nullptr) return false;
    const auto size = static_cast<unsigned>(long_text.size());
    const bool added = MiniZ::ZipAddData(archive, "one", long_text.data(), size) &&
                       MiniZ::ZipAddData(archive, "two", long_text.data(), size);
    if (added) fs::clear_error();
    MiniZ::ZipClose(archive);
    return added && fs::last_error().code == EFSError::NONE;
}

std::string zip_is_whole(Stage& stage, bool answer) {
    return !answer || mounts_with(stage / "root/out.pak", {"one", "two"}) ? "" : "the archive is broken";
}

// Multi-containers

bool put_text(CFileHashMultiContainer& file, std::uint32_t hash, std::string_view text) {
    return file.Put("c", hash, text.data(), text.size());
}

std::string fetch_text(const CFileHashMultiContainer& file, std::uint32_t hash) {
    ztl::vector<unsigned char> out;
    return file.Fetch("c", hash, out) ? std::string(out.begin(), out.end()) : "(none)";
}

void make_container(Stage& stage) {
    without_pack(stage);
    CFileHashMultiContainer file;
    file.Create("a.mc");
    put_text(file, 1, long_text);
    put_text(file, 2, "second");
    file.Save();
    put_text(file, 1, "first");
    file.Save();
}

/// A compaction between two changes, the last even where it failed: nothing may be lost by it.
bool change_container(Stage&) {
    CFileHashMultiContainer file;
    if (!file.Open("a.mc", true) || !put_text(file, 4, "fourth") || !file.Save()) return false;
    const bool is_compacted = file.Compact();
    const bool goes_on = !file.IsOpen() || (put_text(file, 3, "third") && file.Save());
    return is_compacted && goes_on;
}

std::string container_is_whole(Stage&, bool answer) {
    CFileHashMultiContainer file;
    if (!file.Open("a.mc", false)) return "the container does not open";
    return first_of({expect("blob 1", fetch_text(file, 1), "first"), expect("blob 2", fetch_text(file, 2), "second"),
                     answer ? expect("blobs 3 and 4", fetch_text(file, 3) + fetch_text(file, 4), "thirdfourth") : ""});
}

// Streams

template <typename Stream>
bool write_stream(Stream&& stream, const std::string& path = "save.txt") {
    if (!stream.open(path.c_str(), EFSMode::WRITE)) return false;
    const std::string_view text = new_save;
    if (stream.write(text.data(), text.size()) != text.size()) return false;
    fs::clear_error();
    stream.close();
    return fs::last_error().code == EFSError::NONE;
}

bool write_gzip(Stage&) {
    fs::clear_error();
    constexpr auto flags = FFSOpenFlags::CREATE | FFSOpenFlags::GZIP_LEVEL5;
    return write_all(fs::open_file("save.gz", EFSMode::WRITE, flags), new_save) &&
           fs::last_error().code == EFSError::NONE;
}

/// To tell of the damage must not fail in another way.
bool read_damaged_gzip(Stage&) {
    const fs::file_ptr file = fs::open_file("levels/one.txt", EFSMode::READ, FFSOpenFlags::GZIP);
    char byte = 0;
    return file != nullptr && fs::read(file.get(), &byte, 1) == ~std::uint64_t{0};
}

bool read_queued(Stage&) {
    const fs::file_ptr file = fs::open_file("save.txt", EFSMode::READ, FFSOpenFlags::ASYNC);
    SFsRequest* const request = file != nullptr ? SFsRequest::Create(nullptr, nullptr) : nullptr;
    if (request == nullptr) return false;
    std::array<char, 64> bytes{};
    const bool is_queued = file->read_async(bytes.data(), 0, old_save.size(), request, 1);
    if (is_queued) request->Wait();
    // The worker tells by the result alone.
    const bool is_told =
        request->Result() != EFSRequestResult::SUCCESS || std::string_view(bytes.data()) == old_save.c_str();
    request->Release();
    return is_queued && is_told;
}

/// Reads a whole file and compares it with how it must begin.
bool reads(const char* name, std::string_view beginning) {
    std::uint64_t size = 0;
    void* const bytes = fs::read(name, &size);
    const bool same = bytes != nullptr && std::string_view(static_cast<char*>(bytes), size).starts_with(beginning);
    std::free(bytes);
    return same;
}

/// A load tells its failure itself; here the thread's own is asked for.
bool load_by_worker(Stage&) {
    SFsLoad* const load = fs::load_async({.path = "packed.txt"});
    if (load == nullptr) return false;
    load->Wait();
    const bool is_good = load->Result() == EFSRequestResult::SUCCESS;
    const bool is_whole = is_good && std::string_view(static_cast<const char*>(load->Data()), 7) == "line 0\n";
    if (!is_good) fs::refuse(load->Error().code, "packed.txt", "The load failed.");
    load->Release();
    return is_whole;
}

/// What a host in C holds are numbers, behind which a failure must lose no object.
bool serve_c(Stage&) {
    std::uint64_t size = 0;
    void* const bytes = enginefs_load("packed.txt", 0, &size);
    enginefs_list* const names = bytes != nullptr ? enginefs_search("levels", nullptr, 0) : nullptr;
    const bool is_whole =
        names != nullptr && size > 7 && std::string_view(static_cast<char*>(bytes), 7) == "line 0\n" &&
        enginefs_list_count(names) == 2 && enginefs_save("save.txt", new_save.data(), new_save.size(), 0) == 0;
    enginefs_free(bytes);
    enginefs_list_free(names);
    return is_whole;
}

/// The stage's pack as a host reads it; counts for how many mounts it is still in use.
struct HostPack final : fs::pack_reader {
    std::uint64_t length() override { return bytes.size(); }
    std::int64_t read_at(std::uint64_t offset, void* to, std::uint64_t size) override {
        return static_cast<std::int64_t>(bytes.copy(static_cast<char*>(to), size, offset));
    }
    void release() noexcept override { --used; }
    std::string bytes;
    int used = 0;
} host_pack;

void keep_host_pack(Stage& stage) {
    host_pack.bytes = stage.on_disk("base.pak");
    stage.mount();
}

bool use_host_pack(Stage&) {
    ++host_pack.used;
    return fs::add_pack_reader("host", host_pack) && reads("packed.txt", "line 0\nline 1\n") &&
           reads("stored.bin", "stored") && fs::rem_source("host");
}

std::string host_pack_is_released(Stage&, bool) {
    fs::rem_source("host");
    return host_pack.used == 0 ? "" : "the host's pack is in use, or was released twice";
}

/// A zlib stream of three stored bytes.
constexpr unsigned char packed_abc[] = {0x78, 0x01, 0x01, 3, 0, 0xFC, 0xFF, 'a', 'b', 'c', 0x02, 0x4D, 0x01, 0x27};

bool use_memory_archive(Stage& stage) {
    static char memory[100];
    static fs::ZippedDataArchive archive;
    archive.UnbindArchiveFromMemory();  // of the run before
    archive.ResetEntryMap();
    char plain[4] = "";
    std::uint32_t length = 0;
    ztl::list<fs::string> names;
    return archive.BindArchiveToMemory(memory, sizeof memory) &&
           archive.AddEntry("levels/one.txt", packed_abc, sizeof packed_abc, 3) &&
           archive.ReadEntryAsZippedData("LEVELS/one.txt", plain, sizeof plain, &length) &&
           std::string_view(plain, length) == "abc" && quiet([&] { archive.GetAllFilenames(names); })(stage) &&
           names.size() == 1 && archive.RemoveEntry("levels/one.txt");
}

bool view_files(Stage&) {
    for (const char* name : {"save.txt", "stored.bin", "packed.txt"}) {
        SFsView view;
        if (!fs::map(name, view)) return false;
        const bool has_bytes = view.size != 0 && static_cast<const char*>(view.data)[0] != '\0';
        fs::unmap(view);
        if (!has_bytes) return false;
    }
    return true;
}

/// Names that `fs::search` answers; null for no list at all.
FS_NAME* found_names = nullptr;

std::string list_is_whole(Stage&, bool answer) {
    std::string text;
    for (const FS_NAME* name = found_names; name != nullptr; name = name->next) text += std::string(name->name) + " ";
    fs::free_names(std::exchange(found_names, nullptr));
    return text.empty() && !answer ? "" : expect("the list", text, "levels/one.txt levels/two.txt ");
}

bool change_attributes(Stage&) {
    fs::read_only_remove("save.txt");  // where the time before failed
    return fs::set_write_time("save.txt", 132'000'000'000'000'000) && fs::read_only_set("save.txt") &&
           fs::read_only_remove("save.txt");
}

void add_behind_the_mount(Stage& stage) {
    stage.mount();
    stage.write({{"root/levels/added.txt", old_save}});
}

std::string refresh_finds_all(Stage&, bool answer) {
    return first_of({all_is_mounted(), answer ? expect("what was added", load("levels/added.txt"), old_save) : ""});
}

bool poll(Stage&) {
    ztl::vector<SFsChange> changes;
    return fs::poll_changes(changes, 0);
}

void change_behind_the_watch(Stage& stage) {
    stage.mount();
    const std::string levels = stage / "root/levels";
    fs::add_source_at(levels.c_str(), "mods", FFSAddSourceFlags::RECURSIVE | FFSAddSourceFlags::INDEX_NAMES);
    for (const std::string& path : {stage.root, levels}) fs::watch(path.c_str(), true);
    poll(stage);
    std::filesystem::create_directories(stage / "root/levels/inner");
    stage.write({{"root/levels/added.txt", old_save}, {"root/fresh/added.txt", old_save}});
    std::filesystem::remove_all(stage / "root/deep");
}

std::string unknown_change() {
    if (fs::exists("deep/er/three.txt")) return "what was removed is held";
    if (fs::search_dir("mods/inner") == nullptr) return "the tree of a source below a prefix lacks a new directory";
    return first_of({expect("what was added", load("levels/added.txt"), old_save),
                     expect("what is in a new directory", load("fresh/added.txt"), old_save)});
}

/// Windows may tell of a change some time after it was made.
std::string changes_are_known(Stage& stage, bool answer) {
    std::string unknown = answer ? unknown_change() : "";
#if defined(_WIN32)
    for (int i = 0; i < 200 && !unknown.empty() && poll(stage); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        unknown = unknown_change();
    }
#else
    static_cast<void>(stage);
#endif
    return unknown;
}

std::string watch_tells(Stage& stage, bool answer) {
    if (!answer) return "";
    poll(stage);
    stage.write({{"root/levels/added.txt", old_save}});
    ztl::vector<SFsChange> changes;
    fs::poll_changes(changes, 0);
    return changes.size() == 1 ? "" : "a change is not told";
}

std::string container_is_old_or_empty(Stage& stage, bool answer) {
    if (!answer) return container_is_whole(stage, false);
    CFileHashMultiContainer file;
    return file.Open("a.mc", false) && fetch_text(file, 1) == "(none)" ? "" : "it is not empty";
}

bool read_whole_files(Stage&) {
    return reads("levels/one.txt", "one") && reads("packed.txt", "line 0\nline 1\n") && reads("stored.bin", "stored");
}

}  // namespace

std::vector<Scenario> scenarios() {
    return {
        {"mount", [](Stage& stage) { return stage.unmount(), stage.mount(); }, bare, "", mount_is_whole},
        {"mount by a recorded listing", [](Stage& stage) { return stage.unmount(), stage.mount(true); },
         [](Stage& stage) { stage.mount(true), stage.unmount(); }, "cache/", mount_is_whole, true},
        {"append", append_to_save, mounted, save_txt, save_begins_as_before, true},
        {"save", [](Stage&) { return fs::save_text_file(new_save, "save.txt"); }, without_pack, save_txt},
        {"save in the place of a file",
         [](Stage&) { return fs::save_text_file(new_save, "save.txt", FFSOpenFlags::REPLACE); }},
        {"save a new file beside its place",
         [](Stage&) { return fs::save_text_file(fresh, "made/up/fresh.txt", FFSOpenFlags::REPLACE); }, without_pack},
        {"save a new file", [](Stage&) { return fs::save_text_file(fresh, "made/up/fresh.txt"); }, without_pack,
         "root/made/up/fresh.txt"},
        {"read whole files", read_whole_files},
        {"mount a pack that the host reads", use_host_pack, keep_host_pack, "", host_pack_is_released},
        {"search", quiet([] { found_names = fs::search("levels/", "*.txt", false, false); }), mounted, "",
         list_is_whole},
        {"make a directory", [](Stage&) { return fs::mkdir("new/place"); }, without_pack},
        {"rename", [](Stage&) { return fs::rename("save.txt", "kept/save2.txt"); }},
        {"remove a file", [](Stage&) { return fs::rem_file("save.txt"); }},
        {"remove a directory", quiet([] { fs::rem_dir("levels"); })},
        {"copy", [](Stage&) { return fs::copy("levels/one.txt", "copies/one.txt", 0); }, without_pack,
         "root/copies/one.txt"},
        {"copy a directory", [](Stage&) { return fs::copy_dir("levels", "copies"); }, without_pack, "root/copies/"},
        {"back up", quiet([] { fs::create_backup_copy(long_save.c_str()); }), with_backup, "", nothing_wrong,
         /*bytes_vary*/ false,
         /*repeatable*/ false},
        {"attributes", change_attributes},
        {"refresh", quiet([] { fs::refresh(); }), add_behind_the_mount, "", refresh_finds_all},
        {"watch", [](Stage& stage) { return fs::watch(stage.root.c_str(), true); }, mounted, "", watch_tells},
        {"poll", poll, change_behind_the_watch, "", changes_are_known},
        pack_scenario(),
        {"zip writer", write_zip, without_pack, "root/out.pak", zip_is_whole, true},
        {"make a container", [](Stage&) { return CFileHashMultiContainer().Create("new.mc"); }, without_pack},
        {"make a container anew", [](Stage&) { return CFileHashMultiContainer().Create("a.mc"); }, make_container,
         "root/a.mc", container_is_old_or_empty, true},
        {"change a container", change_container, make_container, "root/a.mc", container_is_whole, true},
        {"cached writer", [](Stage&) { return write_stream(fs::cachedwrfile(16)); }, mounted, save_txt},
        {"cached writer in order", [](Stage&) { return write_stream(fs::cachedwrnoseekfile(16)); }, mounted, save_txt},
        {"native stream", [](Stage& stage) { return write_stream(fs::bfile_win32(16), stage.save); }, mounted,
         save_txt},
        {"gzip handle", write_gzip, without_pack, "root/save.gz"},
        {"damaged gzip handle", read_damaged_gzip,
         [](Stage& stage) {
             stage.write({{"root/levels/one.txt", "\x1f\x8b\x08 damaged"}});
             stage.mount();
         }},
        {"memory archive", use_memory_archive, [](Stage& stage) { use_memory_archive(stage); }},  // makes it itself
        {"load", load_by_worker},
        {"C interface", serve_c, mounted, save_txt},
        {"view", view_files},
        {"queued read", read_queued},
    };
}

}  // namespace test

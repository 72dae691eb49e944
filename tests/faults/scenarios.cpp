#include "tests/faults/scenarios.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "engine/filesystem/contract/guarded.h"
#include "engine/filesystem/log/sinks.h"
#include "engine/filesystem/startup/log/file.h"

// What each family must keep when any single step of it fails: an answer of true is the whole truth, and what failed
// left the old data whole.

namespace test {

namespace {

// Made beforehand, so that nothing but the library meets a missing block of memory.
const fs::string old_save = "the old save";
const fs::string new_save = "the new save, which is longer";
const fs::string fresh = "fresh";
const fs::string long_text(5000, 'x');

void mounted(Stage& stage) { stage.mount(); }
void bare(Stage&) {}
/// A pack at the head of the list creates nothing.
void without_pack(Stage& stage) {
    stage.mount();
    fs::rem_source(stage.pack.c_str());
}

std::string expect(const std::string& what, const std::string& found, const std::string& wanted) {
    return found == wanted ? "" : what + " is \"" + found.substr(0, 40) + "\" and not \"" + wanted.substr(0, 40) + "\"";
}

std::string first_of(std::initializer_list<std::string> complaints) {
    for (const std::string& complaint : complaints) {
        if (!complaint.empty()) return complaint;
    }
    return "";
}

/// For calls without an answer of their own.
template <typename Work>
bool said_nothing(Work work) {
    fs::clear_error();
    work();
    return fs::last_error().code == EFSError::NONE;
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

/// Adds `text` to save.txt by an open of this mode.
bool add_to_save(EFSMode::TYPE mode, const char* text) {
    SFsFile* const file = fs::open("save.txt", mode);
    if (file == nullptr) return false;
    const std::string_view bytes = text;
    const bool placed = mode == EFSMode::APPEND || fs::seek(file, 0, EFSSeek::END);
    const bool written = placed && fs::write(file, bytes.data(), bytes.size()) == bytes.size();
    fs::close(file);
    return written;
}

std::string save_begins_as_before(Stage& stage, bool answer) {
    const std::string found = stage.on_disk("root/save.txt");
    if (!found.starts_with(old_save)) return "save.txt lost its beginning: \"" + found + "\"";
    return answer && !found.ends_with("+") ? "what was added is not there" : "";
}

std::string save_is_whole(Stage& stage, bool answer) {
    if (!answer) return "";
    return first_of({expect("save.txt on the disk", stage.on_disk("root/save.txt"), new_save),
                     expect("save.txt", load("save.txt"), new_save)});
}

/// Everything that `names` do not name is as it was built.
std::string others_untouched(Stage& stage, std::initializer_list<const char*> names) {
    const Tree disk = stage.disk();
    for (const auto& [name, bytes] : stage_tree()) {
        bool is_meant = false;
        for (const char* meant : names) is_meant = is_meant || name == meant;
        if (is_meant) continue;
        const auto found = disk.find(name);
        if (found == disk.end()) return name + " is gone";
        if (found->second != bytes) return name + " has changed";
    }
    return "";
}

std::string renamed(Stage& stage, bool answer) {
    const std::string before = stage.on_disk("root/save.txt");
    const std::string after = stage.on_disk("root/kept/save2.txt");
    if (before != old_save && after != old_save) return "the file is under neither name";
    if (!answer) return "";
    return first_of({expect("the old name", before, "(none)"), expect("the new name", load("kept/save2.txt"), old_save),
                     expect("the old name", load("save.txt"), "(none)")});
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
    return {.name = "pack writer",
            .prepare =
                [](Stage& stage) {
                    write_pack(stage, added);  // the old one, and room for what is added
                    fs::init(stage.root.c_str(), FFSAddSourceFlags::NONE, "", false, false, nullptr);
                },
            .act = [](Stage& stage) { return write_pack(stage, added); },
            .check = [](Stage& stage, bool) -> std::string {
                if (!mounts_with(stage.new_pack, {"a.txt", "b.txt", "c.txt"}) && !mounts_with(stage.new_pack, added)) {
                    return "the pack is neither the old one nor what was added";
                }
                for (const auto& [name, bytes] : stage.disk()) {
                    if (name.starts_with("new.pak") && name != "new.pak") return name + " is left over";
                }
                return "";
            }};
}

bool write_zip() {
    void* const archive = MiniZ::ZipCreate("out.zip");
    if (archive == nullptr) return false;
    const auto size = static_cast<unsigned>(long_text.size());
    const bool added = MiniZ::ZipAddData(archive, "one", long_text.data(), size) &&
                       MiniZ::ZipAddData(archive, "two", long_text.data(), size);
    if (added) fs::clear_error();
    MiniZ::ZipClose(archive);
    return added && fs::last_error().code == EFSError::NONE;
}

std::string zip_is_whole(Stage& stage, bool answer) {
    if (!answer) return "";
    const std::string copy = stage / "out.pak";
    std::filesystem::copy_file(stage / "root/out.zip", copy, std::filesystem::copy_options::overwrite_existing);
    return mounts_with(copy, {"one", "two"}) ? "" : "the archive is broken";
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

bool change_container(Stage&) {
    CFileHashMultiContainer file;
    return file.Open("a.mc", true) && put_text(file, 3, "third") && file.Save();
}

/// A compaction, and one more change even where it failed: nothing may be lost by it.
bool compact_container(Stage&) {
    CFileHashMultiContainer file;
    if (!file.Open("a.mc", true)) return false;
    const bool is_compacted = file.Compact();
    const bool goes_on = !file.IsOpen() || (put_text(file, 3, "third") && file.Save());
    return is_compacted && goes_on;
}

std::string container_is_whole(Stage& stage, bool answer) {
    CFileHashMultiContainer file;
    if (!file.Open("a.mc", false)) return "the container does not open";
    if (stage.on_disk("root/a.mc.new") != "(none)") return "a.mc.new is left over";
    return first_of({expect("blob 1", fetch_text(file, 1), "first"), expect("blob 2", fetch_text(file, 2), "second"),
                     answer ? expect("blob 3", fetch_text(file, 3), "third") : ""});
}

// Streams

template <typename Stream>
bool write_stream(Stream&& stream) {
    if (!stream.open("save.txt", EFSMode::WRITE)) return false;
    const std::string_view text = new_save;
    if (stream.write(text.data(), text.size()) != text.size()) return false;
    fs::clear_error();
    stream.close();
    return fs::last_error().code == EFSError::NONE;
}

bool write_native_stream(Stage& stage) {
    fs::bfile_win32 stream(16);
    if (!stream.open(stage.save.c_str(), EFSMode::WRITE)) return false;
    const std::string_view text = new_save;
    const bool written = stream.write(text.data(), text.size()) == text.size() && stream.flush();
    stream.close();
    return written && !stream.failed();
}

bool gzip_round_trip(Stage&) {
    fs::clear_error();
    SFsFile* const out = fs::open("save.gz", EFSMode::WRITE, FFSOpenFlags::CREATE | FFSOpenFlags::GZIP_LEVEL5);
    if (out == nullptr) return false;
    const std::string_view text = new_save;
    const bool written = fs::write(out, text.data(), text.size()) == text.size();
    fs::close(out);
    return written && fs::last_error().code == EFSError::NONE;
}

std::string gzip_reads_back(Stage&, bool answer) {
    if (!answer) return "";
    SFsFile* const in = fs::open("save.gz", EFSMode::READ, FFSOpenFlags::GZIP);
    if (in == nullptr) return "the member does not open";
    char bytes[100];
    const std::uint64_t got = fs::read(in, bytes, sizeof(bytes));
    fs::close(in);
    return expect("save.gz", std::string(bytes, got <= sizeof(bytes) ? static_cast<std::size_t>(got) : 0), new_save);
}

bool read_queued(Stage&) {
    SFsFile* const file = fs::open("save.txt", EFSMode::READ, FFSOpenFlags::ASYNC);
    if (file == nullptr) return false;
    SFsRequest* const request = SFsRequest::Create(nullptr, nullptr);
    std::array<char, 64> bytes{};
    const std::uint64_t length = fs::length(file);
    bool done =
        length != ~std::uint64_t{0} && request != nullptr && file->read_async(bytes.data(), 0, length, request, 1);
    if (done) {
        request->Wait();
        // The worker tells by the result alone.
        if (request->Result() != EFSRequestResult::SUCCESS) bytes = {};
    }
    if (request != nullptr) request->Release();
    fs::close(file);
    return done && (bytes[0] == '\0' || std::string_view(bytes.data()) == std::string_view(old_save));
}

/// Reads a whole file and compares it with how it must begin.
bool reads(const char* name, std::string_view beginning) {
    std::uint64_t size = 0;
    void* const bytes = fs::read(name, &size);
    const bool same = bytes != nullptr && std::string_view(static_cast<char*>(bytes), size).starts_with(beginning);
    std::free(bytes);
    return same;
}

// The log goes on without what fails, and keeps the thread's failure as it is: what counts is what its file holds.

bool log_two_lines(Stage&) {
    const auto open = [] { return crash::open_log_file("logs/a.log", false); };
    if (fs::guarded(nullptr, crash::Opened::NO, open) != crash::Opened::YES) return true;
    const auto write = logging::state.write_to_file.load();
    for (const std::string_view line : {"first line\r\n", "second line\r\n"}) write(line.data(), line.size());
    crash::close_log_file();
    return true;
}

/// A line may be cut or missing; none runs into another.
std::string log_is_whole(Stage& stage, bool) {
    const std::string log = stage.on_disk("root/logs/a.log");
    if (log == "(none)") return "";
    for (std::size_t begin = 0; begin < log.size();) {
        const std::size_t end = std::min(log.find("\r\n", begin), log.size());
        const std::string line = log.substr(begin, end - begin);
        if (!std::string_view("first line\r").starts_with(line) && !std::string_view("second line\r").starts_with(line))
            return "the log has the line \"" + line + "\"";
        begin = end + 2;
    }
    return "";
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

/// A zlib stream of three stored bytes.
constexpr unsigned char packed_abc[] = {0x78, 0x01, 0x01, 3, 0, 0xFC, 0xFF, 'a', 'b', 'c', 0x02, 0x4D, 0x01, 0x27};

bool use_memory_archive() {
    static char memory[100];
    static fs::ZippedDataArchive archive;
    archive.UnbindArchiveFromMemory();  // of the run before
    archive.ResetEntryMap();
    char plain[4] = "";
    std::uint32_t length = 0;
    ztl::list<fs::string> names;
    fs::clear_error();
    return archive.BindArchiveToMemory(memory, sizeof memory) &&
           archive.AddEntry("levels/one.txt", packed_abc, sizeof packed_abc, 3) &&
           archive.ReadEntryAsZippedData("LEVELS/one.txt", plain, sizeof plain, &length) &&
           std::string_view(plain, length) == "abc" && said_nothing([&] { archive.GetAllFilenames(names); }) &&
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

}  // namespace

const std::vector<Scenario>& scenarios() {
    static const std::vector<Scenario> all = {
        {.name = "mount",
         .prepare = bare,
         .act = [](Stage& stage) { return stage.unmount(), stage.mount(); },
         .check = [](Stage&, bool answer) { return answer ? all_is_mounted() : ""; }},
        {.name = "mount by a recorded listing",
         .prepare = [](Stage& stage) { stage.mount(true), stage.unmount(); },
         .act = [](Stage& stage) { return stage.unmount(), stage.mount(true); },
         .check = [](Stage&, bool answer) { return answer ? all_is_mounted() : ""; }},
        {.name = "append",
         .prepare = mounted,
         .act = [](Stage&) { return add_to_save(EFSMode::APPEND, "+"); },
         .check = save_begins_as_before},
        {.name = "read and write",
         .prepare = mounted,
         .act = [](Stage&) { return add_to_save(EFSMode::READ_WRITE, "+"); },
         .check = save_begins_as_before},
        {.name = "save",
         .prepare = without_pack,
         .act = [](Stage&) { return fs::save_text_file(new_save, "save.txt"); },
         .check = save_is_whole},
        {.name = "save a new file",
         .prepare = without_pack,
         .act = [](Stage&) { return fs::save_text_file(fresh, "made/up/fresh.txt"); },
         .check = [](Stage&, bool answer) -> std::string {
             return answer ? expect("fresh.txt", load("made/up/fresh.txt"), fresh) : "";
         }},
        {.name = "read whole files",
         .prepare = mounted,
         .act =
             [](Stage&) {
                 return reads("levels/one.txt", "one") && reads("packed.txt", "line 0\nline 1\n") &&
                        reads("stored.bin", "stored");
             },
         .check = [](Stage&, bool) { return ""; }},
        {.name = "search",
         .prepare = mounted,
         .act = [](Stage&) { return said_nothing([] { found_names = fs::search("levels/", "*.txt", false, false); }); },
         .check = list_is_whole},
        {.name = "make a directory",
         .prepare = without_pack,
         .act = [](Stage&) { return fs::mkdir("new/place"); },
         .check = [](Stage& stage, bool answer) -> std::string {
             const bool is_there = std::filesystem::is_directory(stage / "root/new/place");
             return answer && !is_there ? "the directory is not there" : "";
         }},
        {.name = "rename",
         .prepare = mounted,
         .act = [](Stage&) { return fs::rename("save.txt", "kept/save2.txt"); },
         .check = renamed},
        {.name = "remove a file",
         .prepare = mounted,
         .act = [](Stage&) { return fs::rem_file("save.txt"); },
         .check = [](Stage& stage, bool answer) -> std::string {
             const bool is_there = stage.on_disk("root/save.txt") != "(none)";
             if (is_there == fs::exists("save.txt")) return answer && is_there ? "the file is still there" : "";
             return "table and disk disagree";
         }},
        {.name = "remove a directory",
         .prepare = mounted,
         .act = [](Stage&) { return said_nothing([] { fs::rem_dir("levels"); }); },
         .check = [](Stage& stage, bool answer) -> std::string {
             if (answer && std::filesystem::exists(stage / "root/levels")) return "the directory is still there";
             if (answer && fs::search_dir("levels") != nullptr) return "the index still has the directory";
             return others_untouched(stage, {"root/levels/one.txt", "root/levels/two.txt"});
         }},
        {.name = "copy",
         .prepare = without_pack,
         .act = [](Stage&) { return fs::copy("levels/one.txt", "copies/one.txt", 0); },
         .check = [](Stage& stage, bool answer) -> std::string {
             return first_of(
                 {others_untouched(stage, {}), answer ? expect("the copy", load("copies/one.txt"), "one") : ""});
         }},
        {.name = "copy a directory",
         .prepare = without_pack,
         .act = [](Stage&) { return fs::copy_dir("levels", "copies"); },
         .check = [](Stage& stage, bool answer) -> std::string {
             return first_of(
                 {others_untouched(stage, {}), answer ? expect("the copy", load("copies/two.txt"), "two") : ""});
         }},
        {.name = "back up",
         .prepare = without_pack,
         .act = [](Stage&) { return said_nothing([] { fs::create_backup_copy("save.txt"); }); },
         .check = [](Stage& stage, bool answer) -> std::string {
             const std::string kept = stage.on_disk("root/save.txt");
             const std::string copied = stage.on_disk("root/save.txt.bak");
             if (kept != old_save && copied != old_save) return "the file is lost";
             return answer ? expect("the backup", copied, old_save) : "";
         },
         .repeatable = false},
        {.name = "attributes",
         .prepare = mounted,
         .act =
             [](Stage&) {
                 return fs::set_write_time("save.txt", 132'000'000'000'000'000) && fs::read_only_set("save.txt") &&
                        fs::read_only_remove("save.txt");
             },
         .check = [](Stage& stage, bool) -> std::string {
             fs::read_only_remove("save.txt");
             return others_untouched(stage, {});
         }},
        {.name = "refresh",
         .prepare =
             [](Stage& stage) {
                 stage.mount();
                 std::filesystem::copy_file(stage / "root/save.txt", stage / "root/levels/added.txt");
             },
         .act = [](Stage&) { return said_nothing([] { fs::refresh(); }); },
         .check = [](Stage&, bool answer) -> std::string {
             return first_of(
                 {all_is_mounted(), answer ? expect("what was added", load("levels/added.txt"), old_save) : ""});
         }},
        pack_scenario(),
        {.name = "zip writer",
         .prepare = without_pack,
         .act = [](Stage&) { return write_zip(); },
         .check = zip_is_whole},
        {.name = "make a container anew",
         .prepare = make_container,
         .act = [](Stage&) { return CFileHashMultiContainer().Create("a.mc"); },
         .check = [](Stage& stage, bool answer) -> std::string {
             CFileHashMultiContainer file;
             const bool is_empty = file.Open("a.mc", false) && fetch_text(file, 1) == "(none)";
             return answer ? is_empty ? "" : "it is not empty" : container_is_whole(stage, false);
         }},
        {.name = "change a container", .prepare = make_container, .act = change_container, .check = container_is_whole},
        {.name = "compact a container",
         .prepare = make_container,
         .act = compact_container,
         .check = container_is_whole},
        {.name = "cached writer",
         .prepare = mounted,
         .act = [](Stage&) { return write_stream(fs::cachedwrfile(16)); },
         .check = save_is_whole},
        {.name = "cached writer in order",
         .prepare = mounted,
         .act = [](Stage&) { return write_stream(fs::cachedwrnoseekfile(16)); },
         .check = save_is_whole},
        {.name = "native stream", .prepare = mounted, .act = write_native_stream, .check = save_is_whole},
        {.name = "gzip handle", .prepare = without_pack, .act = gzip_round_trip, .check = gzip_reads_back},
        {.name = "log file", .prepare = without_pack, .act = log_two_lines, .check = log_is_whole},
        {.name = "memory archive",
         .prepare = [](Stage&) { use_memory_archive(); },  // makes the archive itself
         .act = [](Stage&) { return use_memory_archive(); },
         .check = [](Stage&, bool) { return ""; }},
        {.name = "load", .prepare = mounted, .act = load_by_worker, .check = [](Stage&, bool) { return ""; }},
        {.name = "view", .prepare = mounted, .act = view_files, .check = [](Stage&, bool) { return ""; }},
        {.name = "queued read", .prepare = mounted, .act = read_queued, .check = [](Stage&, bool) { return ""; }},
    };
    return all;
}

}  // namespace test

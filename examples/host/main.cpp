// A small host: it mounts a folder of its game data, a pack, a mod over both and one at a prefix; it lists, reads and saves
// through the library, and records what it read, so that `enginefs pack --order` can lay a pack out
// in the order in which the game needs it. Then it streams a level while it draws, and reads a texture again that changes
// meanwhile.
#include <engine/filesystem.h>
#include <engine/filesystem/comfort.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <thread>

namespace {

// EXACT_SEEKS: stored entries of packs are read at the position asked for.
constexpr auto mount_flags =
    FFSAddSourceFlags::RECURSIVE | FFSAddSourceFlags::INDEX_NAMES | FFSAddSourceFlags::EXACT_SEEKS;

void put(const std::filesystem::path& file, const std::string& text) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
}

int failures = 0;

void expect(bool good, const char* what) {
    std::printf("%s %s\n", good ? "ok  " : "FAIL", what);
    if (good) return;
    ++failures;
    std::printf("     %s\n", fs::last_error().text.c_str());
}

void list_levels() {
    int count = 0;
    for (const char* name : fs::find_files("levels", "*.txt")) {
        std::printf("     %s\n", name);
        ++count;
    }
    expect(count == 3, "the levels of both folders are listed as one");
}

void read_levels() {
    fs::record_access(true);
    fs::string text;
    expect(fs::load_text_file(text, "levels/two.txt") && text == "two, changed",
           "the folder asked first shadows the other");
    expect(fs::load_text_file(text, "Levels\\One.txt") && text == "one", "case and the kind of slash do not matter");

    ztl::vector<fs::string> opened;
    fs::get_access_record(opened);
    fs::record_access(false);
    expect(opened.size() == 2 && opened[0] == "levels/two.txt" && opened[1] == "levels/one.txt",
           "what was read is on record");
}

void write_progress() {
    // REPLACE: the save before stays until this one is whole, also when the process is killed.
    expect(fs::save_text_file("level two", "saves/progress.txt", FFSOpenFlags::REPLACE),
           "a save goes where WRITE_HERE says, packs or not");

    fs::string text;
    expect(fs::read_file(text, "saves/progress.txt") && text == "level two", "and reads back");
}

void seek_in_pack(const std::string& path) {
    std::string sounds(200000, '.');
    sounds.replace(10, 5, "steps");
    fs::pack_writer pack;
    expect(pack.open(path.c_str()) && pack.add("sounds.bank", sounds.data(), sounds.size(), 0, 0) &&
               pack.add("sounds.txt", "loud", 4, 6, 0) && pack.finish(),
           "a pack is written, its entry stored");
    expect(fs::add_source(path.c_str(), mount_flags), "and mounted");

    const fs::file_ptr bank = fs::open_file("sounds.bank", EFSMode::READ);
    std::string found(5, ' ');
    fs::seek(bank.get(), 150000, EFSSeek::BEGIN);
    fs::read(bank.get(), found.data(), found.size());
    fs::seek(bank.get(), 10, EFSSeek::BEGIN);
    expect(fs::read(bank.get(), found.data(), found.size()) == 5 && found == "steps",
           "reading goes back and forth in it");
}

void play_mods(const std::string& overlay, const std::string& extra) {
    fs::string text;
    expect(fs::add_source(overlay.c_str(), mount_flags | FFSAddSourceFlags::BEFORE_PACKS), "a mod lies over packs");
    expect(fs::load_text_file(text, "sounds.txt") && text == "louder", "and wins");
    expect(fs::add_source_at(extra.c_str(), "mods/extra", mount_flags), "another one shows its files at a prefix");
    expect(fs::load_text_file(text, "mods/extra/forecast.txt") && text == "snow", "where nothing else lies");
}

struct Level {
    bool is_whole = true;
    bool is_done = false;
    std::uint64_t bytes = 0;
};

/// Here a game would hand load->Data() to the graphics card.
void take(SFsLoad* load, void* user) {
    auto& level = *static_cast<Level*>(user);
    level.is_whole = level.is_whole && load->Result() == EFSRequestResult::SUCCESS;
    level.bytes += load->Size();
}

void finish(SFsLoadBatch*, void* user) { static_cast<Level*>(user)->is_done = true; }

void draw_frame() {
    fs::poll_loads(4);  // no more in one frame
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

/// Workers open, read and decode; what is there is taken between two frames.
void stream_level() {
    fs::set_polled_callbacks(true);
    Level level;
    SFsLoadWish wishes[] = {{.path = "levels/one.txt"},
                            {.path = "levels/two.txt"},
                            {.path = "sounds.bank", .priority = EFSLoadPriority::HIGH}};
    for (SFsLoadWish& wish : wishes) {
        wish.callback = &take;
        wish.user = &level;
    }
    SFsLoadBatch* const batch = fs::load_batch(wishes, std::size(wishes), &finish, &level);
    expect(batch != nullptr, "a level begins to load");
    if (batch == nullptr) return;
    while (!level.is_done) draw_frame();
    batch->Release();
    expect(level.is_whole && level.bytes == 3 + 12 + 200000, "and is there some frames later");
}

/// An artist saves while the game runs, and the host hears of it between two frames.
void follow_artist(const std::filesystem::path& folder) {
    const std::string changes = fs::from_path(folder / "changes");
    expect(fs::watch(changes.c_str(), true), "a folder is watched");
    put(folder / "changes/textures/wall.dds", "moss");
    fs::string texture;
    ztl::vector<SFsChange> told;
    for (int frame = 0; texture.empty() && frame < 5000; ++frame) {
        draw_frame();
        fs::poll_changes(told);
        for (const SFsChange& change : told) {
            if (change.name == "textures/wall.dds" && change.winner_changed)
                fs::read_file(texture, "textures/wall.dds");
        }
    }
    expect(texture == "moss", "and a texture that was changed is read again");
}

void run(const std::filesystem::path& folder) {
    put(folder / "data/levels/one.txt", "one");
    put(folder / "data/levels/two.txt", "two");
    put(folder / "changes/levels/two.txt", "two, changed");
    put(folder / "changes/levels/three.txt", "three");
    put(folder / "overlay/sounds.txt", "louder");
    put(folder / "extra/forecast.txt", "snow");
    put(folder / "changes/textures/wall.dds", "bricks");

    const std::string changes = fs::from_path(folder / "changes");
    const std::string data = fs::from_path(folder / "data");
    const auto root_flags = mount_flags | FFSAddSourceFlags::WRITE_HERE;
    if (!fs::init({.root = changes.c_str(), .flags = root_flags, .use_fallback = false}))
        return expect(false, "fs::init");
    CrashInit();  // the log is made where new files are made, so behind fs::init
    expect(CrashGetLogFileName() != nullptr, "the log is open");
    expect(fs::add_source(data.c_str(), mount_flags), "a second folder is mounted below the first");
    list_levels();
    read_levels();
    seek_in_pack(fs::from_path(folder / "sounds.pak"));
    write_progress();
    play_mods(fs::from_path(folder / "overlay"), fs::from_path(folder / "extra"));
    stream_level();
    follow_artist(folder);
    fs::shutdown();
    CrashClose();
    expect(std::filesystem::exists(folder / "changes/saves/progress.txt"), "on the disk it lies where it belongs");
}

}  // namespace

int main() {
    // A folder of this run alone; its upper-case letters show that the case of the disk is kept.
    const std::string name = "Engine_Host_Example_" + std::to_string(std::random_device()());
    const std::filesystem::path folder = std::filesystem::temp_directory_path() / name;
    run(folder);
    std::filesystem::remove_all(folder);
    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

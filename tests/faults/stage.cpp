#include "tests/faults/stage.h"

#include <engine/filesystem/comfort.h>

#include <cstdlib>
#include <filesystem>

#include "tests/support/pack_file.h"
#include "tests/support/temp_directory.h"

namespace test {

namespace {

namespace disk = std::filesystem;

/// The pack's bytes, which are made once: making it waits for the disk.
const std::string& pack_bytes(const std::string& path) {
    static const std::string bytes = [&] {
        std::string text;
        for (int line = 0; line < 3000; ++line) text += "line " + std::to_string(line * line) + "\n";
        if (!write_pack(path, {{"packed.txt", text}, {"stored.bin", "stored", 0}})) std::abort();
        return read_file(path);
    }();
    return bytes;
}

}  // namespace

const Tree& stage_tree() {
    static const Tree tree = {{"root/save.txt", "the old save"},
                              {"root/levels/one.txt", "one"},
                              {"root/levels/two.txt", "two"},
                              {"root/deep/er/three.txt", "three"},
                              {"more/extra.txt", "extra"}};
    return tree;
}

void Stage::build() {
    disk::remove_all(folder);
    write(stage_tree());
    disk::create_directories(cache + "/" + fs::listing_cache_folder);
    write_file(pack, pack_bytes(pack));
}

void Stage::write(const Tree& files) const {
    for (const auto& [name, bytes] : files) {
        const std::string path = *this / name.c_str();
        disk::create_directories(disk::path(path).parent_path());
        write_file(path, bytes);
    }
}

bool Stage::mount(bool recording) {
    constexpr auto flags = FFSAddSourceFlags::RECURSIVE | FFSAddSourceFlags::INDEX_NAMES;
    return fs::init(root.c_str(), flags, recording ? cache.c_str() : "", false, recording, nullptr) &&
           fs::add_source(more.c_str(), flags) && fs::add_source(pack.c_str(), flags);
}

std::string Stage::on_disk(const char* name) const {
    const std::string path = *this / name;
    return disk::exists(path) ? read_file(path) : "(none)";
}

Tree Stage::disk() const {
    Tree tree;
    for (const auto& item : disk::recursive_directory_iterator(folder)) {
        const std::string name = item.path().lexically_relative(folder).generic_string();
        if (item.is_directory()) tree[name + "/"] = "";
        if (item.is_regular_file()) tree[name] = read_file(item.path().string());
    }
    return tree;
}

std::string Stage::left_open() const {
    for (const auto& [name, bytes] : disk()) {
        if (name.ends_with('/')) continue;
        fs::clear_error();
        SFsFile* const file =
            fs::open_native(nullptr, (folder + "/" + name).c_str(), EFSMode::READ_WRITE, FFSOpenFlags::NONE);
        if (file == nullptr && fs::last_error().code == EFSError::IN_USE) return name;
        fs::close(file);
    }
    return "";
}

std::string load(const char* name) {
    std::string text;
    return fs::read_file(text, name) ? text : "(none)";
}

std::string expect(const std::string& what, const std::string& found, const std::string& wanted) {
    return found == wanted ? "" : what + " is \"" + found.substr(0, 40) + "\" and not \"" + wanted.substr(0, 40) + "\"";
}

}  // namespace test

#include "bench/support/tree.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>

namespace {

constexpr std::size_t files_in_directory = 50;

constexpr const char* subjects[] = {"orc",   "knight", "castle", "forest", "river",   "bridge", "tavern", "dragon",
                                    "wagon", "banner", "shield", "cannon", "harbour", "tower",  "statue", "market"};
constexpr const char* parts[] = {"body", "head", "wall", "roof", "trunk", "wheel", "wing", "base", "door", "flag"};
constexpr const char* kinds[] = {"diffuse.dds", "normal.dds", "gloss.dds",   "idle.anm",   "walk.anm",
                                 "lod0.msh",    "lod1.msh",   "collide.phy", "impact.wav", "settings.xml"};
constexpr const char* rooms[] = {"textures", "models", "sounds", "animations", "levels", "effects", "scripts", "ui"};

template <std::size_t Count>
const char* any(const char* const (&words)[Count], std::mt19937& random) {
    return words[random() % Count];
}

std::string directory_name(std::size_t index, std::mt19937& random) {
    std::string name = any(rooms, random);
    if (index % 3 != 0) name += std::string("/") + any(subjects, random) + "s";
    return name + "/" + any(subjects, random) + "_" + std::to_string(index) + "/";
}

std::string file_name(std::size_t index, std::mt19937& random) {
    if (index % files_in_directory == 0) return "settings.xml";  // some names are common
    return std::string(any(subjects, random)) + "_" + any(parts, random) + "_" + std::to_string(index) + "_" +
           any(kinds, random);
}

void make_files(const BenchTree& tree, bool filled) {
    const std::string bytes(filled ? 4096 : 0, 'x');
    for (const std::string& name : tree.names) {
        const std::filesystem::path path = tree.root + "/" + name;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << bytes;
    }
}

}  // namespace

std::vector<std::string> bench_names(std::size_t directories) {
    std::mt19937 random(20240229);
    std::vector<std::string> names;
    for (std::size_t i = 0; i < directories; ++i) {
        const std::string directory = directory_name(i, random);
        for (std::size_t j = 0; j < files_in_directory; ++j) {
            names.push_back(directory + file_name(i * files_in_directory + j, random));
        }
    }
    for (std::size_t i = names.size() - 1; i > 0; --i) std::swap(names[i], names[random() % (i + 1)]);
    return names;
}

const BenchTree& bench_tree(std::size_t directories, bool filled) {
    static std::map<std::size_t, BenchTree> trees;
    BenchTree& tree = trees[directories];
    if (!tree.root.empty()) return tree;
    const std::string name = "engine_bench_tree_" + std::to_string(directories);
    tree.root = (std::filesystem::temp_directory_path() / name).generic_string();
    tree.names = bench_names(directories);
    const std::string finished = tree.root + ".finished";
    if (std::filesystem::exists(finished)) return tree;
    std::filesystem::remove_all(tree.root);
    make_files(tree, filled);
    std::ofstream(finished) << tree.names.size();
    return tree;
}

std::size_t resident_bytes() {
    std::ifstream statm("/proc/self/statm");
    std::size_t pages = 0;
    std::size_t resident = 0;
    return statm >> pages >> resident ? resident * 4096 : 0;
}

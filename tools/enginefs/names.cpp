#include "names.h"

#include <engine/filesystem.h>

#include "report.h"

namespace {

std::vector<std::string> take(FS_NAME* list) {
    std::vector<std::string> names;
    for (const FS_NAME* node = list; node != nullptr; node = node->next) names.emplace_back(node->name);
    fs::free_names(list);
    return names;
}

}  // namespace

std::vector<std::string> list_files(const std::string& dir, const std::string& mask, bool recursive) {
    return take(fs::search(dir.c_str(), mask.c_str(), recursive, false));
}

std::vector<std::string> list_everything() { return take(fs::search(nullptr, nullptr, true, false)); }

bool is_directory(const std::string& name) {
    const std::string clean = normalised(name);
    return !clean.empty() && fs::search_dir(clean.c_str()) != nullptr;
}

bool names_itself(const std::string& name) {
    if (!fs::exists(name.c_str())) return true;
    const std::string clean = normalised(name);
    const std::string found = fs::root_path(name.c_str());
    if (lower_case(found) == clean || lower_case(fs::full_path(name.c_str())) == clean) return true;
    fail(name, "it finds " + found + "; give that name to change it");
    return false;
}

FileFacts facts_of(const std::string& name) {
    FileFacts facts;
    const FilePtr file(fs::open(name.c_str(), EFSMode::READ));
    if (file == nullptr) return facts;
    facts.found = true;
    facts.size = fs::length(file.get());
    facts.size_known = facts.size != ~std::uint64_t{0};
    const std::int64_t time = fs::write_time(name.c_str());
    if (time > 0) facts.time = fs::get_time_as_str(time);
    return facts;
}

std::string lower_case(std::string text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return text;
}

std::string normalised(const std::string& name) {
    std::string out(name.size() + 1, '\0');
    fs::path_normalize(out.data(), name.c_str(), false);
    out.resize(out.find('\0'));
    return out;
}

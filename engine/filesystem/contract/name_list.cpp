// Lists of names as searches answer them, and which names answer a search.
#include "engine/filesystem/contract/name_list.h"

#include <algorithm>
#include <cstdlib>
#include <new>

#include "engine/filesystem/contract/path_text.h"

namespace fs {

char* joined_name(std::string_view dir, std::string_view name, std::size_t room) {
    auto* const text = static_cast<char*>(std::malloc(std::max(dir.size() + name.size() + 1, room)));
    if (text == nullptr) return nullptr;
    dir.copy(text, dir.size());
    name.copy(text + dir.size(), name.size());
    text[dir.size() + name.size()] = '\0';
    return text;
}

FS_NAME* new_name(std::string_view dir, std::string_view name, FS_NAME* next, std::size_t room) {
    auto* const node = static_cast<FS_NAME*>(std::malloc(sizeof(FS_NAME)));
    char* const text = joined_name(dir, name, room);
    if (node != nullptr && text != nullptr) {
        *node = {.name = text, .next = next};
        return node;
    }
    std::free(node);
    std::free(text);
    return nullptr;
}

void free_names(FS_NAME* names) {
    while (names != nullptr) {
        FS_NAME* const next = names->next;
        std::free(names->name);
        std::free(names);
        names = next;
    }
}

void prepend(NameList& list, std::string_view dir, std::string_view name, std::size_t room) {
    FS_NAME* const node = new_name(dir, name, list.get(), room);
    if (node == nullptr) throw std::bad_alloc();
    static_cast<void>(list.release());  // it lies behind the new one
    list.reset(node);
}

bool has_extension(std::string_view name, const char* ext) {
    const std::size_t dot = name.rfind('.');
    return ext == nullptr || (dot == std::string_view::npos ? "" : name.substr(dot)) == ext;
}

bool name_matches(std::string_view name, const char* mask) {
    if (mask == nullptr || mask[0] == '\0') return true;
    // Only the latest "*" is ever tried again with a longer run: if an earlier one could help, so could this.
    const char* after_star = nullptr;
    std::size_t resume = 0;
    std::size_t at = 0;
    while (at < name.size()) {
        if (*mask == '*') {
            after_star = ++mask;
            resume = at;
        } else if (*mask != '\0' && (*mask == '?' || fold(*mask) == fold(name[at]))) {
            ++mask;
            ++at;
        } else if (after_star != nullptr) {
            mask = after_star;
            at = ++resume;
        } else {
            return false;
        }
    }
    while (*mask == '*') ++mask;
    return *mask == '\0';
}

bool directory_answers(std::string_view held, const char* dir, bool below) {
    if (dir == nullptr) return true;
    std::string_view wanted(dir);
    if (!wanted.empty() && wanted.back() == '/') wanted.remove_suffix(1);
    if (wanted.empty()) return below || held.empty();
    if (held.size() <= wanted.size() || held.substr(0, wanted.size()) != wanted || held[wanted.size()] != '/')
        return false;
    return below || held.size() == wanted.size() + 1;
}

}  // namespace fs

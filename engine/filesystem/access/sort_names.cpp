#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "engine/filesystem/access/parts.h"

namespace fs {

namespace {

std::size_t count_names(const FS_NAME* names) {
    std::size_t count = 0;
    for (; names != nullptr; names = names->next) ++count;
    return count;
}

FS_NAME* free_first(FS_NAME* names) {
    FS_NAME* const rest = names->next;
    std::free(names->name);
    std::free(names);
    return rest;
}

FS_NAME* free_while_named(FS_NAME* names, const char* name) {
    while (names != nullptr && std::strcmp(names->name, name) == 0) names = free_first(names);
    return names;
}

/// As deep as the logarithm of the count.
FS_NAME* sort_counted(FS_NAME* names, std::size_t count) {
    if (count < 2) return names;
    const std::size_t half = count / 2;
    FS_NAME* last = names;
    for (std::size_t i = 1; i < half; ++i) last = last->next;
    FS_NAME* const rest = last->next;
    last->next = nullptr;
    return merge_names(sort_counted(names, half), sort_counted(rest, count - half));
}

}  // namespace

FS_NAME* sort_names(FS_NAME* names) { return sort_counted(names, count_names(names)); }

FS_NAME* merge_names(FS_NAME* first, FS_NAME* second) {
    FS_NAME* head = nullptr;
    FS_NAME** tail = &head;
    while (first != nullptr && second != nullptr) {
        const int order = std::strcmp(first->name, second->name);  // compares unsigned bytes
        if (order == 0) {
            first->next = free_while_named(first->next, first->name);
            second = free_while_named(second, first->name);
        }
        FS_NAME*& from = order <= 0 ? first : second;
        *tail = from;
        tail = &from->next;
        from = from->next;
    }
    *tail = first != nullptr ? first : second;
    return head;
}

}  // namespace fs

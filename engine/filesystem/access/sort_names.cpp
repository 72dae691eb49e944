#include <cstring>
#include <vector>

#include "engine/filesystem/access/parts.h"

namespace fs {

NameList sorted(NameList names) {
    std::vector<FS_NAME*> entries;
    for (FS_NAME* entry = names.get(); entry != nullptr; entry = entry->next) entries.push_back(entry);
    std::stable_sort(entries.begin(), entries.end(), [](const FS_NAME* first, const FS_NAME* second) {
        return std::strcmp(first->name, second->name) < 0;  // compares unsigned bytes
    });
    static_cast<void>(names.release());
    FS_NAME* kept = nullptr;  // they are linked anew from the last to the first
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
        if (kept != nullptr && std::strcmp(kept->name, (*entry)->name) == 0) {
            FS_NAME* const rest = std::exchange(kept->next, nullptr);
            free_names(std::exchange(kept, rest));
        }
        (*entry)->next = kept;
        kept = *entry;
    }
    return NameList(kept);
}

}  // namespace fs

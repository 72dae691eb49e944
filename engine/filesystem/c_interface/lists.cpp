#include "engine/filesystem/c_interface/lists.h"

using fs::c::find;
using fs::c::List;

int64_t enginefs_list_count(const enginefs_list* list) {
    const List* const texts = find(list);
    return texts != nullptr ? static_cast<int64_t>(texts->starts.size()) : -1;
}

const char* enginefs_list_at(const enginefs_list* list, uint64_t index) {
    const List* const texts = find(list);
    const std::size_t* const start = texts != nullptr ? fs::c::item_at(texts->starts, index) : nullptr;
    return start != nullptr ? texts->block.data() + *start : nullptr;
}

const char* enginefs_list_block(const enginefs_list* list, uint64_t* size) {
    const List* const texts = find(list);
    if (size != nullptr) *size = texts != nullptr ? texts->block.size() : 0;
    return texts != nullptr ? texts->block.data() : nullptr;
}

int enginefs_list_free(enginefs_list* list) {
    return list == nullptr ? ENGINEFS_OK : fs::c::status_of_end(list, [](List&) { return true; });
}

#include "engine/filesystem/sources/pack/table.h"

#include <algorithm>
#include <utility>

namespace fs {

void PackTableBuilder::add(std::string_view dir, std::string_view name, const PackEntry& told) {
    files_.push_back({.told = told,
                      .name_offset = static_cast<std::uint32_t>(names_.size()),
                      .name_size = static_cast<std::uint32_t>(name.size()),
                      .dir = table_.names.intern_dir(dir)});
    names_.append(name);
}

PackTable PackTableBuilder::finish() {
    const auto name_of = [this](const File& file) {
        return std::string_view(names_.data() + file.name_offset, file.name_size);
    };
    std::stable_sort(files_.begin(), files_.end(), [&](const File& a, const File& b) {
        const int order = name_of(a).compare(name_of(b));
        return order != 0 ? order < 0 : table_.names.dir_text(a.dir) < table_.names.dir_text(b.dir);
    });
    table_.entries.reserve(files_.size());
    table_.names.reserve(files_.size(), names_.size());
    for (const File& file : files_) {
        table_.names.add(file.dir, name_of(file), static_cast<std::uint32_t>(table_.entries.size()));
        table_.entries.push_back(file.told);
    }
    return std::move(table_);
}

}  // namespace fs

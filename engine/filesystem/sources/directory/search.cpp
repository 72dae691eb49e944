#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

#include <engine/filesystem/access/search.h>
#include <engine/filesystem/sources/directory.h>

#include "engine/filesystem/contract/name_list.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/sources/directory/state.h"

namespace {

using fs::FileTable;

// Files in the order of the buckets, and within a bucket in that of insertion.
class InBucketOrder {
public:
    explicit InBucketOrder(const FileTable& table) : table_(table) {}
    /// False when memory cannot be had.
    [[nodiscard]] bool add(std::uint32_t file) {
        return keys_.push(std::uint64_t{FileTable::bucket(table_.name(file))} << 32 | table_.order(file));
    }
    void sort() { std::sort(keys_.begin(), keys_.end()); }
    std::size_t size() const { return keys_.size(); }
    std::uint32_t operator[](std::size_t index) const { return table_.at(static_cast<std::uint32_t>(keys_[index])); }

private:
    const FileTable& table_;
    fs::PodArray<std::uint64_t> keys_;
};

// Whether files of a directory are wanted, asked once for each run of files of one directory.
template <class Wanted>
class DirectoryFilter {
public:
    DirectoryFilter(const FileTable& table, Wanted wanted) : table_(table), wanted_(wanted) {}
    bool operator()(std::uint32_t file) {
        const std::uint32_t dir = table_.dir_number(file);
        if (dir != last_dir_) {
            last_dir_ = dir;
            last_answer_ = wanted_(table_.dir(file));
        }
        return last_answer_;
    }

private:
    const FileTable& table_;
    Wanted wanted_;
    std::uint32_t last_dir_ = FileTable::none;
    bool last_answer_ = false;
};

template <class Wanted>
bool collect(const FileTable& table, Wanted&& wanted, InBucketOrder& out) {
    for (std::uint32_t file = table.first(); file != FileTable::none; file = table.next(file)) {
        if (wanted(file) && !out.add(file)) return false;
    }
    out.sort();
    return true;
}

// A node whose name stands in a block of the size of every path buffer; left empty when the name does not fit.
FS_NAME* new_roomy_name(std::string_view dir, std::string_view name, FS_NAME* next) {
    char* text = static_cast<char*>(std::malloc(fs::path_capacity));
    auto* node = static_cast<FS_NAME*>(std::malloc(sizeof(FS_NAME)));
    if (!text || !node) {
        std::free(text);
        std::free(node);
        return nullptr;
    }
    const bool fits = dir.size() + name.size() < fs::path_capacity;
    if (fits) {
        dir.copy(text, dir.size());
        name.copy(text + dir.size(), name.size());
    }
    text[fits ? dir.size() + name.size() : 0] = '\0';
    node->name = text;
    node->next = next;
    return node;
}

// Puts each file at the front of a list, and tells the search callback.
template <class MakeNode>
FS_NAME* list_of(const FileTable& table, const InBucketOrder& files, MakeNode&& make_node) {
    const fs::search_callback callback = fs::get_search_callback();
    FS_NAME* head = nullptr;
    for (std::size_t i = 0; i < files.size(); ++i) {
        const std::string_view dir = table.dir(files[i]);
        const std::string_view name = table.name(files[i]);
        FS_NAME* node = make_node(dir, name, head);
        if (!node) {
            fs::free_names(head);
            fs::set_error(EFSError::OUT_OF_MEMORY, "", "There is no memory for the names that were found.");
            return nullptr;
        }
        head = node;
        if (callback) callback(std::string(dir).c_str(), std::string(name).c_str());
    }
    return head;
}

bool has_extension(std::string_view name, const char* ext) {
    if (!ext) return true;
    const std::size_t dot = name.rfind('.');
    return (dot == std::string_view::npos ? std::string_view() : name.substr(dot)) == ext;
}

void add_line(ztl::vector<fs::string>& lines, int index, const char* root, const FileTable& table, std::uint32_t file) {
    fs::string line = std::to_string(index) + ". " + root;
    line.append(table.dir(file)).append(table.name(file));
    lines.push_back(std::move(line));
}

}  // namespace

FS_NAME* CWin32_dir::get_file_list(const char* dir, const char* mask, bool flag) {
    const FileTable& table = *state_->table;
    DirectoryFilter in_dir(table, [&](std::string_view held) { return fs::directory_answers(held, dir, flag); });
    InBucketOrder files(table);
    const auto wanted = [&](std::uint32_t file) { return in_dir(file) && fs::name_matches(table.name(file), mask); };
    if (!collect(table, wanted, files)) return nullptr;
    return list_of(table, files, fs::new_name);
}

FS_NAME* CWin32_dir::search_substring(const char* text) {
    if (!text || *text == '\0') return nullptr;
    const FileTable& table = *state_->table;
    DirectoryFilter contains(table, [&](std::string_view held) {
        return held.substr(0, held.size() - (held.empty() ? 0 : 1)).find(text) != std::string_view::npos;
    });
    InBucketOrder files(table);
    if (!collect(table, contains, files)) return nullptr;
    return list_of(table, files, new_roomy_name);
}

void CWin32_dir::dump(ztl::vector<fs::string>& lines, const char* ext) {
    // Each file of a name is told with all later ones, so the lines grow with the square of their number; a tree made to
    // exhaust memory that way stops here.
    constexpr std::size_t line_limit = 1'000'000;
    const FileTable& table = *state_->table;
    InBucketOrder files(table);
    const auto wanted = [&](std::uint32_t file) {
        return table.next_of_name(file) != FileTable::none && has_extension(table.name(file), ext);
    };
    if (!collect(table, wanted, files)) return;
    const std::size_t end = lines.size() + line_limit;
    for (std::size_t i = 0; i < files.size(); ++i) {
        int index = 0;
        for (std::uint32_t file = files[i]; file != FileTable::none; file = table.next_of_name(file)) {
            if (lines.size() >= end) return;
            add_line(lines, index++, root_dir(), table, file);
        }
    }
}

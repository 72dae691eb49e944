// Where a line goes: the filter mode first, then fixed rules for the codes that everybody uses, then the table.
#include <algorithm>
#include <new>

#include <engine/filesystem/log.h>

#include "engine/filesystem/log/change_count.h"
#include "engine/filesystem/log/levels.h"
#include "engine/filesystem/log/sinks.h"

namespace {

using logging::code;
using logging::state;

struct Entry {
    std::atomic<std::uint32_t> mask, value, action;
};

/// The table grows block by block. None is ever given back, since a reader may be walking it; clearing the table leaves
/// them for the next entries.
constexpr std::uint32_t block_size = 16;
struct Block {
    Entry entries[block_size];
    std::atomic<Block*> next{nullptr};
};

struct FilterTable {
    logging::ChangeCount changes;
    std::atomic<std::uint32_t> count{0};
    Block first;
};
constinit FilterTable table;

/// Calls `use` for the entries in their order, until it answers true.
template <class Use>
void for_each_entry(Use use) {
    std::uint32_t left = table.count;
    for (Block* block = &table.first; left > 0; block = block->next) {
        for (std::uint32_t i = 0; i < block_size && left > 0; ++i, --left) {
            if (use(block->entries[i])) return;
        }
    }
}

/// The actions of all entries that match, joined.
std::uint32_t actions_by_table(std::uint32_t id) {
    return table.changes.read([id] {
        std::uint32_t joined = 0;
        for_each_entry([&](const Entry& entry) {
            if ((id & entry.mask) == entry.value) joined |= entry.action;
            return false;
        });
        return joined;
    });
}

// The codes that everybody uses have fixed rules; the table is not asked for them.
constexpr std::uint32_t always_both[] = {code("INFO"), code("ERRR"), code("FATL"), code("EXIT"), code("DXGI")};
constexpr std::uint32_t file_when_verbose[] = {code("WARN"), code("DEBG")};
constexpr std::uint32_t console_anyway[] = {
    code("VERB"), code("VER0"), code("VER1"), code("VER2"), code("VER3"), code("VER4"), code("VER5"), code("VER6"),
    code("VER7"), code("VER8"), code("VER9"), code("VERE"), code("SESE"), code("SESI"), code("SESL"), code("SESW")};

template <std::size_t count>
bool is_one_of(std::uint32_t id, const std::uint32_t (&ids)[count]) {
    return std::find(ids, ids + count, id) != ids + count;
}

std::uint32_t action_by_rules(std::uint32_t id) {
    if (is_one_of(id, always_both)) return CLFilterAction::BOTH;
    if (is_one_of(id, file_when_verbose)) {
        return state.verbose.load(std::memory_order_relaxed) ? CLFilterAction::BOTH : CLFilterAction::CONSOLE;
    }
    const bool on_console = is_one_of(id, console_anyway);
    return (on_console ? CLFilterAction::CONSOLE : CLFilterAction::NOWHERE) | actions_by_table(id);
}

void count_message(std::uint32_t id) {
    const bool is_error = id == code("ERRR") || id == code("EXIT") || id == code("FATL");
    if (is_error) state.errors.fetch_add(1, std::memory_order_relaxed);
    if (id == code("WARN")) state.warnings.fetch_add(1, std::memory_order_relaxed);
}

/// Value and mask of up to four characters, packed like a multi-character constant.
struct Pattern {
    std::uint32_t value = 0;
    std::uint32_t mask = 0;
};

Pattern parse_pattern(const char* text) {
    Pattern pattern;
    for (int i = 0; i < 4 && text[i] != '\0'; ++i) {
        if (text[i] == '?') continue;
        const int shift = 8 * (3 - i);
        pattern.value |= static_cast<std::uint32_t>(static_cast<unsigned char>(text[i])) << shift;
        pattern.mask |= 0xFFu << shift;
    }
    // Shorter patterns stand at the low end, as 'VE' does; on purpose a wildcard at the end is shifted out too.
    while (pattern.mask != 0 && (pattern.mask & 0xFF) == 0) {
        pattern.value >>= 8;
        pattern.mask >>= 8;
    }
    return pattern;
}

}  // namespace

CLFilterAction::ENUM _CLFilter(std::uint32_t id) {
    count_message(id);
    const CLFilterMode::ENUM mode = _CLFilterGetMode();
    if (mode == CLFilterMode::ALL_CONSOLE) return CLFilterAction::CONSOLE;
    if (mode == CLFilterMode::ALL_LOGFILE) return CLFilterAction::LOGFILE;
    if (mode == CLFilterMode::ALL_NOWHERE) return CLFilterAction::NOWHERE;
    logging::ensure_started();
    const auto action = static_cast<CLFilterAction::ENUM>(action_by_rules(id));
    return mode == CLFilterMode::NO_LOGFILE ? action & ~CLFilterAction::LOGFILE : action;
}

CLFilterMode::ENUM _CLFilterGetMode() { return state.filter_mode.load(std::memory_order_relaxed); }
void _CLFilterSetMode(CLFilterMode::ENUM mode) { state.filter_mode.store(mode, std::memory_order_relaxed); }

void _CLFilterClear() {
    table.changes.change([] { table.count = 0; });
}

void _CLFilterAdd(std::uint32_t value, std::uint32_t mask, CLFilterAction::ENUM action) {
    table.changes.change([&] {
        Block* block = &table.first;
        std::uint32_t at = table.count;
        for (; at >= block_size; at -= block_size) {
            if (block->next == nullptr) block->next = new (std::nothrow) Block;
            block = block->next;
            if (block == nullptr) return;  // no memory: the entry is passed over
        }
        Entry& entry = block->entries[at];
        entry.mask = mask;
        entry.value = value;
        entry.action = action;
        ++table.count;
    });
}

void _CLFilterAdd(const char* pattern, CLFilterAction::ENUM action) {
    if (pattern == nullptr) return;
    const Pattern parsed = parse_pattern(pattern);
    if (parsed.value != 0) _CLFilterAdd(parsed.value, parsed.mask, action);
}

CLFilterAction::ENUM _CLFilterUpdate(std::uint32_t value, CLFilterAction::ENUM action) {
    return table.changes.change([&] {
        std::uint32_t before = CLFilterAction::NOWHERE;
        for_each_entry([&](Entry& entry) {
            if (entry.value != value) return false;
            before = entry.action.exchange(action);
            return true;
        });
        return static_cast<CLFilterAction::ENUM>(before);
    });
}

Log::ELevel::TYPE _CLogLevelFromId(std::uint32_t id) {
    if (id == code("ERRR")) return Log::ELevel::ERRR;
    if (id == code("EXIT")) return Log::ELevel::FATL;
    if (id == code("INFO")) return Log::ELevel::INFO;
    if (id == code("LLOG")) return Log::ELevel::VERB;
    return id == code("WARN") ? Log::ELevel::WARN : Log::ELevel::DEBG;
}

ztl::string_base<char> _CLogCategoryFromLabel(std::uint32_t id) {
    ztl::string_base<char> label(4, '_');
    for (int i = 0; i < 4; ++i) {
        const char c = static_cast<char>(id >> 8 * (3 - i) & 0xFF);
        if (logging::is_label_character(c)) label[static_cast<std::size_t>(i)] = c;
    }
    return label;
}

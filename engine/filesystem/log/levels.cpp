// Which messages are emitted, and where they go. Every log statement of the program asks GetCategoryLevel first, so it
// takes no lock and never waits. What is emitted goes where the filter says: its mode first, then fixed rules for the
// codes that everybody uses, then the table.
#include "engine/filesystem/log/levels.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <new>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

#include "engine/filesystem/log/message.h"
#include "engine/filesystem/log/sinks.h"
#include "engine/platform/threads.h"

namespace Log {

namespace {

constexpr MessageSource source{"Logger", "engine/filesystem/logsettings"};
constexpr int refusal_line = 56;  // known to people who filter by it
constexpr std::uint32_t most_categories = 8;

constinit platform::Mutex change_lock;  // one change of settings at a time, of whichever object

}  // namespace

const std::uint64_t Settings::MAX_CATEGORIES_COUNT = most_categories;
const std::uint64_t Settings::MAX_CATEGORY_NAME_LEN = logging::category_name_length;

/// Readers run beside one changer without waiting for it: who met a change reads again.
struct Settings::State {
    struct Category {
        std::atomic<std::uint64_t> name[2] = {};
        std::atomic<std::uint32_t> level{0};

        void assign(std::uint64_t first, std::uint64_t second, std::uint32_t new_level) {
            name[0] = first;
            name[1] = second;
            level = new_level;
        }
        void assign(const Category& other) { assign(other.name[0], other.name[1], other.level); }
    };

    template <class Change>
    void change(Change change) {
        const platform::LockGuard guard(change_lock);
        ++changes;
        change();
        ++changes;
    }

    /// The index of the category; `count` when it has no level of its own.
    std::uint32_t find(const logging::CategoryKey& key) const {
        std::uint32_t at = 0;
        while (at < count && (categories[at].name[0] != key.words[0] || categories[at].name[1] != key.words[1])) ++at;
        return at;
    }

    std::atomic<std::uint32_t> changes{0};  // odd while a change is under way
    std::atomic<std::uint32_t> level{ELevel::INFO};
    std::atomic<std::uint32_t> count{0};
    std::atomic<bool> message_source{false};
    Category categories[most_categories];
};

Settings& Settings::Instance() {
    static Settings settings;
    return settings;
}

Settings::State& Settings::state() { return *std::launder(reinterpret_cast<State*>(storage_)); }
const Settings::State& Settings::state() const { return *std::launder(reinterpret_cast<const State*>(storage_)); }

Settings::Settings() {
    static_assert(sizeof(State) <= sizeof(storage_) && std::is_trivially_destructible_v<State>);
    new (storage_) State;
}
Settings::Settings(const Settings& other) : Settings() { copy(other); }
Settings& Settings::operator=(const Settings& other) {
    if (this != &other) copy(other);
    return *this;
}
Settings& Settings::operator=(Settings&& other) noexcept { return *this = static_cast<const Settings&>(other); }

void Settings::copy(const Settings& other) {
    State& to = state();
    const State& from = other.state();
    to.change([&] {
        to.level = from.level.load();
        to.message_source = from.message_source.load();
        for (std::uint32_t i = 0; i < most_categories; ++i) to.categories[i].assign(from.categories[i]);
        to.count = from.count.load();
    });
}

ELevel::TYPE Settings::GetLevel() const { return static_cast<ELevel::TYPE>(state().level.load()); }
void Settings::SetLevel(ELevel::TYPE level) { state().level = level; }

bool Settings::IsMessageSource() const { return state().message_source; }
void Settings::SetMessageSource(bool on) { state().message_source = on; }

ELevel::TYPE Settings::GetCategoryLevel(const char* name) const {
    const State& settings = state();
    if (settings.count == 0) return GetLevel();
    const logging::CategoryKey key = logging::category_key(name);
    // A change takes nanoseconds. Whoever meets one this often is being starved, and goes on with the last answer.
    for (int attempts_left = 64;; --attempts_left) {
        const std::uint32_t before = settings.changes;
        const std::uint32_t at = settings.find(key);
        const bool has_own = at < most_categories && at < settings.count;
        const std::uint32_t level = has_own ? settings.categories[at].level : settings.level;
        const bool is_whole = (before & 1) == 0 && settings.changes == before;
        if (is_whole || attempts_left == 0) return static_cast<ELevel::TYPE>(level);
    }
}

void Settings::SetCategoryLevel(const char* name, ELevel::TYPE level) {
    State& settings = state();
    const logging::CategoryKey key = logging::category_key(name);
    bool is_refused = false;
    settings.change([&] {
        const std::uint32_t count = settings.count;
        const std::uint32_t at = settings.find(key);
        is_refused = level != ELevel::NONE && at == most_categories;
        if (is_refused || (level == ELevel::NONE && at == count)) return;
        if (level == ELevel::NONE) {
            settings.categories[at].assign(settings.categories[count - 1]);
            settings.count = count - 1;
        } else {
            settings.categories[at].assign(key.words[0], key.words[1], level);
            settings.count = std::max(count, at + 1);
        }
    });
    if (!is_refused) return;
    log_message(source, ELevel::WARN, refusal_line,
                "Maximal explicit logging levels exceeded maximal count = %d\n"
                "Logging level for category '%s' not changed.\n",
                static_cast<int>(most_categories), name == nullptr ? "" : name);
}

}  // namespace Log

namespace {

using logging::code;
using logging::state;

struct FilterEntry {
    std::uint32_t mask, value;
    std::uint32_t action;  // may be changed under a reader
};

/// Messages walk it without a lock, in forked children too. So what is written stays, also behind a larger table that took
/// its place.
struct FilterTable {
    std::unique_ptr<FilterTable> before;
    std::vector<FilterEntry> entries;           // never more than was reserved for
    std::atomic<std::size_t> begin{0}, end{0};  // what was added and not cleared since
};

constinit platform::Mutex filter_lock;  // of those who change it
constinit std::atomic<FilterTable*> filter_table{nullptr};

/// What was added and not cleared since. The end is read first, so that what was cleared is not seen with what came later.
std::span<FilterEntry> filter_entries() {
    FilterTable* const table = filter_table;
    if (table == nullptr) return {};
    const std::size_t end = table->end;
    const std::size_t begin = std::min<std::size_t>(table->begin, end);
    return {table->entries.data() + begin, end - begin};
}

/// The table with room for one entry more. Throws std::bad_alloc.
FilterTable& table_with_room() ENGINE_REQUIRES(filter_lock) {
    constexpr std::size_t first_room = 16;
    FilterTable* const table = filter_table;
    if (table != nullptr && table->entries.size() < table->entries.capacity()) return *table;
    auto larger = std::make_unique<FilterTable>();
    larger->entries.reserve(table != nullptr ? 2 * table->entries.size() : first_room);
    const std::span<FilterEntry> kept = filter_entries();
    larger->entries.assign(kept.begin(), kept.end());
    larger->end = larger->entries.size();
    larger->before.reset(table);
    filter_table = larger.get();
    return *larger.release();
}

std::uint32_t actions_by_table(std::uint32_t id) {
    std::uint32_t joined = CLFilterAction::NOWHERE;
    for (FilterEntry& entry : filter_entries()) {
        if ((id & entry.mask) == entry.value) joined |= std::atomic_ref(entry.action).load(std::memory_order_relaxed);
    }
    return joined;
}

// The codes that everybody uses have fixed rules; the table is not asked for them.
constexpr std::uint32_t always_both[] = {code("INFO"), code("ERRR"), code("FATL"), code("EXIT"), code("DXGI")};
constexpr std::uint32_t file_when_verbose[] = {code("WARN"), code("DEBG")};
constexpr std::uint32_t console_anyway[] = {
    code("VERB"), code("VER0"), code("VER1"), code("VER2"), code("VER3"), code("VER4"), code("VER5"), code("VER6"),
    code("VER7"), code("VER8"), code("VER9"), code("VERE"), code("SESE"), code("SESI"), code("SESL"), code("SESW")};

bool is_one_of(std::uint32_t id, std::span<const std::uint32_t> ids) { return std::ranges::find(ids, id) != ids.end(); }

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
    const platform::LockGuard guard(filter_lock);
    if (FilterTable* const table = filter_table) table->begin = table->entries.size();
}

void _CLFilterAdd(std::uint32_t value, std::uint32_t mask, CLFilterAction::ENUM action) try {
    const platform::LockGuard guard(filter_lock);
    FilterTable& table = table_with_room();
    table.entries.push_back({.mask = mask, .value = value, .action = action});
    table.end = table.entries.size();
} catch (const std::bad_alloc&) {  // the entry is passed over
}

void _CLFilterAdd(const char* pattern, CLFilterAction::ENUM action) {
    // Up to four characters, packed like a multi-character constant.
    std::uint32_t value = 0;
    std::uint32_t mask = 0;
    for (int i = 0; pattern != nullptr && i < 4 && pattern[i] != '\0'; ++i) {
        if (pattern[i] == '?') continue;
        const int shift = 8 * (3 - i);
        value |= static_cast<std::uint32_t>(static_cast<unsigned char>(pattern[i])) << shift;
        mask |= 0xFFu << shift;
    }
    if (value == 0) return;
    // Shorter patterns stand at the low end, as 'VE' does; on purpose a wildcard at the end is shifted out too.
    for (; (mask & 0xFF) == 0; mask >>= 8) value >>= 8;
    _CLFilterAdd(value, mask, action);
}

CLFilterAction::ENUM _CLFilterUpdate(std::uint32_t value, CLFilterAction::ENUM action) {
    const platform::LockGuard guard(filter_lock);
    const std::span<FilterEntry> entries = filter_entries();
    const auto entry = std::ranges::find(entries, value, &FilterEntry::value);
    if (entry == entries.end()) return CLFilterAction::NOWHERE;
    return static_cast<CLFilterAction::ENUM>(std::atomic_ref(entry->action).exchange(action));
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

// Which messages are emitted. Every log statement of the program asks GetCategoryLevel first, so it takes no lock and
// never waits.
#include <new>
#include <type_traits>

#include <engine/filesystem/log.h>

#include "engine/filesystem/log/change_count.h"
#include "engine/filesystem/log/levels.h"
#include "engine/filesystem/log/message.h"

namespace Log {

namespace {

constexpr MessageSource source{"Logger", "engine/filesystem/logsettings"};
constexpr int refusal_line = 56;  // known to people who filter by it
constexpr std::uint32_t most_categories = 8;

}  // namespace

const std::uint64_t Settings::MAX_CATEGORIES_COUNT = most_categories;
const std::uint64_t Settings::MAX_CATEGORY_NAME_LEN = logging::category_name_length;

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

    /// The index of the category; `count` when it has no level of its own.
    std::uint32_t find(const logging::CategoryKey& key) const {
        std::uint32_t at = 0;
        while (at < count && (categories[at].name[0] != key.words[0] || categories[at].name[1] != key.words[1])) ++at;
        return at;
    }

    logging::ChangeCount changes;
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
    to.changes.change([&] {
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
    return settings.changes.read([&] {
        const std::uint32_t at = settings.find(key);
        const auto& level =
            at < most_categories && at < settings.count ? settings.categories[at].level : settings.level;
        return static_cast<ELevel::TYPE>(level.load());
    });
}

void Settings::SetCategoryLevel(const char* name, ELevel::TYPE level) {
    State& settings = state();
    const logging::CategoryKey key = logging::category_key(name);
    const bool is_refused = settings.changes.change([&] {
        const std::uint32_t count = settings.count;
        const std::uint32_t at = settings.find(key);
        if (level == ELevel::NONE) {
            if (at == count) return false;
            settings.categories[at].assign(settings.categories[count - 1]);
            settings.count = count - 1;
            return false;
        }
        if (at == most_categories) return true;
        settings.categories[at].assign(key.words[0], key.words[1], level);
        if (at == count) settings.count = count + 1;
        return false;
    });
    if (!is_refused) return;
    log_message(source, ELevel::WARN, refusal_line,
                "Maximal explicit logging levels exceeded maximal count = %d\n"
                "Logging level for category '%s' not changed.\n",
                static_cast<int>(most_categories), name == nullptr ? "" : name);
}

}  // namespace Log

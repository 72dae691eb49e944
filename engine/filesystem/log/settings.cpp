// Which messages are emitted. Every log statement of the program asks GetCategoryLevel first, so it takes no lock and
// never waits: the entries are atomic words, and a reader that met a change reads again, a bounded number of times.
#include <engine/filesystem/log.h>

#include <mutex>

#include "engine/filesystem/log/category.h"
#include "engine/platform/never_destroyed.h"

namespace Log {

namespace {

// A change takes nanoseconds. Whoever meets one this often is being starved, and goes on with what was read last.
constexpr int read_attempts = 64;

/// One changer at a time, of any Settings object.
std::mutex& change_lock() {
    static platform::NeverDestroyed<std::mutex> lock;
    return lock.value;
}

}  // namespace

const std::uint64_t Settings::MAX_CATEGORIES_COUNT = 8;
const std::uint64_t Settings::MAX_CATEGORY_NAME_LEN = logging::category_name_length;

struct Settings::Lookup {
    logging::CategoryKey key;

    bool matches(const Category& category) const {
        return category.name[0].load(std::memory_order_acquire) == key.words[0] &&
               category.name[1].load(std::memory_order_acquire) == key.words[1];
    }
    /// The index of the entry, or `count`.
    std::uint32_t find(const Category* categories, std::uint32_t count) const {
        std::uint32_t at = 0;
        while (at < count && !matches(categories[at])) ++at;
        return at;
    }
    static void assign(Category& to, std::uint64_t first, std::uint64_t second, std::uint32_t level) {
        to.name[0].store(first, std::memory_order_release);
        to.name[1].store(second, std::memory_order_release);
        to.level.store(level, std::memory_order_release);
    }
    static void assign(Category& to, const Category& from) {
        assign(to, from.name[0].load(std::memory_order_acquire), from.name[1].load(std::memory_order_acquire),
               from.level.load(std::memory_order_acquire));
    }
};

Settings& Settings::Instance() {
    static Settings settings;
    return settings;
}

Settings::Settings() = default;
Settings::Settings(const Settings& other) { copy(other); }
Settings& Settings::operator=(const Settings& other) {
    if (this != &other) copy(other);
    return *this;
}
Settings& Settings::operator=(Settings&& other) noexcept {
    if (this != &other) copy(other);
    return *this;
}

void Settings::copy(const Settings& other) {
    const std::lock_guard guard(change_lock());
    changes_.fetch_add(1, std::memory_order_acq_rel);
    level_.store(other.level_.load(std::memory_order_relaxed), std::memory_order_relaxed);
    message_source_.store(other.message_source_.load(std::memory_order_relaxed), std::memory_order_relaxed);
    for (int i = 0; i < 8; ++i) Lookup::assign(categories_[i], other.categories_[i]);
    count_.store(other.count_.load(std::memory_order_relaxed), std::memory_order_release);
    changes_.fetch_add(1, std::memory_order_release);
}

ELevel::TYPE Settings::GetLevel() const { return static_cast<ELevel::TYPE>(level_.load(std::memory_order_relaxed)); }
void Settings::SetLevel(ELevel::TYPE level) { level_.store(level, std::memory_order_relaxed); }

bool Settings::IsMessageSource() const { return message_source_.load(std::memory_order_relaxed); }
void Settings::SetMessageSource(bool on) { message_source_.store(on, std::memory_order_relaxed); }

ELevel::TYPE Settings::GetCategoryLevel(const char* name) const {
    if (count_.load(std::memory_order_acquire) == 0) return GetLevel();
    const Lookup wanted{logging::category_key(name)};
    std::uint32_t level = 0;
    for (int attempt = 0; attempt < read_attempts; ++attempt) {
        const std::uint32_t before = changes_.load(std::memory_order_acquire);
        const std::uint32_t count = count_.load(std::memory_order_acquire);
        const std::uint32_t at = wanted.find(categories_, count);
        level =
            at < count ? categories_[at].level.load(std::memory_order_acquire) : level_.load(std::memory_order_acquire);
        if ((before & 1) == 0 && changes_.load(std::memory_order_relaxed) == before) break;
    }
    return static_cast<ELevel::TYPE>(level);
}

bool Settings::change_category(const char* name, ELevel::TYPE level) {
    const std::lock_guard guard(change_lock());
    changes_.fetch_add(1, std::memory_order_acq_rel);
    const bool is_changed = change_locked(Lookup{logging::category_key(name)}, level);
    changes_.fetch_add(1, std::memory_order_release);
    return is_changed;
}

/// False when there is no room for one more category.
bool Settings::change_locked(const Lookup& wanted, ELevel::TYPE level) {
    const std::uint32_t count = count_.load(std::memory_order_relaxed);
    const std::uint32_t at = wanted.find(categories_, count);
    if (at < count && level != ELevel::NONE) {
        categories_[at].level.store(level, std::memory_order_release);
    } else if (at < count) {
        Lookup::assign(categories_[at], categories_[count - 1]);
        count_.store(count - 1, std::memory_order_release);
    } else if (level != ELevel::NONE) {
        if (count >= MAX_CATEGORIES_COUNT) return false;
        Lookup::assign(categories_[count], wanted.key.words[0], wanted.key.words[1], level);
        count_.store(count + 1, std::memory_order_release);
    }
    return true;
}

}  // namespace Log

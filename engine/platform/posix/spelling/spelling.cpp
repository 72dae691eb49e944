#include "engine/platform/posix/spelling/spelling.h"

#include <string.h>  // strnlen

#include <array>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <vector>

// A path that does not exist as given is resolved in two steps: its directory, then its last name in that directory's
// folded listing. The directory mostly exists as given, which one look at it tells. Where it does not, its components
// are resolved from the deepest part that exists; the outcome is remembered together with the stamps of the listings
// that decided it (the witnesses), so that the next question below the same directory costs one look for each of
// those, however deep the path is.

namespace platform {
namespace {

struct Witness {
    std::size_t end = 0;  // the directory is the resolved path's first `end` bytes
    DirectoryStamp stamp;
};

struct Memory {
    std::string asked;      // a directory as a caller spelled it; empty: nothing remembered
    std::string resolved;   // the same in the disk's spelling
    std::size_t known = 0;  // how much of it exists
    std::vector<Witness> witnesses;
};

constexpr std::size_t memory_slots = 1024;
struct MemoryHolder {
    std::mutex lock;                                    // guards the rest; never held while the disk is asked
    std::array<Memory, memory_slots>* slots = nullptr;  // made on first use and never freed
};
constinit MemoryHolder memories;

std::size_t slot_of(const char* path, std::size_t length) {
    std::uint64_t hash = length;
    for (std::size_t i = 0; i < length; ++i) hash = (hash ^ static_cast<unsigned char>(path[i])) * 0x100000001B3u;
    return (hash ^ hash >> 32) % memory_slots;
}

/// The first `length` bytes of a path as the path of a directory.
struct Prefix {
    char text[path_buffer_size];
    Prefix(const char* path, std::size_t length) {
        if (length == 0)
            text[length++] = '.';
        else
            std::memcpy(text, path, length);
        text[length] = '\0';
    }
};

std::size_t start_of_last(const char* path, std::size_t length) {
    while (length > 0 && path[length - 1] != '/') --length;
    return length;
}

/// Where the component before the slashes that end at `end` begins.
std::size_t start_of_previous(const char* path, std::size_t end) {
    while (end > 0 && path[end - 1] == '/') --end;
    return start_of_last(path, end);
}

bool is_dots(const char* name, std::size_t length) {
    return (length == 1 && name[0] == '.') || (length == 2 && name[0] == '.' && name[1] == '.');
}

/// Spells the components of [begin, end), which ends after a slash, from the left. Answers how much of it exists.
std::size_t spell_onwards(char* path, std::size_t begin, std::size_t end, std::vector<Witness>& witnesses) {
    while (begin < end) {
        std::size_t stop = begin;
        while (path[stop] != '/') ++stop;
        if (stop > begin && !is_dots(path + begin, stop - begin)) {
            Witness witness;
            witness.end = begin;
            const bool held = find_spelling(Prefix(path, begin).text, witness.stamp, path + begin, stop - begin);
            witnesses.push_back(witness);
            if (!held) return begin;
        }
        begin = stop + 1;
    }
    return end;
}

/// Fetches what is remembered of the directory [0, length) into `path`, if its witnesses still say the same.
bool recall(char* path, std::size_t length, std::size_t& known) {
    Prefix resolved(path, length);
    std::vector<Witness> witnesses;
    {
        const std::lock_guard hold(memories.lock);
        if (memories.slots == nullptr) return false;
        const Memory& memory = (*memories.slots)[slot_of(path, length)];
        if (memory.asked.size() != length || std::memcmp(memory.asked.data(), path, length) != 0) return false;
        std::memcpy(resolved.text, memory.resolved.data(), length);
        witnesses = memory.witnesses;
        known = memory.known;
    }
    for (const Witness& witness : witnesses) {
        DirectoryStamp now;
        if (!stamp_directory(Prefix(resolved.text, witness.end).text, now) || !now.same(witness.stamp)) return false;
    }
    std::memcpy(path, resolved.text, length);
    return true;
}

void remember(const std::string& asked, const char* resolved, std::size_t known, std::vector<Witness> witnesses) {
    for (const Witness& witness : witnesses) {
        if (!witness.stamp.trusted) return;
    }
    const std::lock_guard hold(memories.lock);
    if (memories.slots == nullptr) memories.slots = new std::array<Memory, memory_slots>;
    Memory& memory = (*memories.slots)[slot_of(asked.data(), asked.size())];
    memory.asked.clear();  // forgotten, should memory be short below
    memory.resolved.assign(resolved, asked.size());
    memory.asked = asked;
    memory.known = known;
    memory.witnesses = std::move(witnesses);
}

/// Spells the directory [0, length), which is empty or ends after a slash. Answers how much of it exists; `stamp` is
/// filled if that is all, as given.
std::size_t spell_directory(char* path, std::size_t length, DirectoryStamp& stamp) {
    std::size_t known = 0;
    if (length > 0 && recall(path, length, known)) return known;
    std::size_t exists = length;
    while (exists > 0 && !stamp_directory(Prefix(path, exists).text, stamp)) exists = start_of_previous(path, exists);
    if (exists == length) return length;
    stamp = DirectoryStamp{};
    const std::string asked(path, length);
    std::vector<Witness> witnesses;
    known = spell_onwards(path, exists, length, witnesses);
    remember(asked, path, known, std::move(witnesses));
    return known;
}

}  // namespace

Spelling spell_path(char* path, DirectoryStamp* directory) try {
    const std::size_t length = std::strlen(path);
    const std::size_t name = start_of_last(path, length);
    DirectoryStamp stamp;
    if (spell_directory(path, name, stamp) < name) return Spelling::MISSING;
    if (name == length || is_dots(path + name, length - name)) return Spelling::EXISTS;
    const bool held = find_spelling(Prefix(path, name).text, stamp, path + name, length - name);
    if (directory != nullptr) *directory = stamp;
    return held ? Spelling::EXISTS : Spelling::NEW;
} catch (const std::bad_alloc&) {
    return Spelling::MISSING;
}

bool check_path(const char* path) {
    if (path == nullptr || *path == '\0') return fail(Failure::INVALID_NAME);
    if (strnlen(path, path_buffer_size) > max_path_bytes) return fail(Failure::PATH_TOO_LONG);
    return true;
}

bool copy_path(const char* path, char (&out)[path_buffer_size]) {
    if (!check_path(path)) return false;
    std::size_t length = std::strlen(path);
    while (length > 1 && path[length - 1] == '/') --length;
    std::memcpy(out, path, length);
    out[length] = '\0';
    return true;
}

const char* last_component(const char* path) { return path + start_of_last(path, std::strlen(path)); }

DirectoryPath::DirectoryPath(const char* path) {
    const std::size_t length = start_of_last(path, std::strlen(path));
    if (length == 0) return;
    std::memcpy(text, path, length);
    text[length] = '\0';
}

}  // namespace platform

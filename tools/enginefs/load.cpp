// load: everything, or the names of a list, as a game would load it.

#include <algorithm>
#include <chrono>
#include <cstdlib>

#include "command.h"

namespace {

using std::chrono::duration;
using std::chrono::steady_clock;

constexpr std::size_t slowest_shown = 10;

struct Given {
    std::uint32_t workers = 0;
    std::string order;
    std::vector<std::string> urgent;
    std::vector<std::string> names;
};

/// One load of the batch, and what became of it.
struct Timed {
    std::string name;
    std::int32_t priority = EFSLoadPriority::NORMAL;
    std::uint64_t bytes = 0;
    SFsLoadTimes times{};
};

/// What became of all of them.
struct Sum {
    std::uint64_t failed = 0;
    std::uint64_t bytes = 0;
    double seconds = 0;
};

/// Gives the batch up when the last callback has run: what the callbacks write to must live until then.
struct EndBatch {
    void operator()(SFsLoadBatch* batch) const {
        batch->Cancel();
        all_told->Wait();
        batch->Release();
    }
    mt::CEvent* all_told;
};

/// What the list names, or the arguments, or all there is.
bool choose_names(const Given& given, std::vector<std::string>& names) {
    names = given.names;
    if (!given.order.empty() && !read_lines(given.order, names)) return false;
    if (!expand(names)) return false;
    if (given.order.empty() && names.empty()) names = list_files();
    return !names.empty() || fail("load", "there is nothing to load");
}

/// Until the last callback has run, which comes after the last load.
void wait_with_progress(const SFsLoadBatch& batch, mt::CEvent& all_told) {
    Progress progress("load", batch.Count(), false);
    std::size_t left = batch.Count();
    bool is_done = false;
    while (!is_done) {
        is_done = all_told.Wait(100);
        progress.add(left - batch.Left());
        left = batch.Left();
    }
}

/// What the loads of one priority waited until a worker took them.
struct Waits {
    std::uint64_t loads = 0;
    std::uint64_t total = 0;
    std::uint64_t longest = 0;
};

std::map<std::int32_t, Waits, std::greater<>> waits_by_priority(const std::vector<Timed>& timed) {
    std::map<std::int32_t, Waits, std::greater<>> all;
    for (const Timed& load : timed) {
        Waits& waits = all[load.priority];
        ++waits.loads;
        waits.total += load.times.waited;
        waits.longest = std::max(waits.longest, load.times.waited);
    }
    return all;
}

std::uint64_t time_of(const Timed& load) { return load.times.opening + load.times.reading + load.times.aside; }
double ms_of(std::uint64_t microseconds) { return static_cast<double>(microseconds) / 1000; }

std::vector<Timed> slowest_of(std::vector<Timed> timed) {
    const std::size_t count = std::min(slowest_shown, timed.size());
    std::ranges::partial_sort(timed, timed.begin() + static_cast<std::ptrdiff_t>(count), std::greater<>(), time_of);
    timed.resize(count);
    return timed;
}

/// What took most of the time.
std::string reason_of(const Timed& load) {
    const SFsLoadTimes& times = load.times;
    if (times.aside > times.opening && times.aside > times.reading) return "put aside for others or for room";
    if (times.opening > times.reading) return "finding and opening it";
    return "reading and decoding " + counted(load.bytes, "byte", "bytes");
}

void print_as_json(const std::vector<Timed>& timed, const Sum& sum) {
    Json waits = Json::array();
    for (const auto& [priority, its] : waits_by_priority(timed))
        waits.push_back({{"priority", priority},
                         {"loads", its.loads},
                         {"mean_ms", ms_of(its.total / its.loads)},
                         {"longest_ms", ms_of(its.longest)}});
    Json slowest = Json::array();
    for (const Timed& load : slowest_of(timed))
        slowest.push_back({{"name", load.name},
                           {"bytes", load.bytes},
                           {"ms", ms_of(time_of(load))},
                           {"reason", reason_of(load)},
                           {"waited_ms", ms_of(load.times.waited)},
                           {"opening_ms", ms_of(load.times.opening)},
                           {"reading_ms", ms_of(load.times.reading)},
                           {"aside_ms", ms_of(load.times.aside)}});
    print_json({{"files", timed.size()},
                {"failed", sum.failed},
                {"bytes", sum.bytes},
                {"seconds", sum.seconds},
                {"waits", waits},
                {"slowest", slowest}});
}

void print_as_text(const std::vector<Timed>& timed, const Sum& sum) {
    print(counted(timed.size(), "file", "files") + ", " + std::to_string(sum.failed) + " failed, " +
          std::to_string(sum.bytes) +
          formatted(" bytes in %.3f s, %.1f MB/s\n", sum.seconds, static_cast<double>(sum.bytes) / 1e6 / sum.seconds));
    for (const auto& [priority, its] : waits_by_priority(timed))
        print(formatted("waited for a worker at priority %d: %.3f ms on average, %.3f ms at most\n", priority,
                        ms_of(its.total / its.loads), ms_of(its.longest)));
    print("slowest once a worker had them:\n");
    for (const Timed& load : slowest_of(timed))
        print(formatted("%10.3f ms  ", ms_of(time_of(load))) + shown(load.name) + ": " + reason_of(load) + "\n");
}

/// All of `names`, those of `urgent` before the rest.
std::vector<Timed> loads_of(const std::vector<std::string>& names, const std::vector<std::string>& urgent) {
    std::vector<Timed> timed;
    timed.reserve(urgent.size() + names.size());
    for (const std::string& name : urgent) timed.push_back({.name = name, .priority = EFSLoadPriority::URGENT});
    for (const std::string& name : names) {
        if (std::ranges::find(urgent, name) == urgent.end()) timed.push_back({.name = name});
    }
    return timed;
}

/// The wishes point into `timed`. Only the time is wanted.
std::vector<SFsLoadWish> wishes_of(std::vector<Timed>& timed) {
    std::vector<SFsLoadWish> wishes;
    wishes.reserve(timed.size());
    const auto note_end = [](SFsLoad* ended, void* user) {
        auto& its = *static_cast<Timed*>(user);
        ended->Times(its.times);
        its.bytes = ended->Size();
        std::free(ended->Take());
    };
    for (Timed& load : timed)
        wishes.push_back({.path = load.name.c_str(), .priority = load.priority, .callback = note_end, .user = &load});
    return wishes;
}

bool load(const Given& given) {
    std::vector<std::string> names;
    if (!choose_names(given, names)) return false;
    if (!attempt("load", "the workers cannot be set",
                 [&] { return fs::set_load_settings({.workers = given.workers}); }))
        return false;
    std::vector<Timed> timed = loads_of(names, given.urgent);
    const std::vector<SFsLoadWish> wishes = wishes_of(timed);
    const auto start = steady_clock::now();
    static mt::CEvent all_told(true);  // a worker may still be inside when this one goes on
    all_told.Reset();
    const auto tell = [](SFsLoadBatch*, void* user) { static_cast<mt::CEvent*>(user)->Set(); };
    const std::unique_ptr<SFsLoadBatch, EndBatch> batch(fs::load_batch(wishes.data(), wishes.size(), tell, &all_told),
                                                        EndBatch{&all_told});
    if (batch == nullptr) return fail_with_last_error("load", "the loads cannot begin");
    wait_with_progress(*batch, all_told);
    Sum sum{.seconds = std::max(duration<double>(steady_clock::now() - start).count(), 1e-9)};
    for (std::size_t at = 0; at < timed.size(); ++at) {
        const SFsLoad& ended = *batch->At(at);
        if (ended.Result() != EFSRequestResult::SUCCESS) fail(timed[at].name, ended.Error().text), ++sum.failed;
        sum.bytes += timed[at].bytes;
    }
    (shows_json() ? print_as_json : print_as_text)(timed, sum);
    return sum.failed == 0;
}

}  // namespace

void add_load_command(Commands& commands) {
    const auto added = commands.add(
        "load", "Load every file, or those named, on workers as a game would, and show how long that takes", load);
    added->add_option("NAMES", added.given.names, "The files to load (default: everything)");
    add_option(added.app, "--workers N", added.given.workers,
               "How many workers decode (default: as many as the library takes)");
    add_option(added.app, "--order FILE", added.given.order,
               "Load the names of this list, in its order (see fs::record_access)");
    add_repeatable(added.app, "--urgent NAME", added.given.urgent, "A file that a frame waits for; repeatable");
    commands.add_json(added.app, "As a JSON object");
}

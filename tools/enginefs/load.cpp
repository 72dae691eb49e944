// load: everything, or the names of a list, as a game would load it.

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <engine/filesystem.h>

#include "commands.h"
#include "names.h"
#include "report.h"
#include "result.h"
#include "terminal.h"

namespace {

using std::chrono::duration;
using std::chrono::steady_clock;

constexpr std::size_t last_shown = 10;

struct Given {
    std::uint32_t workers = 0;
    std::string order;
    bool json = false;
    std::vector<std::string> names;
};

/// One load of the batch, and when it ended.
struct Timed {
    std::string name;
    steady_clock::time_point ended;
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

/// Says what failed; the bytes of the rest.
bool check_loads(const SFsLoadBatch& batch, const std::vector<Timed>& timed, std::uint64_t& bytes) {
    bool good = true;
    for (std::size_t at = 0; at < batch.Count(); ++at) {
        const SFsLoad& load = *batch.At(at);
        bytes += load.Size();
        if (load.Result() != EFSRequestResult::SUCCESS) good = fail(timed[at].name, load.Error().text);
    }
    return good;
}

void print_result(const Given& given, const SFsLoadBatch& batch, std::vector<Timed> timed, std::uint64_t bytes,
                  steady_clock::time_point start) {
    SFsLoadStatistics statistics;
    fs::get_load_statistics(statistics);
    const double seconds = duration<double>(steady_clock::now() - start).count();
    const double rate = static_cast<double>(bytes) / 1e6 / std::max(seconds, 1e-9);
    const std::size_t count = std::min(last_shown, timed.size());
    std::partial_sort(timed.begin(), timed.begin() + static_cast<std::ptrdiff_t>(count), timed.end(),
                      [](const Timed& a, const Timed& b) { return a.ended > b.ended; });
    timed.resize(count);
    const auto ms_of = [start](const Timed& load) { return duration<double, std::milli>(load.ended - start).count(); };
    if (given.json) {
        Json last = Json::array();
        for (const Timed& load : timed) last.push_back({{"name", load.name}, {"ms", ms_of(load)}});
        print_json({{"files", batch.Count()},
                    {"failed", statistics.failed},
                    {"bytes", bytes},
                    {"seconds", seconds},
                    {"longest_wait_us", statistics.longest_wait},
                    {"mean_wait_us", statistics.mean_wait},
                    {"last", last}});
        return;
    }
    print(counted(batch.Count(), "file", "files") + ", " + std::to_string(statistics.failed) + " failed, " +
          std::to_string(bytes) + formatted(" bytes in %.3f s, %.1f MB/s\n", seconds, rate));
    print(formatted("waited for a worker: %.3f ms on average, %.3f ms at most\n",
                    static_cast<double>(statistics.mean_wait) / 1000,
                    static_cast<double>(statistics.longest_wait) / 1000));
    print("came last:\n");
    for (const Timed& load : timed) print(formatted("%10.3f ms  ", ms_of(load)) + load.name + "\n");
}

bool load(const Given& given) {
    std::vector<std::string> names;
    if (!choose_names(given, names)) return false;
    if (!attempt("load", "the workers cannot be set",
                 [&] { return fs::set_load_settings({.workers = given.workers}); }))
        return false;
    std::vector<Timed> timed;
    timed.reserve(names.size());  // the wishes point into it
    std::vector<SFsLoadWish> wishes;
    for (const std::string& name : names) {
        timed.push_back({.name = name, .ended = {}});
        const auto note_end = [](SFsLoad* ended, void* user) {
            static_cast<Timed*>(user)->ended = steady_clock::now();
            std::free(ended->Take());  // only the time is wanted
        };
        wishes.push_back({.path = timed.back().name.c_str(), .callback = note_end, .user = &timed.back()});
    }
    const auto start = steady_clock::now();
    static mt::CEvent all_told(true);  // a worker may still be inside when this one goes on
    all_told.Reset();
    const auto tell = [](SFsLoadBatch*, void* user) { static_cast<mt::CEvent*>(user)->Set(); };
    const std::unique_ptr<SFsLoadBatch, EndBatch> batch(fs::load_batch(wishes.data(), wishes.size(), tell, &all_told),
                                                        EndBatch{&all_told});
    if (batch == nullptr) return fail_with_last_error("load", "the loads cannot begin");
    wait_with_progress(*batch, all_told);
    std::uint64_t bytes = 0;
    const bool good = check_loads(*batch, timed, bytes);
    print_result(given, *batch, timed, bytes, start);
    return good;
}

}  // namespace

void add_load_command(Commands& commands) {
    const auto added = commands.add(
        "load", "Load every file, or those named, on workers as a game would, and show how long that takes", load);
    added->add_option("NAMES", added.given.names, "The files to load (default: everything)");
    added
        ->add_option("--workers", added.given.workers,
                     "How many workers decode (default: as many as the library takes)")
        ->type_name("N");
    added->add_option("--order", added.given.order, "Load the names of this list, in its order (see fs::record_access)")
        ->type_name("FILE");
    added->add_flag("--json", added.given.json, "As a JSON object");
}

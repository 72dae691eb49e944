// watch: what changes in the sources, as it changes.

#include <chrono>
#include <thread>

#include "command.h"

namespace {

constexpr std::chrono::milliseconds between_polls{10};

struct Given {
    std::uint32_t quiet_ms = 50;
    std::size_t count = 0;  // 0: without an end
};

constexpr const char* kinds[] = {"created", "content", "removed", "lost"};  // by SFsChange::KIND
static_assert(std::size(kinds) == SFsChange::LOST + 1);

bool print_change(const SFsChange& change) {
    const char* const kind = kinds[change.kind];
    if (shows_json())
        return print_json({{"kind", kind},
                           {"name", change.name},
                           {"source", change.source},
                           {"winner_changed", change.winner_changed}},
                          /*indent*/ -1);
    const std::string what = change.kind == SFsChange::LOST ? change.source : change.name;
    const Color color = change.winner_changed ? Color::PLAIN : Color::SHADOWED;
    return print(formatted("%-7s  ", kind) + shown(what, color) + (change.winner_changed ? "\n" : " (shadowed)\n"));
}

/// Says what could not be looked at, once for as long as it stays so.
void tell_failure(bool is_whole, std::string& told) {
    const std::string reason = is_whole ? "" : fs::last_error().path + ": " + fs::last_error().text;
    if (!is_whole && reason != told) fail_with_last_error("watch", "something cannot be looked at");
    told = reason;
}

bool run_watch(const Given& given) {
    const Interruption interruption;
    if (!watch_sources()) return false;
    note("watch", "watching; Ctrl-C ends it");
    std::size_t left = given.count;
    std::string told;
    ztl::vector<SFsChange> changes;
    while (!Interruption::requested()) {
        tell_failure(fs::poll_changes(changes, given.quiet_ms), told);
        for (const SFsChange& change : changes) {
            if (!print_change(change)) return false;
            if (given.count != 0 && --left == 0) return true;
        }
        // Whoever reads the other end of a pipe wants each as it comes.
        if (!changes.empty() && !flush_output()) return false;
        std::this_thread::sleep_for(between_polls);
    }
    return true;
}

}  // namespace

void add_watch_command(Commands& commands) {
    const auto watch = commands.add("watch", "Print what changes in the sources, as it changes", run_watch);
    add_option(watch.app, "--quiet MS", watch.given.quiet_ms,
               "Wait until a name was not touched for so long (default: 50)");
    add_option(watch.app, "-n,--count N", watch.given.count, "End after so many changes");
    commands.add_json(watch.app, "Each as a JSON object in a line");
}

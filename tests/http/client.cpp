// Mounts the pack at a URL and holds the checksums of all entries against those of the same pack on the disk:
//
//   http_client URL CACHE PACK THREADS [OPTION=NUMBER]...      the threads take turns with the entries; 0: only mount
//
// Prints "N good" and, where entries failed, their number and the last reason; "wrong bytes" is the one thing that may
// never be seen. Status 1 when it does not mount.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <engine/filesystem.h>
#include <engine/filesystem_http.h>

namespace {

struct Counts {
    int good = 0, failed = 0, wrong = 0;
    std::string reason;
    std::mutex lock;
};

void check(const SFsPackEntry& entry, Counts& counts) {
    std::uint32_t crc = 0;
    fs::clear_error();
    const bool is_read = fs::calc_file_crc(entry.name.c_str(), crc);
    const std::lock_guard guard(counts.lock);
    ++(!is_read ? counts.failed : crc == entry.crc ? counts.good : counts.wrong);
    if (!is_read) counts.reason = fs::last_error().text;
}

bool set_option(fs::http::options& how, const std::string& text) {
    const std::pair<const char*, std::uint32_t*> known[] = {
        {"retries=", &how.retries}, {"stall=", &how.stall_timeout_ms}, {"longest=", &how.longest_wait_ms}};
    const auto number = static_cast<std::uint32_t>(std::strtoul(text.c_str() + text.find('=') + 1, nullptr, 10));
    for (const auto& [name, value] : known)
        if (text.starts_with(name)) return *value = number, true;
    return text.starts_with("first=") && (how.first_bytes = number, true);
}

int run(const char* url, const char* cache, const char* pack, unsigned threads, const fs::http::options& how) {
    ztl::vector<SFsPackEntry> entries;
    if (!fs::list_pack(pack, entries)) return 2;
    if (!fs::http::add_pack(url, cache, how)) {
        std::printf("%s (%u)\n", fs::last_error().text.c_str(), static_cast<unsigned>(fs::last_error().code));
        return 1;
    }
    Counts counts;
    std::atomic<std::size_t> next{0};
    const auto work = [&] {
        for (std::size_t at = next++; at < entries.size(); at = next++) check(entries[at], counts);
    };
    std::vector<std::thread> workers;
    for (unsigned started = 0; started < threads; ++started) workers.emplace_back(work);
    for (std::thread& worker : workers) worker.join();
    std::printf("%d good", counts.good);
    if (counts.failed != 0) std::printf(", %d failed: %s", counts.failed, counts.reason.c_str());
    if (counts.wrong != 0) std::printf(", %d wrong bytes", counts.wrong);
    std::puts("");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    fs::http::options how;
    bool is_good = argc >= 5;
    for (int at = 5; at < argc; ++at) is_good = is_good && set_option(how, argv[at]);
    if (!is_good || !fs::init({.root = "/", .flags = FFSAddSourceFlags::NONE, .use_fallback = false})) return 2;
    CrashDisableOutToConsole();
    const int status = run(argv[1], argv[2], argv[3], static_cast<unsigned>(std::atoi(argv[4])), how);
    fs::shutdown();
    return status;
}

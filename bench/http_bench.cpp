// Packs by URL, from nginx behind a relay that adds 20 ms to each round trip, also to those of what they are held
// against.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>

#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <engine/filesystem.h>
#include <engine/filesystem/comfort.h>
#include <engine/filesystem_http.h>

#include "support/paired.h"
#include "support/relay.h"

namespace {

constexpr std::size_t entries = 2000;
constexpr std::size_t picked = 100;
constexpr std::chrono::milliseconds one_way{10};

std::string entry_name(std::size_t number) {
    return "d" + std::to_string(number % 40) + "/f" + std::to_string(number) + ".bin";
}

/// About 50 MiB, of which every tenth entry is stored.
bool make_pack(const std::string& path) {
    std::mt19937 random(1);
    fs::pack_writer writer;
    if (!writer.open(path.c_str())) return false;
    for (std::size_t number = 0; number < entries; ++number) {
        std::string bytes(100 + random() % 80000, '\0');
        for (char& byte : bytes) byte = static_cast<char>('a' + random() % 20);
        if (!writer.add(entry_name(number).c_str(), bytes.data(), bytes.size(), number % 10 == 0 ? 0 : 6, 0))
            return false;
    }
    return writer.finish();
}

/// nginx in a folder of its own, and the relay before it.
class Site {
public:
    Site() {
        std::filesystem::create_directories(where_ / "www");
        if (!make_pack(pack_path()) || !start()) return;
        relay_ = std::make_unique<Relay>(port_, one_way);
        fs::init({.root = where_.c_str(), .flags = FFSAddSourceFlags::NONE, .use_fallback = false});
    }
    ~Site() {
        relay_.reset();
        if (process_ > 0) {
            ::kill(process_, SIGTERM);
            ::waitpid(process_, nullptr, 0);
        }
        fs::shutdown();
        std::filesystem::remove_all(where_);
    }

    bool is_up() const { return relay_ != nullptr; }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(relay_->port()) + "/x.pak"; }
    std::string pack_path() const { return (where_ / "www/x.pak").string(); }
    std::string cache() const { return (where_ / "cache").string(); }
    std::size_t requests() const {
        std::ifstream log(where_ / "access.log");
        return static_cast<std::size_t>(std::count(std::istreambuf_iterator<char>(log), {}, '\n'));
    }

private:
    static const char* program() {
        for (const char* path : {"/usr/sbin/nginx", ".deps/nginx/usr/sbin/nginx"})
            if (std::filesystem::exists(path)) return path;
        return nullptr;
    }

    bool start() {
        if (program() == nullptr) return false;
        port_ = free_port();
        const std::string here = where_.string();
        std::ofstream(where_ / "nginx.conf")
            << "daemon off; master_process off; pid " << here << "/pid; error_log " << here << "/error.log; events {}\n"
            << "http { access_log " << here << "/access.log; sendfile on; client_body_temp_path " << here
            << "/t; proxy_temp_path " << here << "/t; fastcgi_temp_path " << here << "/t; uwsgi_temp_path " << here
            << "/t; scgi_temp_path " << here << "/t; keepalive_requests 100000; server { listen 127.0.0.1:" << port_
            << "; root " << here << "/www; } }\n";
        const std::string configuration = (where_ / "nginx.conf").string();
        const std::string errors = (where_ / "error.log").string();
        process_ = ::fork();
        if (process_ == 0) {
            ::execl(program(), program(), "-p", here.c_str(), "-c", configuration.c_str(), "-e", errors.c_str(),
                    nullptr);
            ::_exit(1);
        }
        for (int tries = 0; tries < 100; ++tries) {
            if (answers()) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return false;
    }

    static std::uint16_t free_port() {
        const int probe = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in place = Relay::loopback(0);
        socklen_t size = sizeof place;
        ::bind(probe, reinterpret_cast<sockaddr*>(&place), size);
        ::getsockname(probe, reinterpret_cast<sockaddr*>(&place), &size);
        ::close(probe);
        return ntohs(place.sin_port);
    }

    bool answers() const {
        const int probe = ::socket(AF_INET, SOCK_STREAM, 0);
        const sockaddr_in place = Relay::loopback(port_);
        const bool is_there = ::connect(probe, reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0;
        ::close(probe);
        return is_there;
    }

    const std::filesystem::path where_ =
        std::filesystem::temp_directory_path() / ("http_bench_" + std::to_string(::getpid()));
    std::uint16_t port_ = 0;
    pid_t process_ = -1;
    std::unique_ptr<Relay> relay_;
};

Site& site() {
    static Site instance;
    return instance;
}

void require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "%s: %s\n", what, fs::last_error().text.c_str());
    std::exit(1);
}

void read_entry(const std::string& name, std::vector<char>& buffer) {
    const fs::file_ptr file = fs::open_file(name.c_str(), EFSMode::READ);
    require(file != nullptr, name.c_str());
    buffer.resize(fs::length(file.get()));
    require(fs::read(file.get(), buffer.data(), buffer.size()) == buffer.size(), name.c_str());
}

void read_all() {
    std::vector<char> buffer;
    for (std::size_t number = 0; number < entries; ++number) read_entry(entry_name(number), buffer);
}

/// A mount by URL for as long as it lives.
struct Mounted {
    explicit Mounted(const std::string& cache, std::uint32_t connections = 8) {
        const fs::http::options how{.connections = connections};
        require(fs::http::add_pack(site().url().c_str(), cache.c_str(), how), "mount");
    }
    ~Mounted() { fs::rem_source(fs::http::source_name(site().url().c_str()).c_str()); }
};

bool is_missing(benchmark::State& state) {
    if (site().is_up()) return false;
    state.SkipWithError("nginx is not available");
    return true;
}

void MountByUrl(benchmark::State& state) {
    if (is_missing(state)) return;
    const std::size_t before = site().requests();
    for (auto _ : state) const Mounted mounted("");
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    state.counters["requests"] =
        static_cast<double>(site().requests() - before) / static_cast<double>(state.iterations());
}
BENCHMARK(MountByUrl)->Iterations(5)->Unit(benchmark::kMillisecond)->UseRealTime();

/// The picked entries by so many threads, each with a connection; the mount is not timed.
double read_picked(unsigned threads) {
    std::mt19937 random(2);
    std::vector<std::string> names(picked);
    for (std::string& name : names) name = entry_name(random() % entries);
    const Mounted mounted("", threads);
    return paired::seconds([&] {
        std::atomic<std::size_t> next{0};
        std::vector<std::thread> workers;
        for (unsigned started = 0; started < threads; ++started) {
            workers.emplace_back([&] {
                std::vector<char> buffer;
                for (std::size_t at = next++; at < names.size(); at = next++) read_entry(names[at], buffer);
            });
        }
        for (std::thread& worker : workers) worker.join();
    });
}

void RandomEntriesEightConnectionsBesideOne(benchmark::State& state) {
    if (is_missing(state)) return;
    for (auto _ : state) {
        std::vector<double> ratios, eight, one;
        for (int round = 0; round < 3; ++round) {
            one.push_back(read_picked(1));
            eight.push_back(read_picked(8));
            ratios.push_back(eight.back() / one.back());
        }
        state.counters["ratio"] = paired::median(ratios);
        state.counters["eight_ms"] = paired::median(eight) * 1e3;
        state.counters["one_ms"] = paired::median(one) * 1e3;
    }
}
BENCHMARK(RandomEntriesEightConnectionsBesideOne)->Iterations(1);

std::size_t drop(char* /*bytes*/, std::size_t /*one*/, std::size_t size, void* sum) {
    *static_cast<std::size_t*>(sum) += size;
    return size;
}

void fetch_whole_by_curl() {
    std::size_t got = 0;
    const std::unique_ptr<CURL, void (*)(CURL*)> curl(curl_easy_init(), curl_easy_cleanup);
    curl_easy_setopt(curl.get(), CURLOPT_URL, site().url().c_str());
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, drop);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &got);
    curl_easy_setopt(curl.get(), CURLOPT_NOPROXY, "*");
    require(curl_easy_perform(curl.get()) == CURLE_OK && got > 1 << 20, "curl");
}

/// Mounting included.
void EverythingInOrderBesideCurl(benchmark::State& state) {
    if (is_missing(state)) return;
    paired::compare(
        state, 1, 5,
        [] {
            const Mounted mounted("");
            read_all();
        },
        fetch_whole_by_curl);
}
BENCHMARK(EverythingInOrderBesideCurl)->Iterations(1);

double read_all_by_url(const std::string& cache) {
    const Mounted mounted(cache);
    return paired::seconds(read_all);
}

double read_all_of_disk() {
    const std::string path = site().pack_path();
    require(fs::add_source(path.c_str()), "local pack");
    const double taken = paired::seconds(read_all);
    fs::rem_source(path.c_str());
    return taken;
}

/// Each from its own mount, which is not timed.
void FromTheCacheBesideALocalPack(benchmark::State& state) {
    if (is_missing(state)) return;
    for (auto _ : state) {
        read_all_by_url(site().cache());
        std::vector<double> ratios, ours, theirs;
        for (int round = 0; round < 5; ++round) {
            theirs.push_back(read_all_of_disk());
            ours.push_back(read_all_by_url(site().cache()));
            ratios.push_back(ours.back() / theirs.back());
        }
        state.counters["ratio"] = paired::median(ratios);
        state.counters["ours_ms"] = paired::median(ours) * 1e3;
        state.counters["theirs_ms"] = paired::median(theirs) * 1e3;
    }
}
BENCHMARK(FromTheCacheBesideALocalPack)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();

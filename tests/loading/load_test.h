#pragma once

#include <engine/filesystem.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <new>
#include <thread>

#include "tests/support/memory_source.h"
#include "tests/support/mounted_root.h"
#include "tests/support/pack_file.h"

/// Holds reads back, and tells of files that close.
struct Gate {
    mt::CEvent open{true};
    mt::CEvent reached{true};
    std::atomic<int> reads{0};
    std::function<void()> closing = [] {};
};

class GatedFile final : public test::MemoryFile {
public:
    GatedFile(const std::string& file_name, const test::Bytes& bytes, Gate* gate, std::uint64_t told_length)
        : MemoryFile(nullptr, file_name, bytes, 0), gate_(gate), told_length_(told_length) {}
    ~GatedFile() override {
        if (gate_ != nullptr) gate_->closing();
    }
    std::uint64_t read(void* buffer, std::uint64_t size) override {
        if (gate_ != nullptr) {
            gate_->reached.Set();
            gate_->open.Wait();
            ++gate_->reads;
        }
        return MemoryFile::read(buffer, size);
    }
    std::uint64_t length() override { return told_length_; }

private:
    Gate* const gate_;
    const std::uint64_t told_length_;
};

/// Serves "gated", "endless" (tells no length), "shrunk" (reads short) and "throws"; stops the library, in vain, when it
/// is asked for "stops".
class GatedSource final : public fs::ReadOnlySource {
public:
    explicit GatedSource(Gate* gate) : gate_(gate) {}
    bool exists(const fs::path& p) override {
        const std::string name = p.FileName();
        if (name == "stops") fs::shutdown();
        return name == "gated" || name == "endless" || name == "shrunk" || name == "throws";
    }
    SFsFile* open_read(const fs::path& p, FFSOpenFlags::FLAGS) override {
        const std::string name = p.FileName();
        if (!exists(p)) return nullptr;
        if (name == "throws") throw std::bad_alloc();
        const std::uint64_t length = name == "endless" ? ~std::uint64_t{0} : text->size() + (name == "shrunk" ? 1 : 0);
        return new GatedFile(name, text, name == "gated" ? gate_ : nullptr, length);
    }

    static inline const test::Bytes text = std::make_shared<std::string>(noise(3'000'000, 1));  // of each

private:
    Gate* const gate_;
};

struct Told {
    std::string names;  // the first letter of each load's bytes, by one worker
    std::atomic<int> count{0};

    static void Note(SFsLoad* load, void* user) {
        auto& told = *static_cast<Told*>(user);
        told.names += *static_cast<const char*>(load->Data());
        ++told.count;
    }
    static void Count(SFsLoad*, void* user) { ++static_cast<Told*>(user)->count; }
};

struct ReleaseCounted {
    template <typename Counted>
    void operator()(Counted* counted) const {
        counted->Release();
    }
};
using LoadPtr = std::unique_ptr<SFsLoad, ReleaseCounted>;
using BatchPtr = std::unique_ptr<SFsLoadBatch, ReleaseCounted>;

/// A root with "loose.bin", and a pack with "small.bin", of the same bytes, and "big.bin", which is loaded in steps.
class LoadTest : public MountedRoot {
protected:
    static void SetUpTestSuite() {
        files_ = std::make_unique<TempDirectory>();
        ASSERT_TRUE(write_pack(*files_ / "p.pak", {{"big.bin", big_, 1}, {"small.bin", small_, 1}}));
    }
    static void TearDownTestSuite() { files_.reset(); }
    void SetUp() override {
        directory_.write("loose.bin", small_);
        MountedRoot::SetUp();
    }
    void TearDown() override {
        MountedRoot::TearDown();
        fs::set_polled_callbacks(false);
        fs::set_load_settings({});
    }
    void Mount() { ASSERT_TRUE(fs::add_source((*files_ / "p.pak").c_str(), whole_tree)); }
    GatedSource* MountGated() {
        auto* const source = new GatedSource(&gate_);
        fs::add_source(source, whole_tree);
        return source;
    }
    static void WorkAlone() { ASSERT_TRUE(fs::set_load_settings({.workers = 1, .no_urgent_lane = true})); }

    static LoadPtr Begin(const SFsLoadWish& wish) { return LoadPtr(fs::load_async(wish)); }
    LoadPtr BeginCounted(const char* path) { return Begin({.path = path, .callback = &Told::Count, .user = &told_}); }
    /// The gated file, on which the one worker waits from now on.
    LoadPtr BeginGated() {
        LoadPtr load = BeginCounted("gated");
        EXPECT_TRUE(gate_.reached.Wait(10'000));
        return load;
    }
    static LoadPtr Ended(const SFsLoadWish& wish) {
        LoadPtr load = Begin(wish);
        EXPECT_TRUE(load != nullptr && load->Wait());
        return load;
    }
    std::jthread OpenGateSoon() {
        return std::jthread([this] {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            gate_.open.Set();
        });
    }
    static std::string Text(const SFsLoad& load) { return {static_cast<const char*>(load.Data()), load.Size()}; }
    static SFsLoadStatistics Statistics() {
        SFsLoadStatistics statistics;
        fs::get_load_statistics(statistics);
        return statistics;
    }

    static inline std::unique_ptr<TempDirectory> files_;
    static inline const std::string big_ = noise(20 << 20, 2);
    static inline const std::string small_ = noise(70'000, 3);
    Gate gate_;
    Told told_;
};

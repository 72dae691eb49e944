#pragma once

#include <engine/filesystem.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/support/mounted_root.h"

/// Text that a decoder has work with and that shrinks.
inline std::string bytes_of(std::size_t size, unsigned seed) {
    std::minstd_rand random(seed + 1);
    std::string text(size, '\0');
    for (char& c : text) c = static_cast<char>('a' + random() % 7);
    return text;
}

/// A file whose reads wait for a gate, and which tells no length, reads short or fails where that is asked for.
struct Gate {
    mt::CEvent open{true};
    mt::CEvent reached{true};
    std::atomic<int> reads{0};
};

class GatedFile final : public SFsFile {
public:
    GatedFile(Gate* gate, const std::string& text, bool tells_length)
        : gate_(gate), text_(text), tells_(tells_length) {}
    std::uint64_t read(void* buffer, std::uint64_t size) override {
        if (gate_ != nullptr) {
            gate_->reached.Set();
            gate_->open.Wait();
            ++gate_->reads;
        }
        const std::uint64_t count = std::min<std::uint64_t>(size, text_.size() - at_);
        std::memcpy(buffer, text_.data() + at_, count);
        at_ += count;
        return count;
    }
    std::uint64_t write(const void*, std::uint64_t) override { return ~std::uint64_t{0}; }
    bool seek(std::int64_t offset, EFSSeek::TYPE) override {
        at_ = static_cast<std::uint64_t>(offset);
        return true;
    }
    std::uint64_t length() override { return tells_ ? text_.size() + short_by : ~std::uint64_t{0}; }
    std::uint64_t tell() override { return at_; }

    std::uint64_t short_by = 0;

private:
    Gate* const gate_;
    const std::string& text_;
    const bool tells_;
    std::uint64_t at_ = 0;
};

/// Serves "gated", "endless" (tells no length), "shrunk" (reads short) and "throws".
class GatedSource final : public fs::ReadOnlySource {
public:
    explicit GatedSource(Gate* gate) : gate_(gate) {}
    bool exists(const fs::path& p) override { return names.count(p.FileName()) != 0; }
    SFsFile* open_read(const fs::path& p, FFSOpenFlags::FLAGS) override {
        const std::string name = p.FileName();
        if (names.count(name) == 0) return nullptr;
        if (name == "throws") throw std::bad_alloc();
        auto* const file = new GatedFile(name == "gated" ? gate_ : nullptr, text, name != "endless");
        if (name == "shrunk") file->short_by = 1;
        return file;
    }

    static inline const std::string text = bytes_of(3'000'000, 1);  // of each
    const std::set<std::string> names{"gated", "endless", "shrunk", "throws"};

private:
    Gate* const gate_;
};

struct Told {
    std::mutex lock;
    std::vector<std::string> names;
    std::atomic<int> count{0};

    static void Note(SFsLoad* load, void* user) {
        auto& told = *static_cast<Told*>(user);
        const std::lock_guard guard(told.lock);
        told.names.push_back(std::string(static_cast<const char*>(load->Data()), 1));
        ++told.count;
    }
    static void Count(SFsLoad*, void* user) { ++static_cast<Told*>(user)->count; }
};

/// A root with "loose.bin", and a pack with "small.bin", of the same bytes, and "big.bin", which is loaded in steps.
class LoadTest : public MountedRoot {
protected:
    static void SetUpTestSuite() {
        files_ = std::make_unique<TempDirectory>();
        fs::pack_writer pack;
        ASSERT_TRUE(pack.open((*files_ / "p.pak").c_str()));
        ASSERT_TRUE(pack.add("big.bin", big_.data(), big_.size(), 1, 0));
        ASSERT_TRUE(pack.add("small.bin", small_.data(), small_.size(), 1, 0));
        ASSERT_TRUE(pack.finish());
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

    /// The load of `path`, waited for.
    static SFsLoad* Ended(SFsLoadWish wish) {
        SFsLoad* const load = fs::load_async(wish);
        EXPECT_TRUE(load != nullptr && load->Wait());
        return load;
    }
    static std::string Text(const SFsLoad& load) { return {static_cast<const char*>(load.Data()), load.Size()}; }

    static inline std::unique_ptr<TempDirectory> files_;
    static inline const std::string big_ = bytes_of(20 << 20, 2);
    static inline const std::string small_ = bytes_of(70'000, 3);
    Gate gate_;
    Told told_;
};

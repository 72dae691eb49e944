#pragma once

#include <cstdint>
#include <string>

#include "engine/filesystem/watch/watching.h"

namespace fs {

/// Follows the file of a pack, through the directory that it lies in: whatever becomes of it is one LOST.
class PackFollower final : public Follower {
public:
    explicit PackFollower(const std::string& native_path);

    bool begin(Watches& watches) override;
    void note(const std::string& dir, const platform::WatchEvent& event, std::int64_t now) noexcept override;
    bool is_marked() const override { return is_touched_; }
    bool prepare(std::int64_t now, std::int64_t quiet) override;
    bool is_prepared() const override { return is_due_; }
    void apply(ChangeBatch& batch) override;

private:
    const std::string directory_;
    const std::string name_;
    Watches::Watch watch_;
    Touches touches_;
    bool is_touched_ = false;
    bool is_due_ = false;
};

}  // namespace fs

#include "engine/filesystem/sources/pack/origin.h"

#include <string>
#include <utility>

#include <engine/filesystem/access/monitor.h>
#include <engine/filesystem/pack_reader.h>

#include "engine/filesystem/contract/error.h"
#include "engine/platform/files.h"

namespace fs {

namespace {

class FileOrigin final : public PackOrigin {
public:
    FileOrigin(std::string path, std::shared_ptr<const platform::File> file)
        : path_(std::move(path)), file_(std::move(file)) {}

    std::uint64_t length() override {
        const std::uint64_t length = file_->length();
        if (length == failed) refuse_by_disk(path_.c_str(), "does not tell its length");
        return length;
    }

    std::uint64_t read(std::uint64_t offset, void* buffer, std::uint64_t size) const override {
        const std::uint64_t got = file_->read_at(buffer, size, offset);
        if (got == failed) refuse_by_disk(path_.c_str(), "cannot be read as a pack");
        return got;
    }

    bool is_remote() const override { return false; }

    platform::Mapping map(std::uint64_t offset, std::uint64_t size) const override {
        platform::Mapping mapping(*file_, offset, size);
        if (mapping.IsEmpty()) refuse_by_disk(path_.c_str(), "cannot be mapped");
        return mapping;
    }

    std::unique_ptr<PackOrigin> again() const override {
        return platform::leads_to(path_.c_str(), *file_) ? std::make_unique<FileOrigin>(path_, file_) : nullptr;
    }

private:
    const std::string path_;
    const std::shared_ptr<const platform::File> file_;
};

class ReaderOrigin final : public PackOrigin {
public:
    ReaderOrigin(const char* name, std::shared_ptr<pack_reader> reader) : name_(name), reader_(std::move(reader)) {}

    std::uint64_t length() override {
        return guarded(name_.c_str(), failed, [&] {
            const std::uint64_t length = reader_->length();
            return length != failed ? length : fail("its length is not known");
        });
    }

    std::uint64_t read(std::uint64_t offset, void* buffer, std::uint64_t size) const override {
        return guarded(name_.c_str(), failed, [&] {
            ErrorScope scope;
            const std::int64_t got = reader_->read_at(offset, buffer, size);
            if (got >= 0 && static_cast<std::uint64_t>(got) == size) {
                scope.forget();  // what failed on the reader's own way to them
                return size;
            }
            if (got < 0) return fail("its reader failed");
            return fail("its reader answered " + std::to_string(got) + " for the " + std::to_string(size) +
                        " bytes at " + std::to_string(offset));
        });
    }

    void prefetch(std::uint64_t offset, std::uint64_t size) const override {
        const ErrorKeeper keep;  // it is only a hint
        guarded(name_.c_str(), [&] { reader_->prefetch(offset, size); });
    }

    bool is_remote() const override { return true; }

private:
    std::uint64_t fail(const std::string& otherwise) const {
        const std::string said = reader_->last_failure();
        set_error(EFSError::IO, name_.c_str(),
                  "The pack \"" + name_ + "\" cannot be read: " + (said.empty() ? otherwise : said) + ".");
        return failed;
    }

    const std::string name_;
    const std::shared_ptr<pack_reader> reader_;
};

}  // namespace

std::unique_ptr<PackOrigin> PackOrigin::file(const char* native_path) {
    auto file = platform::File::open(native_path, {.sharing = platform::Sharing::NONE});
    if (!file.valid()) return refuse_by_disk(native_path, "cannot be opened as a pack"), nullptr;
    monitor_touch_file(native_path);
    return std::make_unique<FileOrigin>(native_path, std::make_shared<const platform::File>(std::move(file)));
}

std::unique_ptr<PackOrigin> PackOrigin::reader(const char* name, std::shared_ptr<pack_reader> reader) {
    return std::make_unique<ReaderOrigin>(name, std::move(reader));
}

}  // namespace fs

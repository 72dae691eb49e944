// gzip, gunzip: files to gzip members and back.

#include <algorithm>

#include <zlib.h>

#include <engine/filesystem.h>

#include "commands.h"
#include "names.h"
#include "output.h"
#include "report.h"
#include "terminal.h"

namespace {

bool gzip(const FromTo& given) { return copy_file(given, "gzip ", FFSOpenFlags::GZIP_LEVEL9); }

/// Decodes gzip members, one behind the other, as their bytes come; zeros may fill the file up behind them.
class MemberDecoder {
public:
    MemberDecoder(std::string name, Output& output) : name_(std::move(name)), output_(output) {
        constexpr int gzip_wrapper = 16;
        if (inflateInit2(&stream_, MAX_WBITS + gzip_wrapper) != Z_OK) throw std::bad_alloc();
    }
    ~MemberDecoder() { inflateEnd(&stream_); }
    MemberDecoder(const MemberDecoder&) = delete;
    MemberDecoder& operator=(const MemberDecoder&) = delete;

    /// False, with a word on standard error, when they are damaged or what they hold cannot be written.
    bool take(const char* data, std::uint64_t size) {
        stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data));
        stream_.avail_in = static_cast<uInt>(size);
        while (stream_.avail_in != 0) {
            const Bytef* const end = stream_.next_in + stream_.avail_in;
            if (between_ && members_ != 0 &&
                std::all_of<const Bytef*>(stream_.next_in, end, [](Bytef b) { return b == 0; }))
                return true;
            if (!decode()) return false;
        }
        return true;
    }

    bool finish() const { return (between_ && members_ != 0) || fail_at_member("it is cut off"); }

private:
    bool decode() {
        stream_.next_out = out_.data();
        stream_.avail_out = static_cast<uInt>(out_.size());
        const int result = inflate(&stream_, Z_NO_FLUSH);
        if (result != Z_OK && result != Z_STREAM_END)
            return fail_at_member(stream_.msg != nullptr ? stream_.msg : "it is damaged");
        between_ = result == Z_STREAM_END;
        if (between_) {
            ++members_;
            inflateReset(&stream_);
        }
        return output_.write(out_.data(), out_.size() - stream_.avail_out);
    }

    bool fail_at_member(const std::string& reason) const {
        return fail(name_, "its gzip member number " + std::to_string(members_ + 1) + ": " + reason);
    }

    const std::string name_;
    Output& output_;
    z_stream stream_{};
    std::vector<Bytef> out_ = std::vector<Bytef>(1u << 18);
    std::uint64_t members_ = 0;  // that were whole
    bool between_ = true;        // two members, or before the first
};

bool gunzip(const FromTo& given) {
    fs::file_ptr source;
    Output output;
    if (!open_both(given, source, output)) return false;
    Progress progress("gunzip " + given.from, fs::length(source.get()), true);
    MemberDecoder decoder(given.from, output);
    const auto take = [&](const char* data, std::uint64_t size) {
        progress.add(size);
        return decoder.take(data, size);
    };
    return read_to_end(source.get(), given.from, take) && decoder.finish() && output.finish();
}

void add(Commands& commands, const char* name, const char* help, bool (*run)(const FromTo&)) {
    const auto added = commands.add(name, help, run);
    added->add_option("NAME", added.given.from, "The file that is read")->required();
    added->add_option("OUT", added.given.to, "The file that is written, replaced when it is there")->required();
}

}  // namespace

void add_stream_commands(Commands& commands) {
    add(commands, "gzip", "Write a file as one gzip member (level 9); both names are virtual", gzip);
    add(commands, "gunzip",
        "Write what the gzip members of a file hold, checked against their checksums and lengths; a damaged one "
        "leaves OUT as it was, or not made",
        gunzip);
}

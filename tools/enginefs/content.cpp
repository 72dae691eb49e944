// cat, cp, gzip, gunzip: what is in a file.

#include <algorithm>

#include <zlib.h>

#include "command.h"

namespace {

bool cat(const std::string& name) {
    const fs::file_ptr file = open_file(name);
    return file != nullptr && read_to_end(file.get(), name, print_bytes);
}

bool copy(const FromTo& given, const char* label, FFSOpenFlags::FLAGS flags) {
    Output output;
    const auto write = [&](const char* data, std::uint64_t size) { return output.write(data, size); };
    return copy_to(output, given, label, write, flags) && output.finish();
}

bool cp(const FromTo& given) { return copy(given, "cp ", FFSOpenFlags::NONE); }
bool gzip(const FromTo& given) { return copy(given, "gzip ", FFSOpenFlags::GZIP_LEVEL9); }

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
    Output output;
    MemberDecoder decoder(given.from, output);
    const auto decode = [&](const char* data, std::uint64_t size) { return decoder.take(data, size); };
    return copy_to(output, given, "gunzip ", decode) && decoder.finish() && output.finish();
}

}  // namespace

void add_content_commands(Commands& commands) {
    commands.add("cat", "Write the content of files to standard output", "NAME", cat);

    commands.add_moving("cp", "Copy files into the root, or over files that a source holds", cp);

    commands.add_moving("gzip",
                        "Write files as one gzip member each (level 9); in a directory they get \".gz\" behind their "
                        "names",
                        gzip, [](const std::string& name) { return name + ".gz"; });

    commands.add_moving("gunzip",
                        "Write what the gzip members of files hold, checked against their checksums and lengths; a "
                        "damaged one leaves the new file as it was, or not made. In a directory they lose the \".gz\" "
                        "of their names",
                        gunzip, [](const std::string& name) {
                            return lower_case(name).ends_with(".gz") ? name.substr(0, name.size() - 3) : name;
                        });
}

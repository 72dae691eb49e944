#pragma once

#include <cstdint>

#include <engine/filesystem/api.h>
#include <engine/filesystem/streams/ifile.h>

namespace fs {

/// Brackets what is written to a stream during its life with a chunk header; chunks nest. Layout: docs/formats.md,
/// "Chunk layout". The stream must outlive it, and be able to seek back; where it cannot, the size stays 0.
class ENGINE_FS_API chunk_save {
public:
    /// `id` is four characters, the first one most significant.
    chunk_save(ifile& file, unsigned id, unsigned version);
    /// Fills the size in, and goes back to where the writing had reached.
    ~chunk_save();
    chunk_save(const chunk_save&) = delete;
    chunk_save& operator=(const chunk_save&) = delete;

private:
    ifile* file_;
    std::uint64_t start_;  // of the data
};

/// Reads a chunk header; on destruction the stream stands just behind the chunk, however much of it was read.
///
/// Nothing is checked but by match: a truncated header reads as what the stream delivered, the rest 0. A chunk that
/// claims more than the stream holds leaves a vector stream at its end; any other stream answers the seek as it does.
class ENGINE_FS_API chunk_load {
public:
    explicit chunk_load(ifile& file);
    ~chunk_load();
    chunk_load(const chunk_load&) = delete;
    chunk_load& operator=(const chunk_load&) = delete;

    /// Lets the destructor leave the stream at the chunk's header.
    void rewind();
    /// Whether identifier and version are these. When not, and `context` is not null, an error is logged.
    bool match(unsigned id, unsigned version, const char* context) const;
    /// Whether the identifier begins with a lower-case letter.
    bool is_data_chunk() const;

    std::uint32_t id;
    std::uint32_t version;
    std::uint32_t size;  // of the data, in bytes
    std::uint64_t end;   // stream position behind the data

private:
    ifile* file_;
};

}  // namespace fs

// How a multi-container file is read and saved.
//
// Nothing that a commit record points to is ever written over: blobs and indexes go behind the committed end, and the
// record of the new state goes into the place of the older of the two. The writes reach the disk in their order, so a
// file cut off anywhere still has the record before, whole, and everything that it points to.

#include "engine/filesystem/containers/multi_container_state.h"

#include <new>

#include <zlib.h>

#include "engine/filesystem/contract/set_error.h"

using container::Commit;
using container::Entry;

bool CFileHashMultiContainer::State::Fail(EFSError::TYPE code, const char* text) const {
    fs::set_error(code, path.c_str(), text);
    return false;
}

bool CFileHashMultiContainer::State::FailWithoutMemory() const {
    return Fail(EFSError::OUT_OF_MEMORY, "There is no memory for the multi-container's index or blob.");
}

bool CFileHashMultiContainer::State::Load() {
    const std::uint64_t length = file.Length();
    unsigned char head[container::data_offset];
    if (length == ~std::uint64_t{0} || length < sizeof head || !file.Read(head, sizeof head, 0) ||
        std::memcmp(head, container::magic.data(), container::magic.size()) != 0)
        return Fail(EFSError::BAD_FORMAT, "This is no multi-container file.");
    const std::optional<Commit> found = container::newest_commit(head);
    if (!found) return Fail(EFSError::BAD_FORMAT, "Both commit records of the multi-container are damaged.");
    if (!found->is_inside(length)) return Fail(EFSError::BAD_FORMAT, "The multi-container has lost its end.");
    commit = *found;
    std::unique_ptr<unsigned char[]> bytes(new (std::nothrow) unsigned char[commit.index_size + 1]);
    if (bytes == nullptr) return Fail(EFSError::OUT_OF_MEMORY, "No memory for the multi-container's index.");
    if (!file.Read(bytes.get(), commit.index_size, commit.index_offset))
        return Fail(EFSError::IO, "The multi-container's index cannot be read.");
    if (!index.Load(std::move(bytes), commit))
        return Fail(EFSError::BAD_FORMAT, "The multi-container's directory is damaged.");
    file.SetEnd(commit.end());
    changed = false;
    return true;
}

bool CFileHashMultiContainer::State::Initialise() {
    unsigned char head[container::data_offset] = {};
    std::memcpy(head, container::magic.data(), container::magic.size());
    commit = Commit{.sequence = 1, .index_offset = container::data_offset};
    commit.directory_checksum = container::checksum(nullptr, 0);
    const container::CommitBytes record = container::encode(commit);
    std::memcpy(head + commit.place(), record.data(), record.size());
    file.SetEnd(container::data_offset);
    return file.WriteAt(head, sizeof head, 0);
}

bool CFileHashMultiContainer::State::IsWritable() const {
    return file.IsWritable() || Fail(EFSError::READ_ONLY, "The multi-container is not open for writing.");
}

bool CFileHashMultiContainer::State::Put(std::string_view name, std::uint32_t hash, Entry entry, const void* stored) {
    if (!IsWritable()) return false;
    const container::Container* const known = index.Find(name);
    if (known != nullptr && !known->IsSound())
        return Fail(EFSError::BAD_FORMAT, "The index of the container is damaged.");
    entry.offset = file.End();
    if (!file.Append(stored, entry.stored_size)) return false;
    index.FindOrAdd(name).Put(hash, entry);
    changed = true;
    return true;
}

bool CFileHashMultiContainer::State::Save() {
    if (!changed) return true;
    container::IndexWriter writer;
    if (!index.Encode(writer))
        return Fail(EFSError::BAD_FORMAT, "A container of the file is damaged; saving would hide it.");
    if (!file.Flush() || !WriteIndex(writer)) return false;
    changed = false;
    return true;
}

bool CFileHashMultiContainer::State::WriteIndex(container::IndexWriter& writer) {
    Commit next{.sequence = commit.sequence + 1};
    const std::vector<unsigned char> bytes = writer.Finish(next);
    next.index_offset = file.End();
    const container::CommitBytes record = container::encode(next);
    if (!file.WriteAt(bytes.data(), bytes.size(), next.index_offset) ||
        !file.WriteAt(record.data(), record.size(), next.place()))
        return false;
    commit = next;
    file.SetEnd(next.end());
    return true;
}

void CFileHashMultiContainer::State::Close() {
    file.Close();
    index = container::Index();
    changed = false;
}

const container::Container* CFileHashMultiContainer::State::FindSound(const char* name) const {
    if (!file.IsOpen()) {
        Fail(EFSError::INVALID_ARGUMENT, "No multi-container file is open.");
        return nullptr;
    }
    const container::Container* const found = index.Find(name != nullptr ? name : "");
    if (found == nullptr) {
        Fail(EFSError::NOT_FOUND, "The multi-container has no container of this name.");
        return nullptr;
    }
    if (found->IsSound()) return found;
    Fail(EFSError::BAD_FORMAT, "The index of the container is damaged.");
    return nullptr;
}

std::optional<Entry> CFileHashMultiContainer::State::FindBlob(const char* name, std::uint32_t hash) const {
    const container::Container* const found = FindSound(name);
    if (found == nullptr) return std::nullopt;
    std::optional<Entry> entry = found->Find(hash);
    if (!entry) Fail(EFSError::NOT_FOUND, "The container has no blob of this hash.");
    return entry;
}

bool CFileHashMultiContainer::State::ReadBlob(const Entry& entry, unsigned char* out) const {
    std::unique_ptr<unsigned char[]> packed;
    if (entry.deflated) {
        packed.reset(new (std::nothrow) unsigned char[entry.stored_size]);
        if (packed == nullptr) return Fail(EFSError::OUT_OF_MEMORY, "No memory for a packed blob.");
    }
    unsigned char* const stored = entry.deflated ? packed.get() : out;
    if (!file.Read(stored, entry.stored_size, entry.offset)) return Fail(EFSError::IO, "A blob cannot be read whole.");
    if (container::checksum(stored, entry.stored_size) != entry.checksum)
        return Fail(EFSError::BAD_FORMAT, "A blob's checksum is wrong.");
    if (!entry.deflated) return true;
    uLongf size = entry.size;
    if (uncompress(out, &size, stored, entry.stored_size) != Z_OK || size != entry.size)
        return Fail(EFSError::BAD_FORMAT, "A deflated blob cannot be decoded.");
    return true;
}

#include <engine/filesystem/contract/names.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

// A tree of directories. Children keep the order in which they were added. A directory with many children finds them
// by a table of buckets; one with few just looks at each. Nothing here recurses: the depth of a tree comes from names
// that outsiders choose.

namespace fs {

namespace {

constexpr std::uint32_t few_children = 16;

std::uint32_t hash_of(const char* name, std::size_t length) {
    std::uint32_t hash = 2166136261u;  // FNV-1a
    for (std::size_t i = 0; i < length; ++i) hash = (hash ^ static_cast<unsigned char>(name[i])) * 16777619u;
    return hash;
}

/// Takes the first component off `rest`; runs of "/" count as one. Empty when none is left.
std::string_view take_component(std::string_view& rest) {
    while (!rest.empty() && rest.front() == '/') rest.remove_prefix(1);
    const std::string_view component = rest.substr(0, rest.find('/'));
    rest.remove_prefix(component.size());
    return component;
}

char* copy_text(const char* text, std::size_t length) {
    auto* const copy = static_cast<char*>(std::malloc(length + 1));
    if (copy == nullptr) return nullptr;
    std::memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

}  // namespace

dir::dir() = default;

dir::~dir() {
    clear();
    std::free(name_);
}

const char* dir::name() const { return name_ != nullptr ? name_ : ""; }
const idir* dir::parent() const { return parent_; }
const idir* dir::first_child() const { return first_child_; }
const idir* dir::next_sibling() const { return next_sibling_; }

void dir::set_name(const char* name) {
    const std::size_t length = name != nullptr ? std::strlen(name) : 0;
    char* const copy = length != 0 ? copy_text(name, length) : nullptr;
    if (length != 0 && copy == nullptr) return;
    if (parent_ != nullptr) parent_->drop_index();
    std::free(name_);
    name_ = copy;
    name_length_ = static_cast<std::uint32_t>(length);
    name_hash_ = hash_of(this->name(), length);
}

dir* dir::add_path(const char* path) {
    std::string_view rest(path != nullptr ? path : "");
    dir* node = this;
    while (node != nullptr) {
        const std::string_view component = take_component(rest);
        if (component.empty()) break;
        node = node->add_child(component.data(), component.size());
    }
    return node;
}

dir* dir::find(const char* path) {
    std::string_view rest(path != nullptr ? path : "");
    dir* node = this;
    while (node != nullptr) {
        const std::string_view component = take_component(rest);
        if (component.empty()) break;
        node = node->find_child(component.data(), component.size());
    }
    return node;
}

dir* dir::add_child(const char* name, std::size_t length) {
    dir* const found = find_child(name, length);
    return found != nullptr ? found : append_child(name, length);
}

void dir::remove(const char* path) {
    dir* const node = find(path);
    if (node == nullptr || node == this) return;
    node->unlink();
    delete node;
}

void dir::clear() {
    drop_index();
    // Each node's children join the list before the node itself goes, so that its destructor finds none.
    dir* pending = first_child_;
    dir* last = last_child_;
    first_child_ = last_child_ = nullptr;
    child_count_ = 0;
    while (pending != nullptr) {
        dir* const node = pending;
        if (node->first_child_ != nullptr) {
            last->next_sibling_ = node->first_child_;
            last = node->last_child_;
            node->first_child_ = node->last_child_ = nullptr;
        }
        pending = node->next_sibling_;
        delete node;
    }
}

bool dir::merge(const dir& other) {
    for (const dir* node = this; node != nullptr; node = node->parent_) {
        if (node == &other) return true;  // a tree merged into a part of itself would never end
    }
    dir copy;
    if (!copy.copy_below(other)) return false;
    take_over(copy);
    return true;
}

bool dir::copy_below(const dir& other) {
    const dir* from = other.first_child_;
    dir* to = this;
    while (from != nullptr) {
        dir* const child = to->add_child(from->name(), from->name_length_);
        if (child == nullptr) return false;
        if (from->first_child_ != nullptr) {
            to = child;
            from = from->first_child_;
            continue;
        }
        while (from != nullptr && from->next_sibling_ == nullptr) {
            from = from->parent_ != &other ? from->parent_ : nullptr;
            to = to->parent_;
        }
        if (from != nullptr) from = from->next_sibling_;
    }
    return true;
}

void dir::take_over(dir& other) {
    if (name_ == nullptr && other.name_ != nullptr) {
        std::swap(name_, other.name_);
        std::swap(name_length_, other.name_length_);
        std::swap(name_hash_, other.name_hash_);
    }
    // A child that is new here moves over with all that is below it; of one that is known its own children are looked
    // at, until the foreign tree is bare.
    dir* to = this;
    dir* from = &other;
    while (true) {
        dir* const child = from->first_child_;
        if (child == nullptr) {
            if (from == &other) return;
            dir* const parent = from->parent_;
            from->unlink();
            delete from;
            from = parent;
            to = to->parent_;
            continue;
        }
        dir* const known = to->find_child(child->name(), child->name_length_);
        if (known != nullptr) {
            to = known;
            from = child;
        } else {
            child->unlink();
            to->link(child);
        }
    }
}

dir* dir::find_child(const char* name, std::size_t length) const {
    const std::uint32_t hash = hash_of(name, length);
    if (buckets_ != nullptr) return find_indexed(name, length, hash);
    for (dir* child = first_child_; child != nullptr; child = child->next_sibling_) {
        if (child->name_hash_ != hash || child->name_length_ != length) continue;
        if (std::memcmp(child->name(), name, length) == 0) return child;
    }
    return nullptr;
}

dir* dir::find_indexed(const char* name, std::size_t length, std::uint32_t hash) const {
    for (dir* child = buckets_[hash & (bucket_count_ - 1)]; child != nullptr; child = child->next_in_bucket_) {
        if (child->name_hash_ != hash || child->name_length_ != length) continue;
        if (std::memcmp(child->name(), name, length) == 0) return child;
    }
    return nullptr;
}

dir* dir::append_child(const char* name, std::size_t length) {
    char* const copy = copy_text(name, length);
    dir* const child = copy != nullptr ? new (std::nothrow) dir : nullptr;
    if (child == nullptr) {
        std::free(copy);
        return nullptr;
    }
    child->name_ = copy;
    child->name_length_ = static_cast<std::uint32_t>(length);
    child->name_hash_ = hash_of(copy, length);
    link(child);
    return child;
}

void dir::link(dir* child) {
    child->parent_ = this;
    child->previous_sibling_ = last_child_;
    (last_child_ != nullptr ? last_child_->next_sibling_ : first_child_) = child;
    last_child_ = child;
    ++child_count_;
    index_child(child);
}

void dir::unlink() {
    parent_->unindex_child(this);
    (previous_sibling_ != nullptr ? previous_sibling_->next_sibling_ : parent_->first_child_) = next_sibling_;
    (next_sibling_ != nullptr ? next_sibling_->previous_sibling_ : parent_->last_child_) = previous_sibling_;
    --parent_->child_count_;
    parent_ = previous_sibling_ = next_sibling_ = nullptr;
}

/// Called when `child` has joined the list. Without memory for buckets each child is looked at, which is only slower.
void dir::index_child(dir* child) {
    if (buckets_ == nullptr && child_count_ <= few_children) return;
    if (buckets_ == nullptr || child_count_ > bucket_count_) {
        build_index(buckets_ == nullptr ? few_children * 4 : std::size_t{bucket_count_} * 4);
        return;
    }
    dir*& bucket = buckets_[child->name_hash_ & (bucket_count_ - 1)];
    child->next_in_bucket_ = bucket;
    bucket = child;
}

void dir::unindex_child(dir* child) {
    if (buckets_ == nullptr) return;
    dir** link = &buckets_[child->name_hash_ & (bucket_count_ - 1)];
    while (*link != child) link = &(*link)->next_in_bucket_;
    *link = child->next_in_bucket_;
    child->next_in_bucket_ = nullptr;
}

void dir::build_index(std::size_t bucket_count) {
    drop_index();
    while (bucket_count < child_count_) bucket_count *= 4;
    buckets_ = static_cast<dir**>(std::calloc(bucket_count, sizeof(dir*)));
    if (buckets_ == nullptr) return;
    bucket_count_ = static_cast<std::uint32_t>(bucket_count);
    for (dir* child = first_child_; child != nullptr; child = child->next_sibling_) {
        dir*& bucket = buckets_[child->name_hash_ & (bucket_count_ - 1)];
        child->next_in_bucket_ = bucket;
        bucket = child;
    }
}

void dir::drop_index() {
    std::free(buckets_);
    buckets_ = nullptr;
    bucket_count_ = 0;
}

}  // namespace fs

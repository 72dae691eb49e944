#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <type_traits>
#include <utility>

namespace fs {

/// A growing array of plain values that answers false, instead of throwing, when memory cannot be had. It grows by
/// realloc, which on large blocks moves pages instead of bytes; pages not yet written cost nothing.
template <class Value>
class PodArray {
    static_assert(std::is_trivially_copyable_v<Value>);

public:
    PodArray() = default;
    PodArray(PodArray&& other) noexcept
        : data_(std::exchange(other.data_, nullptr)),
          size_(std::exchange(other.size_, 0)),
          capacity_(std::exchange(other.capacity_, 0)) {}
    PodArray& operator=(PodArray&& other) noexcept {
        std::swap(data_, other.data_);
        std::swap(size_, other.size_);
        std::swap(capacity_, other.capacity_);
        return *this;
    }
    ~PodArray() { std::free(data_); }

    Value* data() { return data_; }
    const Value* data() const { return data_; }
    std::size_t size() const { return size_; }
    Value& operator[](std::size_t index) { return data_[index]; }
    const Value& operator[](std::size_t index) const { return data_[index]; }
    Value* begin() { return data_; }
    Value* end() { return data_ + size_; }
    const Value* begin() const { return data_; }
    const Value* end() const { return data_ + size_; }
    std::size_t bytes() const { return capacity_ * sizeof(Value); }

    [[nodiscard]] bool reserve(std::size_t capacity) {
        if (capacity <= capacity_) return true;
        if (capacity > static_cast<std::size_t>(-1) / 2 / sizeof(Value)) return false;
        void* grown = std::realloc(data_, capacity * sizeof(Value));
        if (!grown) return false;
        data_ = static_cast<Value*>(grown);
        capacity_ = capacity;
        return true;
    }
    /// Room for `count` more at the end; their content is undefined. Null when memory cannot be had.
    [[nodiscard]] Value* extend(std::size_t count) {
        if (count > capacity_ - size_ && !reserve(grown_capacity(count))) return nullptr;
        Value* added = data_ + size_;
        size_ += count;
        return added;
    }
    [[nodiscard]] bool push(const Value& value) {
        Value* added = extend(1);
        if (added) *added = value;
        return added != nullptr;
    }
    void resize_down(std::size_t size) { size_ = size; }
    /// Lets go of the room behind the last value; without effect where that cannot be done.
    void give_back_spare() {
        if (size_ == 0 || size_ == capacity_) return;
        void* const cut = std::realloc(data_, size_ * sizeof(Value));
        if (!cut) return;
        data_ = static_cast<Value*>(cut);
        capacity_ = size_;
    }
    void clear() {
        std::free(data_);
        data_ = nullptr;
        size_ = capacity_ = 0;
    }

private:
    std::size_t grown_capacity(std::size_t count) const {
        const std::size_t doubled = capacity_ + capacity_ / 2 + 64;
        return size_ + count > doubled ? size_ + count : doubled;
    }

    Value* data_ = nullptr;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

}  // namespace fs

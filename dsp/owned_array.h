// An array that belongs to its holder and whose allocation may be refused.
#pragma once
#include <cstddef>
#include <memory>
#include <new>

// T: a plain number type.
template <typename T>
class OwnedArray {
public:
    // Replaces the array by `size` zeros. False, and the old array stays, if memory is refused.
    // A size of 0 gives an empty array.
    bool Allocate(size_t size) {
        if (size > kMaxSize) return false;
        std::unique_ptr<T[]> fresh;
        if (size != 0) {
            fresh.reset(new (std::nothrow) T[size]());
            if (!fresh) return false;
        }
        elements = std::move(fresh);
        count = size;
        return true;
    }

    void Release() {
        elements.reset();
        count = 0;
    }

    T* data() { return elements.get(); }
    const T* data() const { return elements.get(); }
    size_t size() const { return count; }
    bool empty() const { return count == 0; }
    T& operator[](size_t i) { return elements[i]; }
    const T& operator[](size_t i) const { return elements[i]; }

private:
    // An array of more bytes than half the address space can't be asked for.
    static constexpr size_t kMaxSize = static_cast<size_t>(-1) / 2 / sizeof(T);

    std::unique_ptr<T[]> elements;
    size_t count = 0;
};

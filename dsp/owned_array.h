// An array that belongs to the object that holds it. Its allocation may fail, and says so.
#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

#include "dsp/lanes.h"

// T is a plain number type. The first element is aligned for a vector (Lanes), so that vectors
// loaded one after the other never cross the end of a cache line. `new` aligns enough for all but
// the widest vectors; the array adds the rest itself.
template <typename T>
class OwnedArray {
public:
    // Replaces the array by `size` zeros; a size of 0 gives an empty array. Returns false, and
    // keeps the old array, if memory is refused.
    bool Allocate(size_t size) {
        if (size > kMaxSize) return false;
        std::unique_ptr<T[]> fresh;
        if (size != 0) {
            fresh.reset(new (std::nothrow) T[size + kSlack]());
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

    T* data() { return Aligned(); }
    const T* data() const { return Aligned(); }
    size_t size() const { return count; }
    bool empty() const { return count == 0; }
    T& operator[](size_t i) { return data()[i]; }
    const T& operator[](size_t i) const { return data()[i]; }

private:
    static constexpr size_t kAlignment = sizeof(Lanes);
    static constexpr bool kNewAligns = kAlignment <= __STDCPP_DEFAULT_NEW_ALIGNMENT__;
    // The number of unused elements that may be needed before the first one.
    static constexpr size_t kSlack =
        kNewAligns || kAlignment % sizeof(T) != 0 ? 0 : kAlignment / sizeof(T);

    T* Aligned() const {
        if constexpr (kSlack == 0) return elements.get();
        const size_t beyond = reinterpret_cast<uintptr_t>(elements.get()) % kAlignment;
        return elements.get() + (kAlignment - beyond) % kAlignment / sizeof(T);
    }

    // No array may have more bytes than half the address space.
    static constexpr size_t kMaxSize = static_cast<size_t>(-1) / 2 / sizeof(T);

    std::unique_ptr<T[]> elements;
    size_t count = 0;
};

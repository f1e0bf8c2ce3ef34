// An array that belongs to its holder and whose allocation may be refused.
#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

#include "dsp/lanes.h"

// T: a plain number type. The first one lies where a vector may, so that none of a run of vectors
// crosses the end of a cache line; an allocation is aligned for all but the widest.
template <typename T>
class OwnedArray {
public:
    // Replaces the array by `size` zeros. False, and the old array stays, if memory is refused.
    // A size of 0 gives an empty array.
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
    // Numbers that may lie before the first.
    static constexpr size_t kSlack = kAlignment > __STDCPP_DEFAULT_NEW_ALIGNMENT__&& kAlignment %
                                                      sizeof(T) ==
                                             0
                                         ? kAlignment / sizeof(T)
                                         : 0;

    T* Aligned() const {
        if constexpr (kSlack == 0) return elements.get();
        const size_t beyond = reinterpret_cast<uintptr_t>(elements.get()) % kAlignment;
        return elements.get() + (kAlignment - beyond) % kAlignment / sizeof(T);
    }

    // An array of more bytes than half the address space can't be asked for.
    static constexpr size_t kMaxSize = static_cast<size_t>(-1) / 2 / sizeof(T);

    std::unique_ptr<T[]> elements;
    size_t count = 0;
};

// Memory for a command's block that ends at an unreadable page, so that access to the next byte
// faults.
#pragma once
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

class GuardedBlock {
public:
    explicit GuardedBlock(size_t capacity) {
        const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        usable = (capacity + page - 1) / page * page;
        total = usable + page;
        void* const memory =
            mmap(nullptr, total, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) std::abort();
        base = static_cast<unsigned char*>(memory);
        if (mprotect(base + usable, page, PROT_NONE) != 0) std::abort();
    }
    ~GuardedBlock() { munmap(base, total); }
    GuardedBlock(const GuardedBlock&) = delete;
    GuardedBlock& operator=(const GuardedBlock&) = delete;

    // Returns the address of the last `size` bytes.
    unsigned char* Last(size_t size) { return base + usable - size; }

    // Copies `size` bytes from `source` to the end of the memory and returns their address. The
    // memory can then only be read.
    void* Hold(const void* source, size_t size) {
        mprotect(base, usable, PROT_READ | PROT_WRITE);
        if (size != 0) std::memcpy(Last(size), source, size);
        mprotect(base, usable, PROT_READ);
        return Last(size);
    }

private:
    unsigned char* base = nullptr;
    size_t usable = 0, total = 0;
};

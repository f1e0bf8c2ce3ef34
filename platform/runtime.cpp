// Replaces the few parts of the C++ run-time library that the shared library needs. These are the
// allocation operators, which call malloc, their tag std::nothrow, and the handler of pure virtual
// calls. The run-time library's own versions would bring exception handling, with writable data and
// start-up code.
#include <cstddef>
#include <cstdlib>
#include <new>

const std::nothrow_t std::nothrow{};

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size != 0 ? size : 1);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size != 0 ? size : 1);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}

// The C++ ABI prescribes the name.
extern "C" void __cxa_pure_virtual()  // NOLINT(bugprone-reserved-identifier)
{
    std::abort();
}

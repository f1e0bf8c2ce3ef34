// What the language's run-time library would bring into the shared library, without its exception
// machinery, which comes with writable data and start-up code: the allocation operators, straight
// on malloc, their tag, and the end of an impossible call.
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

// The name is the C++ ABI's.
extern "C" void __cxa_pure_virtual()  // NOLINT(bugprone-reserved-identifier)
{
    std::abort();
}

// One place in the chain, with a slot for each arithmetic variant of its processor. The chain
// processes with the first slot. The others only receive settings and resets. A slot is empty if
// nothing was made for it or its memory was refused.
#pragma once
#include <memory>
#include <new>
#include <tuple>
#include <utility>

template <typename Main, typename... Others>
class Stage {
public:
    // Destroys the processor of the first slot, then makes a new one there.
    template <typename... Arguments>
    void Make(Arguments&&... arguments) {
        First().reset();
        First().reset(new (std::nothrow) Main(std::forward<Arguments>(arguments)...));
    }

    // Calls act(processor) for every filled slot, beginning with the first.
    template <typename Action>
    void ForEach(Action act) {
        std::apply([&act](auto&... slot) { ((slot ? act(*slot) : void()), ...); }, slots);
    }

    // Returns true if any slot is filled.
    bool Filled() const {
        return std::apply([](const auto&... slot) { return (... || (slot != nullptr)); }, slots);
    }

    // Returns the processor of the first slot, which must be filled.
    Main* operator->() { return First().get(); }

private:
    std::unique_ptr<Main>& First() { return std::get<0>(slots); }

    std::tuple<std::unique_ptr<Main>, std::unique_ptr<Others>...> slots;
};

// One place in the chain, with a slot for each arithmetic that may stand there. The chain's path
// runs through the first slot; the others only receive settings, resets and questions, for a path
// of their own. A slot is empty where nothing was made or its memory was refused.
#pragma once
#include <memory>
#include <new>
#include <tuple>
#include <utility>

template <typename Main, typename... Others>
class Stage {
public:
    // Fills the first slot anew, after what it held is gone.
    template <typename... Arguments>
    void Make(Arguments&&... arguments) {
        First().reset();
        First().reset(new (std::nothrow) Main(std::forward<Arguments>(arguments)...));
    }

    // Calls act(processor) for every filled slot, the first one first.
    template <typename Action>
    void ForEach(Action act) {
        std::apply([&act](auto&... slot) { ((slot ? act(*slot) : void()), ...); }, slots);
    }

    // Whether any slot is.
    bool Filled() const {
        return std::apply([](const auto&... slot) { return (... || (slot != nullptr)); }, slots);
    }

    // The processor of the first slot, which must be filled.
    Main* operator->() { return First().get(); }

private:
    std::unique_ptr<Main>& First() { return std::get<0>(slots); }

    std::tuple<std::unique_ptr<Main>, std::unique_ptr<Others>...> slots;
};

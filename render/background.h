// Processes blocks, in their order, on another thread than the one that makes them.
#pragma once
#include <condition_variable>
#include <csignal>
#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

template <typename Block>
class Background {
public:
    // The most blocks that may wait.
    Background(size_t mostBlocks, std::function<void(const Block&)> workOnBlock)
        : most(mostBlocks), work(std::move(workOnBlock)) {
        // The main thread handles signals from outside. This thread keeps those that its own
        // writing raises.
        sigset_t outside, before;
        sigfillset(&outside);
        sigdelset(&outside, SIGPIPE);
        sigdelset(&outside, SIGXFSZ);
        pthread_sigmask(SIG_SETMASK, &outside, &before);
        thread = std::thread([this] { Run(); });
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }
    // Discards blocks that have not been processed.
    ~Background() {
        {
            const std::lock_guard lock(mutex);
            blocks.clear();
        }
        End();
    }
    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;

    // Waits if the most blocks wait already. If the work has thrown, throws the same, and no more
    // work is done.
    void Put(Block block) {
        {
            std::unique_lock lock(mutex);
            changed.wait(lock, [this] { return blocks.size() < most || failure; });
            if (failure) std::rethrow_exception(failure);
            blocks.push_back(std::move(block));
        }
        changed.notify_all();
    }

    // Waits until every block is processed. If the work has thrown, throws the same.
    void Finish() {
        End();
        if (failure) std::rethrow_exception(failure);
    }

private:
    void End() {
        if (!thread.joinable()) return;
        {
            const std::lock_guard lock(mutex);
            ended = true;
        }
        changed.notify_all();
        thread.join();
    }

    void Run() {
        std::unique_lock lock(mutex);
        while (true) {
            changed.wait(lock, [this] { return ended || !blocks.empty(); });
            if (blocks.empty()) return;
            const Block block = std::move(blocks.front());
            blocks.pop_front();
            lock.unlock();
            changed.notify_all();
            std::exception_ptr thrown;
            try {
                work(block);
            } catch (...) {
                thrown = std::current_exception();
            }
            lock.lock();
            if (!thrown) continue;
            failure = thrown;
            changed.notify_all();
            return;
        }
    }

    size_t most;
    std::function<void(const Block&)> work;
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Block> blocks;
    bool ended = false;
    std::exception_ptr failure;
    std::thread thread;
};

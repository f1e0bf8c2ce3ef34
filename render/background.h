// Processes items one after the other on a separate thread. The caller goes on while they wait.
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
#include <vector>

template <typename Item>
class Background {
public:
    // At most `mostItems` items wait at a time. `processItem` processes one item on the thread.
    Background(size_t mostItems, std::function<void(const Item&)> processItem)
        : most(mostItems), work(std::move(processItem)) {
        // The main thread handles signals from outside. The new thread receives only those that its
        // own writing causes.
        sigset_t outside, before;
        sigfillset(&outside);
        sigdelset(&outside, SIGPIPE);
        sigdelset(&outside, SIGXFSZ);
        pthread_sigmask(SIG_SETMASK, &outside, &before);
        thread = std::thread([this] { Run(); });
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }
    // Discards items that have not been processed.
    ~Background() {
        {
            const std::lock_guard lock(mutex);
            items.clear();
        }
        End();
    }
    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;

    // Adds an item. Waits while the largest number of items is waiting. If processing has thrown an
    // exception, throws that exception, and no further items are processed. Returns a processed
    // item if there is one, otherwise an empty item. Its memory can be used again.
    Item Put(Item item) {
        Item processed;
        {
            std::unique_lock lock(mutex);
            changed.wait(lock, [this] { return items.size() < most || failure; });
            if (failure) std::rethrow_exception(failure);
            items.push_back(std::move(item));
            if (!spare.empty()) {
                processed = std::move(spare.back());
                spare.pop_back();
            }
        }
        changed.notify_all();
        return processed;
    }

    // Waits until all items are processed. If processing has thrown an exception, throws it.
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
            changed.wait(lock, [this] { return ended || !items.empty(); });
            if (items.empty()) return;
            Item item = std::move(items.front());
            items.pop_front();
            lock.unlock();
            changed.notify_all();
            std::exception_ptr thrown;
            try {
                work(item);
            } catch (...) {
                thrown = std::current_exception();
            }
            lock.lock();
            spare.push_back(std::move(item));
            if (!thrown) continue;
            failure = thrown;
            changed.notify_all();
            return;
        }
    }

    size_t most;
    std::function<void(const Item&)> work;
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Item> items;
    std::vector<Item> spare;  // processed items that Put has not returned
    bool ended = false;
    std::exception_ptr failure;
    std::thread thread;
};

#pragma once
// Aborts the test program when a test outlives its budget, so a lost wake-up
// shows as a failure with a name instead of a hung run.
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>

namespace zr::test {

class Watchdog {
public:
    explicit Watchdog(std::chrono::seconds budget = std::chrono::seconds(20)) {
        thread_ = std::thread([this, budget] {
            std::unique_lock lock(mu_);
            if (!cv_.wait_for(lock, budget, [this] { return done_; })) {
                std::fprintf(stderr, "watchdog: test exceeded its time budget\n");
                std::abort();
            }
        });
    }
    ~Watchdog() {
        {
            std::lock_guard lock(mu_);
            done_ = true;
        }
        cv_.notify_all();
        thread_.join();
    }

private:
    std::mutex mu_;
    std::condition_variable cv_;
    bool done_ = false;
    std::thread thread_;
};

}  // namespace zr::test

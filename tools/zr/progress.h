// A progress bar on stderr for runs that take longer than a second. Quiet
// when stderr is not a terminal, so logs and pipes stay clean.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace zrtool {

class Progress {
public:
    // total: the number of steps; the bar fills as done() counts them.
    Progress(std::string label, int total);
    ~Progress();  // erases the bar
    void done(int steps);
    // Text shown after the bar, such as a rate; may change at any time.
    void detail(std::string text);

private:
    void run();
    void draw(double seconds);

    std::string label_;
    int total_;
    std::atomic<int> done_{0};
    bool enabled_;
    bool drawn_ = false;
    std::chrono::steady_clock::time_point start_;
    std::mutex mutex_;
    std::string detail_;
    std::condition_variable wake_;
    bool stop_ = false;
    std::thread thread_;
};

}  // namespace zrtool

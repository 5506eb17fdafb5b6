#include "progress.h"

#include <unistd.h>

#include <cstdio>

namespace zrtool {

Progress::Progress(std::string label, int total)
    : label_(std::move(label)), total_(total), enabled_(isatty(STDERR_FILENO) == 1),
      start_(std::chrono::steady_clock::now()) {
    if (enabled_) thread_ = std::thread([this] { run(); });
}

Progress::~Progress() {
    if (!enabled_) return;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stop_ = true;
    }
    wake_.notify_all();
    thread_.join();
    if (drawn_) std::fprintf(stderr, "\r\033[K");
}

void Progress::done(int steps) { done_.store(steps); }

void Progress::detail(std::string text) {
    std::lock_guard<std::mutex> lock(mutex_);
    detail_ = std::move(text);
}

void Progress::run() {
    std::unique_lock<std::mutex> lock(mutex_);
    // Nothing for the first second: most runs are over by then.
    if (wake_.wait_for(lock, std::chrono::seconds(1), [this] { return stop_; })) return;
    do {
        draw(std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count());
    } while (!wake_.wait_for(lock, std::chrono::milliseconds(200), [this] { return stop_; }));
}

void Progress::draw(double seconds) {
    constexpr int kBar = 30;
    const int n = done_.load();
    // A sweep gives no news until it ends, so within one the bar shows a
    // moving segment instead of pretending to know the fraction.
    char bar[kBar + 1];
    const int filled = total_ > 0 ? n * kBar / total_ : 0;
    const int pulse = static_cast<int>(seconds * 8) % kBar;
    for (int i = 0; i < kBar; ++i) bar[i] = i < filled ? '#' : (i == pulse && n < total_ ? '>' : '.');
    bar[kBar] = '\0';
    if (total_ > 0)
        std::fprintf(stderr, "\r%s [%s] %d/%d  %.1f s  %s\033[K", label_.c_str(), bar, n, total_, seconds, detail_.c_str());
    else  // open-ended: a count, not a fraction
        std::fprintf(stderr, "\r%s [%s] %d  %.1f s  %s\033[K", label_.c_str(), bar, n, seconds, detail_.c_str());
    std::fflush(stderr);
    drawn_ = true;
}

}  // namespace zrtool

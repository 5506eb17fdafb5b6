#pragma once
// Threads with names and best-effort priorities, and the events engines use
// to hand work between their threads and the caller.
//
// Linux caps a thread name at 15 characters, too short for names like
// "ZR Sweep Work Thread"; the full name lives in our own registry (tools and
// tests look threads up there) and the OS gets a shortened form.
//
// Priorities are hints: time-critical and above-normal threads ask for a
// lower nice value, which needs privileges and is silently skipped without
// them. Real-time scheduling is never used: a spinning time-critical thread
// under SCHED_FIFO can freeze a two-core machine.

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace zr {

enum class ThreadPriority { Normal, AboveNormal, TimeCritical };

// The OS form of a thread name: at most 15 characters, keeping the words
// that tell threads apart ("ZR Sweep Work Thread" -> "ZRSweepWork").
std::string shortThreadName(const std::string& fullName);

class NamedThread {
public:
    NamedThread() = default;
    NamedThread(std::string name, ThreadPriority priority, std::function<void()> body);
    NamedThread(NamedThread&&) noexcept;
    NamedThread& operator=(NamedThread&&) noexcept;
    NamedThread(const NamedThread&) = delete;
    NamedThread& operator=(const NamedThread&) = delete;
    ~NamedThread();  // joins

    void join();
    bool joinable() const { return thread_.joinable(); }
    const std::string& name() const { return name_; }

private:
    std::string name_;
    std::thread thread_;
};

// Full names of the registered threads alive right now, in start order.
std::vector<std::string> liveThreadNames();

// An event in the two flavours engines need. Auto-reset releases one waiter
// and clears itself; manual-reset stays set until reset.
class Event {
public:
    explicit Event(bool manualReset = false, bool initiallySet = false)
        : manual_(manualReset), set_(initiallySet) {}

    void set() {
        {
            std::lock_guard<std::mutex> lock(m_);
            set_ = true;
        }
        if (manual_) cv_.notify_all();
        else cv_.notify_one();
    }
    void reset() {
        std::lock_guard<std::mutex> lock(m_);
        set_ = false;
    }
    bool isSet() {
        std::lock_guard<std::mutex> lock(m_);
        return set_;
    }
    // True when the event was set within the time-out.
    bool wait(std::chrono::milliseconds timeout) {
        std::unique_lock<std::mutex> lock(m_);
        if (!cv_.wait_for(lock, timeout, [&] { return set_; })) return false;
        if (!manual_) set_ = false;
        return true;
    }
    void wait() {
        std::unique_lock<std::mutex> lock(m_);
        cv_.wait(lock, [&] { return set_; });
        if (!manual_) set_ = false;
    }

private:
    std::mutex m_;
    std::condition_variable cv_;
    const bool manual_;
    bool set_;
};

}  // namespace zr

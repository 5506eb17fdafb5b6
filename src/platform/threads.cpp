#include "platform/threads.h"

#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <list>

namespace zr {

namespace {

struct Registry {
    std::mutex m;
    std::list<std::pair<std::thread::id, std::string>> live;
};

Registry& registry() {
    static Registry r;
    return r;
}

void applyPriority(ThreadPriority p) {
    if (p == ThreadPriority::Normal) return;
    const int nice = p == ThreadPriority::TimeCritical ? -10 : -5;
    const pid_t tid = static_cast<pid_t>(::syscall(SYS_gettid));
    // Without CAP_SYS_NICE this fails with EACCES; the thread runs at the
    // normal priority, which is correct, only with less margin.
    (void)::setpriority(PRIO_PROCESS, static_cast<id_t>(tid), nice);
}

}  // namespace

std::string shortThreadName(const std::string& fullName) {
    std::string out;
    std::string word;
    auto flush = [&] {
        // "Thread" says nothing about which thread it is.
        if (!word.empty() && word != "Thread") out += word;
        word.clear();
    };
    for (char c : fullName) {
        if (std::isalnum(static_cast<unsigned char>(c))) word += c;
        else flush();
    }
    flush();
    if (out.size() > 15) out.resize(15);
    return out;
}

NamedThread::NamedThread(std::string name, ThreadPriority priority, std::function<void()> body)
    : name_(std::move(name)) {
    const std::string osName = shortThreadName(name_);
    const std::string fullName = name_;
    thread_ = std::thread([osName, fullName, priority, body = std::move(body)] {
        ::pthread_setname_np(::pthread_self(), osName.c_str());
        applyPriority(priority);
        Registry& r = registry();
        std::list<std::pair<std::thread::id, std::string>>::iterator self;
        {
            std::lock_guard<std::mutex> lock(r.m);
            self = r.live.emplace(r.live.end(), std::this_thread::get_id(), fullName);
        }
        body();
        std::lock_guard<std::mutex> lock(r.m);
        r.live.erase(self);
    });
}

NamedThread::NamedThread(NamedThread&& o) noexcept : name_(std::move(o.name_)), thread_(std::move(o.thread_)) {}

NamedThread& NamedThread::operator=(NamedThread&& o) noexcept {
    if (this != &o) {
        join();
        name_ = std::move(o.name_);
        thread_ = std::move(o.thread_);
    }
    return *this;
}

NamedThread::~NamedThread() { join(); }

void NamedThread::join() {
    if (thread_.joinable()) thread_.join();
}

std::vector<std::string> liveThreadNames() {
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.m);
    std::vector<std::string> names;
    for (const auto& e : r.live) names.push_back(e.second);
    return names;
}

}  // namespace zr

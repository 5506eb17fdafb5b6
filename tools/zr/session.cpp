#include "session.h"

#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

namespace zrtool {

namespace {

const char* openHint(ZrStatus status) {
    switch (status) {
        case zrDeviceNotFoundErr:
            return "zr list shows the instruments that can be opened; with --sim, use a serial given to --sim";
        case zrMaxDevicesErr: return "nine instruments are open in this process already";
        case zrBootErr: case zrFPGABootErr: case zrFX3LoadErr:
            return "unplug the instrument, plug it back in and try again";
        case zrInvalidCalFileVersionErr: return "the instrument's calibration is older than this library accepts";
        default: return nullptr;
    }
}

}  // namespace

std::string statusText(int status) {
    std::string s = zrGetErrorString(status);
    while (!s.empty() && (s.back() == '\n' || s.back() == '\r')) s.pop_back();
    return s;
}

int fail(const std::string& what, int status, const char* hint) {
    std::fprintf(stderr, "zr: %s: %s\n", what.c_str(), statusText(status).c_str());
    if (hint) std::fprintf(stderr, "    hint: %s\n", hint);
    return 1;
}

void warn(const std::string& what, int status, const char* hint) {
    std::fprintf(stderr, "zr: warning: %s: %s\n", what.c_str(), statusText(status).c_str());
    if (hint) std::fprintf(stderr, "    hint: %s\n", hint);
}

bool check(const std::string& what, ZrStatus status, int* rc, const char* hint) {
    if (status < 0) {
        *rc = fail(what, status, hint);
        return false;
    }
    if (status > 0) warn(what, status);
    return true;
}

OpenDevice::~OpenDevice() {
    if (handle_ >= 0) zrCloseDevice(handle_);
}

bool OpenDevice::open(const Invocation& inv, int* rc) {
    int h = -1;
    const ZrStatus s = inv.serial ? zrOpenDeviceBySerial(&h, *inv.serial) : zrOpenDevice(&h);
    const std::string what = inv.serial ? "open " + std::to_string(*inv.serial) : std::string("open");
    if (s < 0) {
        *rc = fail(what, s, openHint(s));
        return false;
    }
    handle_ = h;
    if (s > 0) warn(what, s);
    zrGetDeviceInfo(h, &type_, &serial_);
    return true;
}

bool writablePath(const std::string& path, std::string* error) {
    struct stat st {};
    if (stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
        *error = path + " is a folder";
        return false;
    }
    const size_t slash = path.find_last_of('/');
    const std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    if (stat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        *error = "no folder " + folder;
        return false;
    }
    if (access(folder.c_str(), W_OK) != 0) {
        *error = "cannot write into " + folder;
        return false;
    }
    return true;
}

int checkOutputs(std::initializer_list<std::string> paths) {
    std::string error;
    for (const std::string& path : paths) {
        if (!path.empty() && !writablePath(path, &error)) {
            std::fprintf(stderr, "zr: %s\n", error.c_str());
            return 2;
        }
    }
    return 0;
}

namespace {
volatile std::sig_atomic_t gInterrupted = 0;
void onInterrupt(int) { gInterrupted = 1; }
}  // namespace

struct InterruptGuard::Saved {
    struct sigaction old {};
};

InterruptGuard::InterruptGuard() : saved_(new Saved) {
    gInterrupted = 0;
    struct sigaction sa {};
    sa.sa_handler = onInterrupt;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, &saved_->old);
}

InterruptGuard::~InterruptGuard() {
    sigaction(SIGINT, &saved_->old, nullptr);
    delete saved_;
}

bool interrupted() { return gInterrupted != 0; }

}  // namespace zrtool

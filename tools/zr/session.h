// What every command that opens an instrument shares: status reporting
// with hints, and a handle that is closed on every way out.
#pragma once

#include <initializer_list>
#include <string>

#include "cli.h"
#include "zr_api.h"

namespace zrtool {

// The library's text for a status, without a trailing newline.
std::string statusText(int status);
// Reports an error (and a hint) on stderr; returns exit status 1.
int fail(const std::string& what, int status, const char* hint);
void warn(const std::string& what, int status, const char* hint = nullptr);
// Errors stop the command (rc set); warnings are reported and it goes on.
bool check(const std::string& what, ZrStatus status, int* rc, const char* hint = nullptr);

// An open handle, closed on every way out of a command.
class OpenDevice {
public:
    OpenDevice() = default;
    OpenDevice(const OpenDevice&) = delete;
    OpenDevice& operator=(const OpenDevice&) = delete;
    ~OpenDevice();
    // The instrument of --serial, or the first one listed.
    bool open(const Invocation& inv, int* rc);
    int handle() const { return handle_; }
    ZrDeviceType type() const { return type_; }
    int serial() const { return serial_; }

private:
    int handle_ = -1;
    ZrDeviceType type_ = zrDeviceTypeMesa1;
    int serial_ = 0;
};

// Ctrl-C ends a run after the unit in progress (a sweep, a block of
// audio): it completes, everything complete is written, and the
// instrument is closed. Installed for the guard's life.
class InterruptGuard {
public:
    InterruptGuard();
    ~InterruptGuard();
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

private:
    struct Saved;
    Saved* saved_;
};
bool interrupted();

// A file can be written at `path`: its folder exists and takes files, and
// the path is not a folder. Checked before an instrument is opened.
bool writablePath(const std::string& path, std::string* error);
// 0 when every non-empty path can be written; else says why and gives 2,
// the exit status of a usage error.
int checkOutputs(std::initializer_list<std::string> paths);

}  // namespace zrtool

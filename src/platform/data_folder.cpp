#include "platform/data_folder.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <vector>

#include "platform/guard.h"
#include "zr_api.h"

namespace zr {

namespace {

std::mutex folderMutex;
bool folderKnown = false;
std::string folder;

std::string withSlash(std::string p) {
    if (!p.empty() && p.back() != '/') p += '/';
    return p;
}

std::string homeFolder() {
    long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buf(size > 0 ? static_cast<size_t>(size) : 16384);
    struct passwd pw;
    struct passwd* result = nullptr;
    if (::getpwuid_r(::getuid(), &pw, buf.data(), buf.size(), &result) != 0 || !result || !pw.pw_dir)
        return {};
    return pw.pw_dir;
}

std::string defaultFolder() {
    const std::string machineWide = "/var/lib/Quillon/";
    if (makeWritableFolder(machineWide)) return machineWide;
    const std::string home = homeFolder();
    if (!home.empty()) {
        const std::string perUser = withSlash(home) + ".local/share/Quillon/";
        if (makeWritableFolder(perUser)) return perUser;
    }
    return {};
}

}  // namespace

bool makeWritableFolder(const std::string& path) {
    if (path.empty()) return false;
    std::string partial;
    for (size_t i = 0; i <= path.size(); ++i) {
        if (i == path.size() || path[i] == '/') {
            if (!partial.empty()) {
                if (::mkdir(partial.c_str(), 0755) != 0 && errno != EEXIST) return false;
            }
        }
        if (i < path.size()) partial += path[i];
    }
    struct stat st;
    if (::stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return false;
    return ::access(path.c_str(), W_OK | X_OK) == 0;
}

std::string appDataFolder() {
    std::lock_guard<std::mutex> lock(folderMutex);
    if (!folderKnown) {
        folder = defaultFolder();
        folderKnown = true;
    }
    return folder;
}

std::string calFilesFolder() {
    const std::string base = appDataFolder();
    const std::string cal = base + "cal_files/";
    if (!base.empty()) makeWritableFolder(cal);
    return cal;
}

bool setAppDataFolder(const std::string& path) {
    const std::string p = withSlash(path);
    if (!makeWritableFolder(p)) return false;
    std::lock_guard<std::mutex> lock(folderMutex);
    folder = p;
    folderKnown = true;
    return true;
}

}  // namespace zr

extern "C" ZR_EXPORT ZrStatus zrSetDataFolder(const char* path) {
    return zr::guarded([&] {
        if (!path) return zrNullPtrErr;
        if (!*path) return zrInvalidParameterErr;
        return zr::setAppDataFolder(path) ? zrNoError : zrInvalidParameterErr;
    });
}

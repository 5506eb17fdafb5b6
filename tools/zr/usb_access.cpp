#include "usb_access.h"

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>

namespace zrtool {

namespace {

std::string firstLine(const std::string& path) {
    std::ifstream f(path);
    std::string line;
    std::getline(f, line);
    return line;
}

}  // namespace

std::vector<UsbNode> instrumentNodes(const std::string& sysRoot, const std::string& devRoot) {
    std::vector<UsbNode> nodes;
    DIR* d = opendir(sysRoot.c_str());
    if (!d) return nodes;
    while (dirent* e = readdir(d)) {
        if (e->d_name[0] == '.') continue;
        const std::string dir = sysRoot + "/" + e->d_name;
        if (firstLine(dir + "/idVendor") != "7a31") continue;
        UsbNode n;
        try {
            n.bus = std::stoi(firstLine(dir + "/busnum"));
            n.device = std::stoi(firstLine(dir + "/devnum"));
        } catch (...) {
            continue;
        }
        char name[32];
        std::snprintf(name, sizeof name, "/%03d/%03d", n.bus, n.device);
        n.path = devRoot + name;
        n.accessible = access(n.path.c_str(), R_OK | W_OK) == 0;
        nodes.push_back(n);
    }
    closedir(d);
    return nodes;
}

}  // namespace zrtool

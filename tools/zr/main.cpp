// zr: command-line front end of zr_api. Works on real instruments and, with
// --sim, on simulated ones plugged into this process.
#include <cstdio>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"

int main(int argc, char** argv) {
    using namespace zrtool;
    Invocation inv;
    std::string error;
    if (!parseCommandLine(std::vector<std::string>(argv + 1, argv + argc), &inv, &error)) {
        std::fprintf(stderr, "zr: %s\n", error.c_str());
        return 2;
    }
    if (inv.help) {
        std::fputs(helpText(inv.command).c_str(), stdout);
        return 0;
    }
    if (int rc = prepareSession(inv)) return rc;
    if (inv.command == "list") return runList(inv);
    if (inv.command == "info") return runInfo(inv);
    if (inv.command == "sweep") return runSweep(inv);
    if (inv.command == "iq") return runIQ(inv);
    if (inv.command == "audio") return runAudio(inv);
    if (inv.command == "vrt") return runVrt(inv);
    return runVersion(inv);
}

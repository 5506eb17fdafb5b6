// zr: command-line front end of zr_api. Works on real instruments and, with
// --sim, on simulated ones plugged into this process.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "zr_api.h"
#include "zr_sim.h"

namespace {

const char* modelName(ZrDeviceType t) {
    switch (t) {
        case zrDeviceTypeMesa1: return "Mesa1";
        case zrDeviceTypeMesa2: return "Mesa2";
        case zrDeviceTypeMesa3: return "Mesa3";
        case zrDeviceTypeRidge2: return "Ridge2";
        case zrDeviceTypeRidge3: return "Ridge3";
    }
    return "unknown";
}

void usage(FILE* out) {
    std::fprintf(out,
                 "usage: zr [--sim MODEL[:SERIAL]]... COMMAND\n"
                 "\n"
                 "commands:\n"
                 "  list        instruments on USB that no program holds open\n"
                 "  version     library version\n"
                 "\n"
                 "options:\n"
                 "  --sim MODEL[:SERIAL]  plug a simulated instrument (Mesa1, Mesa2, Ridge2) into\n"
                 "                        this process; SERIAL has 8 digits (default 10000001,\n"
                 "                        counting up). Repeatable.\n"
                 "  -h, --help            this text\n");
}

bool parseModel(const std::string& name, ZrDeviceType* type) {
    if (name == "Mesa1") *type = zrDeviceTypeMesa1;
    else if (name == "Mesa2") *type = zrDeviceTypeMesa2;
    else if (name == "Ridge2") *type = zrDeviceTypeRidge2;
    else return false;
    return true;
}

int fail(const char* what, int status, const char* hint) {
    std::fprintf(stderr, "zr: %s: %s", what, zrGetErrorString(status));
    const size_t n = std::strlen(zrGetErrorString(status));
    if (n == 0 || zrGetErrorString(status)[n - 1] != '\n') std::fputc('\n', stderr);
    if (hint) std::fprintf(stderr, "    hint: %s\n", hint);
    return 1;
}

int attachSimulated(const std::string& spec, int* nextSerial) {
    const size_t colon = spec.find(':');
    ZrDeviceType type;
    if (!parseModel(spec.substr(0, colon), &type)) {
        std::fprintf(stderr, "zr: --sim %s: unknown model (Mesa1, Mesa2 or Ridge2)\n", spec.c_str());
        return 2;
    }
    int serial = (*nextSerial)++;
    if (colon != std::string::npos) {
        const std::string digits = spec.substr(colon + 1);
        char* end = nullptr;
        const long v = std::strtol(digits.c_str(), &end, 10);
        if (digits.size() != 8 || *end != '\0' || v < 10000000) {
            std::fprintf(stderr, "zr: --sim %s: the serial must have 8 digits\n", spec.c_str());
            return 2;
        }
        serial = static_cast<int>(v);
    }
    const ZrStatus s = zrSimAttachUSB(type, serial);
    if (s != zrNoError) return fail(("--sim " + spec).c_str(), s, "each simulated serial may be plugged once");
    return 0;
}

int listInstruments() {
    int serials[9];
    ZrDeviceType types[9];
    int count = 0;
    const ZrStatus s = zrGetDeviceList2(serials, types, &count);
    if (s < 0) return fail("list", s, nullptr);
    if (count == 0) {
        std::printf("no instruments found (plug one in, or try --sim Mesa2)\n");
        return 0;
    }
    std::printf("%-10s %-8s\n", "SERIAL", "MODEL");
    for (int i = 0; i < count; ++i) std::printf("%08d   %-8s\n", serials[i], modelName(types[i]));
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    int nextSerial = 10000001;
    std::string command;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "-h" || a == "--help") {
            usage(stdout);
            return 0;
        } else if (a == "--sim") {
            if (i + 1 >= args.size()) {
                std::fprintf(stderr, "zr: --sim needs MODEL[:SERIAL]\n");
                return 2;
            }
            if (int rc = attachSimulated(args[++i], &nextSerial)) return rc;
        } else if (a.rfind("--", 0) == 0) {
            std::fprintf(stderr, "zr: unknown option %s (see zr --help)\n", a.c_str());
            return 2;
        } else if (command.empty()) {
            command = a;
        } else {
            std::fprintf(stderr, "zr: unexpected argument %s (see zr --help)\n", a.c_str());
            return 2;
        }
    }
    if (command == "list") return listInstruments();
    if (command == "version") {
        std::printf("zr_api %s\n", zrGetAPIVersion());
        return 0;
    }
    if (command.empty()) {
        usage(stderr);
        return 2;
    }
    std::fprintf(stderr, "zr: unknown command %s (see zr --help)\n", command.c_str());
    return 2;
}

// Walks every export that takes a handle with hostile arguments. Run under
// the sanitizers, a crash or an out-of-bounds access here fails the build.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "support/fake_transport.h"

using namespace zr;
using zr::test::InstalledDevice;

namespace {

struct Export {
    std::string name;
    std::function<ZrStatus(int)> call;  // every pointer valid, every value legal
};

double g_d[8];
int g_i[8];
float g_f[8];

std::vector<Export> handleExports() {
    return {
        {"zrGetDeviceInfo", [](int h) { ZrDeviceType t; return zrGetDeviceInfo(h, &t, &g_i[0]); }},
        {"zrGetFirmwareVersion", [](int h) { return zrGetFirmwareVersion(h, &g_i[0], &g_i[1], &g_i[2]); }},
        {"zrHasIFOutput", [](int h) { ZrBool b; return zrHasIFOutput(h, &b); }},
        {"zrGetSweepSettings", [](int h) { ZrSweepSettings s; return zrGetSweepSettings(h, &s); }},
        {"zrGetSweepParameters", [](int h) { return zrGetSweepParameters(h, &g_d[0], &g_d[1], &g_d[2], &g_d[3], &g_i[0]); }},
        {"zrGetRealTimeSettings", [](int h) { ZrRealTimeSettings s; return zrGetRealTimeSettings(h, &s); }},
        {"zrGetRealTimeParameters", [](int h) { return zrGetRealTimeParameters(h, &g_d[0], &g_i[0], &g_d[1], &g_d[2], &g_i[1], &g_i[2], &g_d[3]); }},
        {"zrGetIQParameters", [](int h) { return zrGetIQParameters(h, &g_d[0], &g_d[1]); }},
        {"zrGetIQCenterFreq", [](int h) { return zrGetIQCenterFreq(h, &g_d[0]); }},
        {"zrGetIQSweepListSteps", [](int h) { return zrGetIQSweepListSteps(h, &g_i[0]); }},
        {"zrSetCustomFreq", [](int h) { return zrSetCustomFreq(h, 1e9); }},
        {"zrSetCustomRegister", [](int h) { return zrSetCustomRegister(h, 1u, 2u); }},
        {"zrGetFPGABuildInfo", [](int h) { return zrGetFPGABuildInfo(h); }},
        {"zrIsSecondaryBuildPresent", [](int h) { return zrIsSecondaryBuildPresent(h); }},
        {"zrReplaceSecondaryBuild", [](int h) { return zrReplaceSecondaryBuild(h); }},
        {"zrStartCustomData", [](int h) { return zrStartCustomData(h, 1, g_f); }},
        {"zrFinishCustomData", [](int h) { return zrFinishCustomData(h); }},
    };
}

}  // namespace

TEST(Hostile, BadHandlesAreRejectedByEveryExport) {
    int freed;
    {
        InstalledDevice gone(zrDeviceTypeMesa2);
        freed = gone.handle();
    }
    for (const auto& e : handleExports())
        for (int h : {-1, 9, 1 << 30, std::numeric_limits<int>::min(), freed})
            EXPECT_EQ(e.call(h), zrInvalidDeviceErr) << e.name << " handle " << h;
}

TEST(Hostile, NullRequiredPointersAreRejected) {
    for (ZrDeviceType type : {zrDeviceTypeMesa1, zrDeviceTypeMesa2, zrDeviceTypeRidge2}) {
        InstalledDevice d(type);
        const int h = d.handle();
        for (ZrMode m : {zrModeIdle, zrModeSweeping, zrModeRealTime, zrModeIQStreaming, zrModeIQSegmentedCapture}) {
            d.device().currentMode = m;
            EXPECT_EQ(zrHasIFOutput(h, nullptr), zrNullPtrErr);
            EXPECT_EQ(zrGetSweepSettings(h, nullptr), zrNullPtrErr);
            EXPECT_EQ(zrGetRealTimeSettings(h, nullptr), zrNullPtrErr);
            EXPECT_EQ(zrGetIQCenterFreq(h, nullptr), zrNullPtrErr);
            EXPECT_EQ(zrGetIQSweepListSteps(h, nullptr), zrNullPtrErr);
            EXPECT_EQ(zrStartCustomData(h, 1, nullptr), zrNullPtrErr);
            // Optional results may all be null.
            EXPECT_GE(zrGetDeviceInfo(h, nullptr, nullptr), zrNoError);
            EXPECT_GE(zrGetFirmwareVersion(h, nullptr, nullptr, nullptr), zrNoError);
            EXPECT_NE(zrGetSweepParameters(h, nullptr, nullptr, nullptr, nullptr, nullptr), zrNullPtrErr);
            EXPECT_NE(zrGetRealTimeParameters(h, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), zrNullPtrErr);
            EXPECT_NE(zrGetIQParameters(h, nullptr, nullptr), zrNullPtrErr);
        }
        d.device().currentMode = zrModeIdle;
    }
}

TEST(Hostile, HostileValuesNeverReachTheInstrument) {
    InstalledDevice d(zrDeviceTypeMesa2);
    const int h = d.handle();
    for (int count : {-1, 0, 128, 1 << 30, std::numeric_limits<int>::min()})
        EXPECT_EQ(zrStartCustomData(h, count, g_f), zrInvalidParameterErr) << count;
    for (double v : {NAN, INFINITY, -INFINITY})
        EXPECT_EQ(zrSetCustomFreq(h, v), zrNoError);
    EXPECT_EQ(d.device().transport->status, zrNoError);
}

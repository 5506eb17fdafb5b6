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
uint32_t g_u[8];

std::vector<Export> handleExports() {
    return {
        {"zrGetDeviceInfo", [](int h) { ZrDeviceType t; return zrGetDeviceInfo(h, &t, &g_i[0]); }},
        {"zrGetFirmwareVersion", [](int h) { return zrGetFirmwareVersion(h, &g_i[0], &g_i[1], &g_i[2]); }},
        {"zrHasIFOutput", [](int h) { ZrBool b; return zrHasIFOutput(h, &b); }},
        {"zrSetIFOutput", [](int h) { return zrSetIFOutput(h, 3e10); }},
        {"zrConfigure", [](int h) { return zrConfigure(h, zrModeSweeping); }},
        {"zrAbort", [](int h) { return zrAbort(h); }},
        {"zrGetCurrentMode", [](int h) { ZrMode m; return zrGetCurrentMode(h, &m); }},
        {"zrGetSweepSettings", [](int h) { ZrSweepSettings s; return zrGetSweepSettings(h, &s); }},
        {"zrGetSweepParameters", [](int h) { return zrGetSweepParameters(h, &g_d[0], &g_d[1], &g_d[2], &g_d[3], &g_i[0]); }},
        {"zrGetRealTimeSettings", [](int h) { ZrRealTimeSettings s; return zrGetRealTimeSettings(h, &s); }},
        {"zrGetRealTimeParameters", [](int h) { return zrGetRealTimeParameters(h, &g_d[0], &g_i[0], &g_d[1], &g_d[2], &g_i[1], &g_i[2], &g_d[3]); }},
        {"zrGetIQParameters", [](int h) { return zrGetIQParameters(h, &g_d[0], &g_d[1]); }},
        {"zrGetIQCenterFreq", [](int h) { return zrGetIQCenterFreq(h, &g_d[0]); }},
        {"zrGetIQCorrection", [](int h) { return zrGetIQCorrection(h, &g_f[0]); }},
        {"zrGetIQ", [](int h) { return zrGetIQ(h, g_f, 2, g_d, 2, nullptr, zrTrue, &g_i[0], &g_i[1]); }},
        {"zrGetAudio", [](int h) { static float audio[1000]; return zrGetAudio(h, audio); }},
        {"zrGetVrtContextPkt", [](int h) { static uint32_t w[28]; return zrGetVrtContextPkt(h, w, &g_u[0]); }},
        {"zrGetVrtPackets", [](int h) { static uint32_t w[2 * 65535]; return zrGetVrtPackets(h, w, &g_u[0], 1, zrFalse); }},
        {"zrGetIQSweepListSteps", [](int h) { return zrGetIQSweepListSteps(h, &g_i[0]); }},
        {"zrSetCustomFreq", [](int h) { return zrSetCustomFreq(h, 1e9); }},
        {"zrSetCustomRegister", [](int h) { return zrSetCustomRegister(h, 1u, 2u); }},
        {"zrGetFPGABuildInfo", [](int h) { return zrGetFPGABuildInfo(h); }},
        {"zrIsSecondaryBuildPresent", [](int h) { return zrIsSecondaryBuildPresent(h); }},
        {"zrReplaceSecondaryBuild", [](int h) { return zrReplaceSecondaryBuild(h); }},
        {"zrStartCustomData", [](int h) { return zrStartCustomData(h, 1, g_f); }},
        {"zrFinishCustomData", [](int h) { return zrFinishCustomData(h); }},
        {"zrSetPowerState", [](int h) { return zrSetPowerState(h, zrPowerStateOn); }},
        {"zrGetPowerState", [](int h) { ZrPowerState p; return zrGetPowerState(h, &p); }},
        {"zrSetAttenuator", [](int h) { return zrSetAttenuator(h, 2); }},
        {"zrGetAttenuator", [](int h) { return zrGetAttenuator(h, &g_i[0]); }},
        {"zrSetRefLevel", [](int h) { return zrSetRefLevel(h, -10.0); }},
        {"zrGetRefLevel", [](int h) { return zrGetRefLevel(h, &g_d[0]); }},
        {"zrSetPreselector", [](int h) { return zrSetPreselector(h, zrTrue); }},
        {"zrGetPreselector", [](int h) { ZrBool b; return zrGetPreselector(h, &b); }},
        {"zrSetGPIOState", [](int h) { return zrSetGPIOState(h, 1, 1); }},
        {"zrGetGPIOState", [](int h) { return zrGetGPIOState(h, &g_i[0], &g_i[1]); }},
        {"zrWriteGPIOImm", [](int h) { return zrWriteGPIOImm(h, 1); }},
        {"zrReadGPIOImm", [](int h) { uint8_t v; return zrReadGPIOImm(h, &v); }},
        {"zrWriteSPI", [](int h) { return zrWriteSPI(h, 1, 1); }},
        {"zrSetGPIOSweep", [](int h) { ZrGPIOStep s{1e9, 1, {}}; return zrSetGPIOSweep(h, &s, 1); }},
        {"zrSetGPIOSweepDisabled", [](int h) { return zrSetGPIOSweepDisabled(h); }},
        {"zrSetGPIOSwitching", [](int h) { uint8_t v = 1; uint32_t d = 5; return zrSetGPIOSwitching(h, &v, &d, 1); }},
        {"zrSetGPIOSwitchingDisabled", [](int h) { return zrSetGPIOSwitchingDisabled(h); }},
        {"zrSetReference", [](int h) { return zrSetReference(h, 1); }},
        {"zrGetReference", [](int h) { return zrGetReference(h, &g_i[0]); }},
        {"zrSetExternalReference", [](int h) { return zrSetExternalReference(h, 1); }},
        {"zrGetExternalReference", [](int h) { return zrGetExternalReference(h, &g_i[0]); }},
        {"zrGetDeviceDiagnostics", [](int h) { return zrGetDeviceDiagnostics(h, &g_f[0], &g_f[1], &g_f[2]); }},
        {"zrGetFullDeviceDiagnostics", [](int h) { ZrDeviceDiagnostics d; return zrGetFullDeviceDiagnostics(h, &d); }},
        {"zrGetSFPDiagnostics", [](int h) { return zrGetSFPDiagnostics(h, &g_f[0], &g_f[1], &g_f[2], &g_f[3]); }},
        {"zrSetFanThreshold", [](int h) { return zrSetFanThreshold(h, 40); }},
        {"zrGetFanThreshold", [](int h) { return zrGetFanThreshold(h, &g_i[0]); }},
        {"zrGetCalDate", [](int h) { uint64_t s; return zrGetCalDate(h, &s); }},
        {"zrSetGPSTimebaseUpdate", [](int h) { return zrSetGPSTimebaseUpdate(h, zrTrue); }},
        {"zrGetGPSTimebaseUpdate", [](int h) { ZrBool b; return zrGetGPSTimebaseUpdate(h, &b); }},
        {"zrGetGPSHoldoverInfo", [](int h) { ZrBool b; uint64_t t; return zrGetGPSHoldoverInfo(h, &b, &t); }},
        {"zrGetGPSState", [](int h) { return zrGetGPSState(h, &g_i[0]); }},
        {"zrGetGPSInfo", [](int h) {
             ZrBool u; int64_t t; char nmea[1024]; int n = sizeof nmea;
             return zrGetGPSInfo(h, zrFalse, &u, &t, &g_d[0], &g_d[1], &g_d[2], nmea, &n);
         }},
        {"zrWriteToGPS", [](int h) { const uint8_t m[4] = {1, 2, 3, 4}; return zrWriteToGPS(h, m, 4); }},
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
            EXPECT_EQ(zrGetIQCorrection(h, nullptr), zrNullPtrErr);
            EXPECT_EQ(zrGetIQ(h, nullptr, 1, nullptr, 0, nullptr, zrFalse, nullptr, nullptr), zrNullPtrErr);
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

TEST(Hostile, EnumerationsAboveTheirLastMemberAreRejected) {
    InstalledDevice d(zrDeviceTypeRidge2);
    const int h = d.handle();
    for (int v : {2, 7, 100, -1}) {
        EXPECT_EQ(zrSetPowerState(h, static_cast<ZrPowerState>(v)), zrInvalidParameterErr) << v;
        EXPECT_EQ(zrSetPreselector(h, static_cast<ZrBool>(v)), zrInvalidParameterErr) << v;
        EXPECT_EQ(zrSetGPSTimebaseUpdate(h, static_cast<ZrBool>(v)), zrInvalidParameterErr) << v;
        EXPECT_EQ(zrSetReference(h, v), zrInvalidParameterErr) << v;
        EXPECT_EQ(zrSetGPIOState(h, v, 0), zrInvalidParameterErr) << v;
    }
    for (int v : {7, 100, -1}) {
        EXPECT_EQ(zrSetSweepWindow(h, static_cast<ZrWindowType>(v)), zrInvalidParameterErr) << v;
        EXPECT_EQ(zrSetAudioType(h, static_cast<ZrAudioType>(v)), zrInvalidParameterErr) << v;
        EXPECT_EQ(zrSetSweepDetector(h, zrDetectorAverage, static_cast<ZrVideoUnits>(v)), zrInvalidParameterErr) << v;
        EXPECT_EQ(zrSetIQFullBandTriggerType(h, static_cast<ZrTriggerType>(v)), zrInvalidParameterErr) << v;
    }
    // Non-finite doubles are refused where a double is taken.
    for (double v : {NAN, INFINITY, -INFINITY}) {
        EXPECT_EQ(zrSetRefLevel(h, v), zrInvalidParameterErr);
        EXPECT_EQ(zrSetIQCenterFreq(h, v), zrInvalidParameterErr);
        EXPECT_EQ(zrSetSweepCoupling(h, v, 1e3, 1.0), zrInvalidParameterErr);
        EXPECT_EQ(zrSetAudioFilters(h, 1e4, v, 100.0), zrInvalidParameterErr);
        EXPECT_EQ(zrSetSegIQVideoTrigger(h, v, zrTriggerEdge0), zrInvalidParameterErr);
        EXPECT_EQ(zrSetIQSweepListSteps(h, 1), zrNoError);
        EXPECT_EQ(zrSetIQSweepListRef(h, 0, v), zrInvalidParameterErr);
    }
    // Null pointers where a pointer is required.
    EXPECT_EQ(zrGetPowerState(h, nullptr), zrNullPtrErr);
    EXPECT_EQ(zrReadGPIOImm(h, nullptr), zrNullPtrErr);
    EXPECT_EQ(zrSetGPIOSweep(h, nullptr, 1), zrNullPtrErr);
    EXPECT_EQ(zrSetGPIOSwitching(h, nullptr, nullptr, 1), zrNullPtrErr);
    EXPECT_EQ(zrGetReference(h, nullptr), zrNullPtrErr);
    EXPECT_EQ(zrGetExternalReference(h, nullptr), zrNullPtrErr);
    EXPECT_EQ(zrGetFanThreshold(h, nullptr), zrNullPtrErr);
    EXPECT_EQ(zrGetGPSTimebaseUpdate(h, nullptr), zrNullPtrErr);
    EXPECT_EQ(zrGetGPSState(h, nullptr), zrNullPtrErr);
    EXPECT_EQ(zrWriteToGPS(h, nullptr, 4), zrNullPtrErr);
    EXPECT_EQ(zrGetDeviceList(nullptr, nullptr), zrNullPtrErr);
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

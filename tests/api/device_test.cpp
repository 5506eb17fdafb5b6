#include <gtest/gtest.h>

#include <cstring>

#include "support/fake_transport.h"

using namespace zr;
using zr::test::InstalledDevice;

TEST(Models, RecurringTestsAndLimits) {
    struct Row { ZrDeviceType t; bool net, ridge, capture; double fmax; uint32_t cal; };
    const Row rows[] = {
        {zrDeviceTypeMesa1, false, false, false, 20.6e9, 0x400000},
        {zrDeviceTypeMesa2, false, false, true, 20.6e9, 0x400000},
        {zrDeviceTypeMesa3, true, false, false, 20.6e9, 0x400000},
        {zrDeviceTypeRidge2, false, true, true, 44.2e9, 0x800000},
        {zrDeviceTypeRidge3, true, true, false, 44.2e9, 0x800000},
    };
    for (const auto& r : rows) {
        EXPECT_EQ(isNetworked(r.t), r.net) << r.t;
        EXPECT_EQ(isRidge(r.t), r.ridge) << r.t;
        EXPECT_EQ(hasCaptureMemory(r.t), r.capture) << r.t;
        EXPECT_EQ(modelInfo(r.t).maxFrequency, r.fmax);
        EXPECT_EQ(modelInfo(r.t).calImageSize, r.cal);
        EXPECT_EQ(modelInfo(r.t).ifOutputPossible, r.ridge);
    }
    EXPECT_FALSE(isValidDeviceType(5));
    EXPECT_FALSE(isValidDeviceType(-1));
}

TEST(Models, FirmwareGates) {
    InstalledDevice d(zrDeviceTypeMesa1);
    ZrDevice& dev = d.device();
    struct Row { ZrDeviceType t; int ma, mi, rev; bool base, disc, gps, fullBand; };
    const Row rows[] = {
        {zrDeviceTypeMesa1, 4, 5, 7, false, false, false, false},
        {zrDeviceTypeMesa1, 4, 5, 8, true, false, false, false},
        {zrDeviceTypeMesa1, 4, 5, 9, true, true, false, false},
        {zrDeviceTypeMesa1, 4, 5, 10, true, true, true, false},
        // Each part compared by itself: a higher minor does not make up for
        // a lower revision.
        {zrDeviceTypeMesa1, 4, 6, 3, false, false, false, false},
        {zrDeviceTypeMesa2, 4, 5, 10, false, false, false, false},
        {zrDeviceTypeMesa2, 4, 5, 11, true, false, false, false},
        {zrDeviceTypeMesa2, 4, 5, 12, true, true, false, false},
        {zrDeviceTypeMesa2, 4, 5, 13, true, true, true, false},
        {zrDeviceTypeMesa3, 6, 6, 3, true, true, false, false},
        {zrDeviceTypeMesa3, 6, 6, 4, true, true, true, false},
        {zrDeviceTypeMesa3, 7, 7, 4, true, true, true, false},
        {zrDeviceTypeMesa3, 7, 7, 5, true, true, true, true},
        {zrDeviceTypeRidge2, 0, 0, 0, true, true, true, false},
        {zrDeviceTypeRidge3, 9, 9, 9, true, true, true, false},
    };
    for (const auto& r : rows) {
        dev.deviceType = r.t;
        dev.firmwareMajor = r.ma;
        dev.firmwareMinor = r.mi;
        dev.firmwareRevision = r.rev;
        SCOPED_TRACE(::testing::Message() << r.t << " " << r.ma << "." << r.mi << "." << r.rev);
        EXPECT_EQ(dev.allowsIQBaseRate(), r.base);
        EXPECT_EQ(dev.disciplinesTimebaseInFirmware(), r.disc);
        EXPECT_EQ(dev.allowsWriteToGPS(), r.gps);
        EXPECT_EQ(dev.allowsFullBandTrigger(), r.fullBand);
    }
}

// Defaults that a rejected setter leaves in place are pinned by the settings
// table and the service tests; these are the ones nothing else reads back.
TEST(DeviceDefaults, NewDeviceHoldsEveryDefault) {
    for (ZrDeviceType type : {zrDeviceTypeMesa2, zrDeviceTypeRidge2}) {
        InstalledDevice d(type, 87654321);
        const ZrDevice& dev = d.device();
        SCOPED_TRACE(type);
        EXPECT_EQ(dev.serialNumber, 87654321);
        EXPECT_EQ(dev.maxFrequency, isRidge(type) ? 44.2e9 : 20.6e9);
        EXPECT_EQ(dev.currentMode, zrModeIdle);
        EXPECT_EQ(dev.powerState, zrPowerStateStandby);
        // -1: no loss count or ring position seen yet.
        EXPECT_EQ(dev.status.load().lossCounter, -1);
        EXPECT_EQ(dev.gpsPulses.readIndex, -1);
        EXPECT_EQ(dev.attenuator, -1);
        EXPECT_EQ(dev.refLevel, 0.0);
        EXPECT_EQ(dev.loOffset, 0u);
        EXPECT_EQ(dev.fanThreshold, 50u);
        EXPECT_EQ(dev.networkFragmentation, 0);
        EXPECT_EQ(dev.status.load().lastStatusTick, 0u);

        const ZrSweepSettings& s = dev.sweep;
        EXPECT_EQ(s.rbw, 100000.0);
        EXPECT_EQ(s.vbw, 100000.0);
        EXPECT_EQ(s.sweepTime, 0.0);
        EXPECT_EQ(s.actualRBW, 0.0);
        EXPECT_EQ(s.sweepLength, 0);
        // 100 kHz to 20.6 GHz on every model.
        EXPECT_DOUBLE_EQ(s.center - s.span / 2, 100e3);
        EXPECT_DOUBLE_EQ(s.center + s.span / 2, 20.6e9);

        EXPECT_EQ(dev.realTime.center, 1e9);
        EXPECT_EQ(dev.realTime.rbw, 30000.0);
        EXPECT_EQ(dev.realTime.scale, zrScaleLog);
        EXPECT_EQ(dev.realTime.dynamicRange, 100.0);

        EXPECT_EQ(dev.iq.center, 1e9);
        EXPECT_EQ(dev.iq.softwareFilter, zrFalse);
        EXPECT_EQ(dev.iq.sampleRate, 5e7);

        const SegmentedSettings& sg = dev.segmented;
        EXPECT_EQ(sg.dataType, zrDataType32fc);
        EXPECT_EQ(sg.center, 1e9);
        EXPECT_EQ(sg.videoTriggerEdge, 0u);
        EXPECT_EQ(sg.extTriggerEdge, 0u);
        ASSERT_EQ(sg.maskAmplitudes.size(), 1u);
        EXPECT_EQ(sg.maskFrequencies[0], 0.0);
        EXPECT_EQ(sg.maskAmplitudes[0], -50.0);
        const ZrSegmentSettings seg;
        EXPECT_EQ(seg.triggerType, 0u);
        EXPECT_EQ(seg.preTrigger, 0);
        EXPECT_EQ(seg.timeout, 0.0);

        EXPECT_EQ(dev.audio.center, 97100.0);
        EXPECT_EQ(dev.audio.ifBandwidth, 200000.0);
        EXPECT_EQ(dev.audio.lowPass, 12000.0);
        EXPECT_EQ(dev.audio.highPass, 100.0);
        EXPECT_GE(dev.audio.fmDeemphasisUs, 1.0);
        EXPECT_LE(dev.audio.fmDeemphasisUs, 100.0);
        EXPECT_EQ(dev.iqSweepList.dataType, zrDataType32fc);
        EXPECT_EQ(dev.iqSweepList.uncorrected, 0);

        EXPECT_EQ(dev.engine, nullptr);
        EXPECT_EQ(dev.iqSource, nullptr);
    }
}

TEST(DeviceQueries, IdentityAndFirmwareWithOptionalResults) {
    InstalledDevice d(zrDeviceTypeRidge2, 20240001);
    d.device().firmwareMajor = 8;
    d.device().firmwareMinor = 2;
    d.device().firmwareRevision = 17;
    ZrDeviceType type = zrDeviceTypeMesa1;
    int serial = 0, ma = 0, mi = 0, rev = 0;
    EXPECT_EQ(zrGetDeviceInfo(d.handle(), &type, &serial), zrNoError);
    EXPECT_EQ(type, zrDeviceTypeRidge2);
    EXPECT_EQ(serial, 20240001);
    EXPECT_EQ(zrGetFirmwareVersion(d.handle(), &ma, &mi, &rev), zrNoError);
    EXPECT_EQ(ma * 10000 + mi * 100 + rev, 80217);
    // Every result is optional.
    EXPECT_EQ(zrGetFirmwareVersion(d.handle(), nullptr, &mi, nullptr), zrNoError);
    EXPECT_EQ(zrGetDeviceInfo(d.handle(), nullptr, nullptr), zrNoError);
}

TEST(DeviceQueries, IFOutputOnlyOnRidgeButAlwaysWritten) {
    InstalledDevice mesa(zrDeviceTypeMesa2);
    ZrBool present = zrTrue;
    EXPECT_EQ(zrHasIFOutput(mesa.handle(), &present), zrInvalidDeviceErr);
    EXPECT_EQ(present, zrFalse);
    EXPECT_EQ(zrHasIFOutput(mesa.handle(), nullptr), zrNullPtrErr);

    InstalledDevice ridge(zrDeviceTypeRidge2);
    EXPECT_EQ(zrHasIFOutput(ridge.handle(), &present), zrNoError);
    EXPECT_EQ(present, zrFalse);
    ridge.device().hasIFOutput = 1;
    EXPECT_EQ(zrHasIFOutput(ridge.handle(), &present), zrNoError);
    EXPECT_EQ(present, zrTrue);
}

TEST(DeviceQueries, IFOutputGatesInOrderThenTunesBandSix) {
    InstalledDevice mesa(zrDeviceTypeMesa2);
    EXPECT_EQ(zrSetIFOutput(mesa.handle(), 3e10), zrInvalidDeviceErr);

    InstalledDevice ridge(zrDeviceTypeRidge2);
    const int h = ridge.handle();
    ZrDevice& d = ridge.device();
    d.currentMode = zrModeSweeping;
    EXPECT_EQ(zrSetIFOutput(h, 1e9), zrInvalidConfigurationErr);  // gate before range
    d.currentMode = zrModeIdle;
    EXPECT_EQ(zrSetIFOutput(h, 2.39e10), zrInvalidParameterErr);
    EXPECT_EQ(zrSetIFOutput(h, 4.36e10), zrInvalidParameterErr);
    EXPECT_EQ(zrSetIFOutput(h, 3e10), zrInvalidDeviceErr);  // no IF output entries
    d.hasIFOutput = 1;
    // The offline link fails the send; the call still answers success.
    EXPECT_EQ(zrSetIFOutput(h, 2.4e10), zrNoError);
    EXPECT_EQ(d.rf.ridge.band, 6);
    EXPECT_EQ(d.rf.ridge.previousGate, -2.0f);
    EXPECT_EQ(zrSetIFOutput(h, 4.35e10), zrNoError);
}

TEST(DeviceQueries, SettingsQueriesFollowTheModeAndLeaveBuffersAlone) {
    InstalledDevice d(zrDeviceTypeMesa2);
    const int h = d.handle();
    ZrSweepSettings sw;
    std::memset(&sw, 0x5A, sizeof sw);
    const ZrSweepSettings untouched = sw;
    EXPECT_EQ(zrGetSweepSettings(h, &sw), zrInvalidConfigurationErr);
    EXPECT_EQ(std::memcmp(&sw, &untouched, sizeof sw), 0);
    EXPECT_EQ(zrGetSweepSettings(h, nullptr), zrNullPtrErr);

    double rbw = -1, vbw = -1, start = -1, bin = -1;
    int len = -1;
    EXPECT_EQ(zrGetSweepParameters(h, &rbw, &vbw, &start, &bin, &len), zrInvalidConfigurationErr);
    EXPECT_EQ(rbw, -1);

    d.device().currentMode = zrModeSweeping;
    d.device().sweep.actualRBW = 30000.0;
    d.device().sweep.actualVBW = 10000.0;
    d.device().sweep.startFreq = 99e3;
    d.device().sweep.binSize = 7629.39453125;
    d.device().sweep.sweepLength = 2700000;
    EXPECT_EQ(zrGetSweepSettings(h, &sw), zrNoError);
    EXPECT_EQ(sw.center, 10300050000.0);
    EXPECT_EQ(zrGetSweepParameters(h, &rbw, &vbw, &start, &bin, &len), zrNoError);
    EXPECT_EQ(rbw, 30000.0);
    EXPECT_EQ(vbw, 10000.0);
    EXPECT_EQ(start, 99e3);
    EXPECT_EQ(bin, 7629.39453125);
    EXPECT_EQ(len, 2700000);
    EXPECT_EQ(zrGetSweepParameters(h, nullptr, nullptr, nullptr, nullptr, nullptr), zrNoError);

    ZrRealTimeSettings rt{};
    EXPECT_EQ(zrGetRealTimeSettings(h, &rt), zrInvalidConfigurationErr);
    EXPECT_EQ(zrGetRealTimeParameters(h, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
              zrInvalidConfigurationErr);
    d.device().currentMode = zrModeRealTime;
    d.device().realTime.frameWidth = 801;
    d.device().realTime.frameHeight = 256;
    d.device().realTime.poi = 2.5e-5;
    EXPECT_EQ(zrGetRealTimeSettings(h, &rt), zrNoError);
    EXPECT_EQ(rt.span, 1.6e8);
    int w = 0, hgt = 0;
    double poi = 0;
    EXPECT_EQ(zrGetRealTimeParameters(h, nullptr, nullptr, nullptr, nullptr, &w, &hgt, &poi), zrNoError);
    EXPECT_EQ(w, 801);
    EXPECT_EQ(hgt, 256);
    EXPECT_EQ(poi, 2.5e-5);
    d.device().currentMode = zrModeIdle;
}

TEST(DeviceQueries, IQQueriesNeedTheirEngine) {
    InstalledDevice d(zrDeviceTypeMesa2);
    const int h = d.handle();
    double rate = -1, bw = -1, center = -1;
    EXPECT_EQ(zrGetIQParameters(h, &rate, &bw), zrInvalidConfigurationErr);
    EXPECT_EQ(zrGetIQCenterFreq(h, nullptr), zrNullPtrErr);
    EXPECT_EQ(zrGetIQCenterFreq(h, &center), zrInvalidConfigurationErr);
    // The mode alone is not enough: a streaming mode without a live engine
    // (a failed configuration) still answers the configuration error.
    d.device().currentMode = zrModeIQStreaming;
    EXPECT_EQ(zrGetIQParameters(h, &rate, &bw), zrInvalidConfigurationErr);
    d.device().currentMode = zrModeIQSegmentedCapture;
    EXPECT_EQ(zrGetIQCenterFreq(h, &center), zrInvalidConfigurationErr);
    EXPECT_EQ(rate, -1);
    EXPECT_EQ(center, -1);
    d.device().currentMode = zrModeIdle;
}

TEST(DeviceQueries, SweepListStepCountInAnyMode) {
    InstalledDevice d(zrDeviceTypeMesa1);
    int steps = -1;
    EXPECT_EQ(zrGetIQSweepListSteps(d.handle(), nullptr), zrNullPtrErr);
    EXPECT_EQ(zrGetIQSweepListSteps(d.handle(), &steps), zrNoError);
    EXPECT_EQ(steps, 0);
    d.device().iqSweepList.steps.resize(3);
    d.device().currentMode = zrModeRealTime;
    EXPECT_EQ(zrGetIQSweepListSteps(d.handle(), &steps), zrNoError);
    EXPECT_EQ(steps, 3);
    d.device().currentMode = zrModeIdle;
}

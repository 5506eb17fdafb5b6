// Every setter edge in one table: a wrong bound, a missing warning or a
// store that should not happen fails a row.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>

#include "device/settings.h"
#include "support/fake_transport.h"

using namespace zr;
using zr::test::InstalledDevice;

namespace {

struct Row {
    std::string what;
    ZrDeviceType model;
    std::function<ZrStatus(int)> call;
    ZrStatus expected;
    std::function<bool(const ZrDevice&)> stored;  // what the device must hold after the call
};

bool near(double a, double b) { return std::fabs(a - b) <= 1e-9 * std::max(1.0, std::fabs(b)); }

const ZrDeviceType M = zrDeviceTypeMesa2;
const ZrDeviceType R = zrDeviceTypeRidge2;
const ZrDeviceType M1 = zrDeviceTypeMesa1;

std::vector<Row> rows() {
    using D = const ZrDevice&;
    return {
        // Sweep.
        {"speed fast", M, [](int h) { return zrSetSweepSpeed(h, zrSweepSpeedFast); }, zrNoError, [](D d) { return d.sweep.speed == zrSweepSpeedFast; }},
        {"speed 3", M, [](int h) { return zrSetSweepSpeed(h, (ZrSweepSpeed)3); }, zrInvalidParameterErr, [](D d) { return d.sweep.speed == zrSweepSpeedAuto; }},
        {"speed -1", M, [](int h) { return zrSetSweepSpeed(h, (ZrSweepSpeed)-1); }, zrInvalidParameterErr, [](D d) { return d.sweep.speed == zrSweepSpeedAuto; }},
        {"center/span low edge", M, [](int h) { return zrSetSweepCenterSpan(h, 1e6, 1e7); }, zrSettingClamped,
         [](D d) { return near(d.sweep.center, 3004500.0) && near(d.sweep.span, 5991000.0); }},
        {"center/span fits", M, [](int h) { return zrSetSweepCenterSpan(h, 1e9, 2e8); }, zrNoError,
         [](D d) { return d.sweep.center == 1e9 && d.sweep.span == 2e8; }},
        {"zero span stays zero", M, [](int h) { return zrSetSweepCenterSpan(h, 1e9, 0.0); }, zrNoError,
         [](D d) { return d.sweep.center == 1e9 && d.sweep.span == 0.0; }},
        {"center/span above Mesa max", M, [](int h) { return zrSetSweepCenterSpan(h, 20.6e9, 2e9); }, zrSettingClamped,
         [](D d) { return near(d.sweep.center + d.sweep.span / 2, 20.6e9) && near(d.sweep.center - d.sweep.span / 2, 19.6e9); }},
        {"Ridge reaches 44.2 GHz", R, [](int h) { return zrSetSweepCenterSpan(h, 43e9, 4e9); }, zrSettingClamped,
         [](D d) { return near(d.sweep.center + d.sweep.span / 2, 44.2e9); }},
        {"Ridge 40-44 GHz fits", R, [](int h) { return zrSetSweepStartStop(h, 40e9, 44e9); }, zrNoError,
         [](D d) { return d.sweep.center == 42e9 && d.sweep.span == 4e9; }},
        {"start/stop below 9 kHz", M, [](int h) { return zrSetSweepStartStop(h, 0.0, 1e6); }, zrSettingClamped,
         [](D d) { return near(d.sweep.center - d.sweep.span / 2, 9000.0) && near(d.sweep.center + d.sweep.span / 2, 1e6); }},
        {"center NaN", M, [](int h) { return zrSetSweepCenterSpan(h, NAN, 1e6); }, zrInvalidParameterErr,
         [](D d) { return d.sweep.center == 10300050000.0; }},
        {"stop +Inf", M, [](int h) { return zrSetSweepStartStop(h, 1e6, INFINITY); }, zrInvalidParameterErr,
         [](D d) { return d.sweep.span == 20599900000.0; }},
        {"vbw above rbw", M, [](int h) { return zrSetSweepCoupling(h, 1e6, 2e6, 1.0); }, zrSettingClamped,
         [](D d) { return d.sweep.rbw == 1e6 && d.sweep.vbw == 1e6 && d.sweep.sweepTime == 1.0; }},
        {"vbw below rbw/1e4", M, [](int h) { return zrSetSweepCoupling(h, 1e6, 50.0, 1.0); }, zrSettingClamped,
         [](D d) { return d.sweep.vbw == 100.0; }},
        {"coupling fits", M, [](int h) { return zrSetSweepCoupling(h, 1e6, 1e6, 1.0); }, zrNoError,
         [](D d) { return d.sweep.vbw == 1e6; }},
        {"rbw stored unchanged", M, [](int h) { return zrSetSweepCoupling(h, 1e12, 1e9, 1.0); }, zrNoError,
         [](D d) { return d.sweep.rbw == 1e12; }},
        {"sweep time zero", M, [](int h) { return zrSetSweepCoupling(h, 1e5, 1e5, 0.0); }, zrSettingClamped,
         [](D d) { return d.sweep.sweepTime == 1e-6; }},
        {"sweep time 101 s", M, [](int h) { return zrSetSweepCoupling(h, 1e5, 1e5, 101.0); }, zrSettingClamped,
         [](D d) { return d.sweep.sweepTime == 100.0; }},
        {"detector minmax sample", M, [](int h) { return zrSetSweepDetector(h, zrDetectorMinMax, zrVideoSample); }, zrNoError,
         [](D d) { return d.sweep.detector == zrDetectorMinMax && d.sweep.videoUnits == zrVideoSample; }},
        {"detector 2", M, [](int h) { return zrSetSweepDetector(h, (ZrDetector)2, zrVideoLog); }, zrInvalidParameterErr,
         [](D d) { return d.sweep.detector == zrDetectorAverage && d.sweep.videoUnits == zrVideoPower; }},
        {"video units 4", M, [](int h) { return zrSetSweepDetector(h, zrDetectorMinMax, (ZrVideoUnits)4); }, zrInvalidParameterErr,
         [](D d) { return d.sweep.detector == zrDetectorAverage; }},
        {"scale lin", M, [](int h) { return zrSetSweepScale(h, zrScaleLin); }, zrNoError, [](D d) { return d.sweep.scale == zrScaleLin; }},
        {"scale 2", M, [](int h) { return zrSetSweepScale(h, (ZrScale)2); }, zrInvalidParameterErr, [](D d) { return d.sweep.scale == zrScaleLog; }},
        {"window 0", M, [](int h) { return zrSetSweepWindow(h, zrWindowFlatTop); }, zrNoError, [](D d) { return d.sweep.window == zrWindowFlatTop; }},
        {"window 6", M, [](int h) { return zrSetSweepWindow(h, zrWindowRect); }, zrNoError, [](D d) { return d.sweep.window == zrWindowRect; }},
        {"window 1", M, [](int h) { return zrSetSweepWindow(h, (ZrWindowType)1); }, zrInvalidParameterErr, [](D d) { return d.sweep.window == zrWindowNuttall; }},
        {"window 7", M, [](int h) { return zrSetSweepWindow(h, (ZrWindowType)7); }, zrInvalidParameterErr, [](D d) { return d.sweep.window == zrWindowNuttall; }},
        {"spur reject on", M, [](int h) { return zrSetSweepSpurReject(h, zrTrue); }, zrNoError, [](D d) { return d.sweep.spurReject == 1; }},
        {"spur reject 2", M, [](int h) { return zrSetSweepSpurReject(h, (ZrBool)2); }, zrInvalidParameterErr, [](D d) { return d.sweep.spurReject == 0; }},

        // Real time.
        {"rt span below", M, [](int h) { return zrSetRealTimeCenterSpan(h, 1e9, 1e5); }, zrSettingClamped, [](D d) { return d.realTime.span == 200000.0; }},
        {"rt span above", M, [](int h) { return zrSetRealTimeCenterSpan(h, 1e9, 2e8); }, zrSettingClamped, [](D d) { return d.realTime.span == 1.6e8; }},
        {"rt center above", R, [](int h) { return zrSetRealTimeCenterSpan(h, 50e9, 1e6); }, zrSettingClamped,
         [](D d) { return d.realTime.center == 44.2e9 && d.realTime.span == 1e6; }},
        {"rt fits", M, [](int h) { return zrSetRealTimeCenterSpan(h, 2.4e9, 1e8); }, zrNoError, [](D d) { return d.realTime.center == 2.4e9; }},
        {"rt rbw low", M, [](int h) { return zrSetRealTimeRBW(h, 1000.0); }, zrSettingClamped, [](D d) { return d.realTime.rbw == 1500.0; }},
        {"rt rbw high", M, [](int h) { return zrSetRealTimeRBW(h, 2e7); }, zrSettingClamped, [](D d) { return d.realTime.rbw == 1e7; }},
        {"rt rbw edge", M, [](int h) { return zrSetRealTimeRBW(h, 1500.0); }, zrNoError, [](D d) { return d.realTime.rbw == 1500.0; }},
        {"rt detector 2", M, [](int h) { return zrSetRealTimeDetector(h, (ZrDetector)2); }, zrInvalidParameterErr, [](D d) { return d.realTime.detector == zrDetectorMinMax; }},
        {"rt scale stores levels unchanged", M, [](int h) { return zrSetRealTimeScale(h, zrScaleLin, -500.0, 1000.0); }, zrNoError,
         [](D d) { return d.realTime.scale == zrScaleLin && d.realTime.refLevel == -500.0 && d.realTime.dynamicRange == 1000.0; }},
        {"rt scale 2", M, [](int h) { return zrSetRealTimeScale(h, (ZrScale)2, -10.0, 50.0); }, zrInvalidParameterErr,
         [](D d) { return d.realTime.refLevel == 0.0; }},
        {"rt window 1", M, [](int h) { return zrSetRealTimeWindow(h, (ZrWindowType)1); }, zrInvalidParameterErr, [](D d) { return d.realTime.window == zrWindowNuttall; }},

        // I/Q.
        {"base rate gated on old Mesa1", M1, [](int h) { return zrSetIQBaseSampleRate(h, zrIQBaseRate61M44); }, zrInvalidConfigurationErr,
         [](D d) { return d.iq.baseRate == zrIQBaseRate50M; }},
        {"base rate 2", R, [](int h) { return zrSetIQBaseSampleRate(h, (ZrIQBaseRate)2); }, zrInvalidParameterErr, [](D d) { return d.iq.baseRate == zrIQBaseRate50M; }},
        {"base rate on Ridge", R, [](int h) { return zrSetIQBaseSampleRate(h, zrIQBaseRate61M44); }, zrNoError, [](D d) { return d.iq.baseRate == zrIQBaseRate61M44; }},
        {"iq data type 2", M, [](int h) { return zrSetIQDataType(h, (ZrDataType)2); }, zrInvalidParameterErr, [](D d) { return d.iq.dataType == zrDataType32fc; }},
        {"iq center low", M, [](int h) { return zrSetIQCenterFreq(h, 1.0); }, zrSettingClamped, [](D d) { return d.iq.center == 9000.0; }},
        {"iq decimation 4096", M, [](int h) { return zrSetIQSampleRate(h, 4096); }, zrNoError, [](D d) { return d.iq.decimation == 4096; }},
        {"iq decimation 2", M, [](int h) { return zrSetIQSampleRate(h, 2); }, zrNoError, [](D d) { return d.iq.decimation == 2; }},
        {"iq decimation 0", M, [](int h) { return zrSetIQSampleRate(h, 0); }, zrInvalidIQDecimationErr, [](D d) { return d.iq.decimation == 1; }},
        {"iq decimation 3", M, [](int h) { return zrSetIQSampleRate(h, 3); }, zrInvalidIQDecimationErr, [](D d) { return d.iq.decimation == 1; }},
        {"iq decimation 8192", M, [](int h) { return zrSetIQSampleRate(h, 8192); }, zrInvalidIQDecimationErr, [](D d) { return d.iq.decimation == 1; }},
        {"iq decimation -2", M, [](int h) { return zrSetIQSampleRate(h, -2); }, zrInvalidIQDecimationErr, [](D d) { return d.iq.decimation == 1; }},
        {"iq bandwidth unchanged", M, [](int h) { return zrSetIQBandwidth(h, zrTrue, 5e9); }, zrNoError,
         [](D d) { return d.iq.softwareFilter == zrTrue && d.iq.bandwidth == 5e9; }},
        {"iq bandwidth flag 2", M, [](int h) { return zrSetIQBandwidth(h, (ZrBool)2, 1e6); }, zrInvalidParameterErr, [](D d) { return d.iq.bandwidth == 1.6e8; }},
        {"iq edge 2", M, [](int h) { return zrSetIQExtTriggerEdge(h, (ZrTriggerEdge)2); }, zrInvalidParameterErr, [](D d) { return d.iq.extTriggerEdge == 0; }},
        {"iq edge 1", M, [](int h) { return zrSetIQExtTriggerEdge(h, zrTriggerEdge1); }, zrNoError, [](D d) { return d.iq.extTriggerEdge == 1; }},
        {"queue below, silently", M, [](int h) { return zrSetIQQueueSize(h, 1.0f); }, zrNoError, [](D d) { return d.iq.queueSizeMs == kMinIQQueueMs; }},
        {"queue above, silently", M, [](int h) { return zrSetIQUSBQueueSize(h, 100.0f); }, zrNoError, [](D d) { return d.iq.queueSizeMs == kMaxIQQueueMs; }},
        {"queue NaN", M, [](int h) { return zrSetIQQueueSize(h, NAN); }, zrInvalidParameterErr, [](D d) { return d.iq.queueSizeMs == 31.45728f; }},

        // Audio.
        {"audio center high", M, [](int h) { return zrSetAudioCenterFreq(h, 30e9); }, zrSettingClamped, [](D d) { return d.audio.center == 20.6e9; }},
        {"audio type 5", M, [](int h) { return zrSetAudioType(h, (ZrAudioType)5); }, zrInvalidParameterErr, [](D d) { return d.audio.type == zrAudioFM; }},
        {"audio type CW", M, [](int h) { return zrSetAudioType(h, zrAudioCW); }, zrNoError, [](D d) { return d.audio.type == zrAudioCW; }},
        {"audio filters low", M, [](int h) { return zrSetAudioFilters(h, 100.0, 500.0, 10.0); }, zrSettingClamped,
         [](D d) { return d.audio.ifBandwidth == 500.0 && d.audio.lowPass == 1000.0 && d.audio.highPass == 20.0; }},
        {"audio filters high", M, [](int h) { return zrSetAudioFilters(h, 3e5, 2e4, 2000.0); }, zrSettingClamped,
         [](D d) { return d.audio.ifBandwidth == 250000.0 && d.audio.lowPass == 12000.0 && d.audio.highPass == 1000.0; }},
        {"audio filters one edge", M, [](int h) { return zrSetAudioFilters(h, 1e5, 5000.0, 1001.0); }, zrSettingClamped,
         [](D d) { return d.audio.ifBandwidth == 1e5 && d.audio.lowPass == 5000.0 && d.audio.highPass == 1000.0; }},
        {"deemphasis 0", M, [](int h) { return zrSetAudioFMDeemphasis(h, 0.0); }, zrSettingClamped, [](D d) { return d.audio.fmDeemphasisUs == 1.0; }},
        {"deemphasis 50", M, [](int h) { return zrSetAudioFMDeemphasis(h, 50.0); }, zrNoError, [](D d) { return d.audio.fmDeemphasisUs == 50.0; }},

        // Full band.
        {"fb atten 7", M, [](int h) { return zrSetIQFullBandAtten(h, 7); }, zrInvalidParameterErr, [](D d) { return d.fullBand.attenuator == 0; }},
        {"fb atten -1", M, [](int h) { return zrSetIQFullBandAtten(h, -1); }, zrInvalidParameterErr, [](D d) { return d.fullBand.attenuator == 0; }},
        {"fb atten 6", M, [](int h) { return zrSetIQFullBandAtten(h, 6); }, zrNoError, [](D d) { return d.fullBand.attenuator == 6; }},
        {"fb corrected 2", M, [](int h) { return zrSetIQFullBandCorrected(h, (ZrBool)2); }, zrInvalidParameterErr, [](D d) { return d.fullBand.corrected == 1; }},
        {"fb samples 2048", M, [](int h) { return zrSetIQFullBandSamples(h, 2048); }, zrNoError, [](D d) { return d.fullBand.samples == 2048; }},
        {"fb samples 32768", M, [](int h) { return zrSetIQFullBandSamples(h, 32768); }, zrNoError, [](D d) { return d.fullBand.samples == 32768; }},
        {"fb samples 2047", M, [](int h) { return zrSetIQFullBandSamples(h, 2047); }, zrInvalidParameterErr, [](D d) { return d.fullBand.samples == 32768; }},
        {"fb samples 32769", M, [](int h) { return zrSetIQFullBandSamples(h, 32769); }, zrInvalidParameterErr, [](D d) { return d.fullBand.samples == 32768; }},
        {"fb trigger external", M, [](int h) { return zrSetIQFullBandTriggerType(h, zrTriggerTypeExternal); }, zrNoError,
         [](D d) { return d.fullBand.triggerType == zrTriggerTypeExternal; }},
        {"fb trigger mask", M, [](int h) { return zrSetIQFullBandTriggerType(h, zrTriggerTypeFrequencyMask); }, zrInvalidParameterErr,
         [](D d) { return d.fullBand.triggerType == zrTriggerTypeImmediate; }},
        {"fb video without gate", M, [](int h) { return zrSetIQFullBandTriggerType(h, zrTriggerTypeVideo); }, zrInvalidConfigurationErr,
         [](D d) { return d.fullBand.triggerType == zrTriggerTypeImmediate; }},
        {"fb video level without gate", M, [](int h) { return zrSetIQFullBandVideoTrigger(h, -30.0); }, zrInvalidConfigurationErr,
         [](D d) { return d.fullBand.videoTriggerLevel == -50.0; }},
        {"fb timeout gate before range", M, [](int h) { return zrSetIQFullBandTriggerTimeout(h, 5.0); }, zrInvalidConfigurationErr,
         [](D d) { return d.fullBand.triggerTimeout == 1.0; }},
    };
}

}  // namespace

TEST(Settings, EveryClampAndRejection) {
    for (const Row& r : rows()) {
        InstalledDevice d(r.model);
        EXPECT_EQ(r.call(d.handle()), r.expected) << r.what;
        EXPECT_TRUE(r.stored(d.device())) << r.what;
        for (int bad : {-1, 9, 1 << 30}) EXPECT_EQ(r.call(bad), zrInvalidDeviceErr) << r.what;
        // Setters never touch the instrument.
        EXPECT_EQ(d.device().transport->status, zrNoError) << r.what;
    }
}

TEST(Settings, StartStopAndCenterSpanAgree) {
    InstalledDevice a(zrDeviceTypeMesa2), b(zrDeviceTypeMesa2);
    for (auto [lo, hi] : {std::pair{1e3, 5e6}, {2.4e9, 2.5e9}, {19e9, 21e9}, {-1e9, 1e9}}) {
        EXPECT_EQ(zrSetSweepStartStop(a.handle(), lo, hi), zrSetSweepCenterSpan(b.handle(), (lo + hi) / 2, hi - lo));
        EXPECT_EQ(a.device().sweep.center, b.device().sweep.center);
        EXPECT_EQ(a.device().sweep.span, b.device().sweep.span);
    }
}

TEST(Settings, FullBandTriggerOnGatedFirmware) {
    InstalledDevice d(zrDeviceTypeMesa3);
    ZrDevice& dev = d.device();
    dev.firmwareMajor = 7; dev.firmwareMinor = 7; dev.firmwareRevision = 5;
    EXPECT_EQ(zrSetIQFullBandTriggerType(d.handle(), zrTriggerTypeVideo), zrNoError);
    EXPECT_EQ(zrSetIQFullBandVideoTrigger(d.handle(), -30.0), zrNoError);
    EXPECT_EQ(dev.fullBand.videoTriggerLevel, -30.0);
    EXPECT_EQ(zrSetIQFullBandTriggerTimeout(d.handle(), 1.5), zrInvalidParameterErr);
    EXPECT_EQ(zrSetIQFullBandTriggerTimeout(d.handle(), -0.1), zrInvalidParameterErr);
    EXPECT_EQ(zrSetIQFullBandTriggerTimeout(d.handle(), NAN), zrInvalidParameterErr);
    EXPECT_EQ(zrSetIQFullBandTriggerTimeout(d.handle(), 0.0), zrNoError);
    EXPECT_EQ(dev.fullBand.triggerTimeout, 0.0);
}

TEST(Settings, SweepListStepsResizeAndIndexing) {
    InstalledDevice d(zrDeviceTypeMesa2);
    const int h = d.handle();
    auto& steps = d.device().iqSweepList.steps;
    EXPECT_EQ(zrSetIQSweepListFreq(h, 0, 1e9), zrInvalidParameterErr);  // no steps yet
    EXPECT_EQ(zrSetIQSweepListSteps(h, 0), zrInvalidParameterErr);
    EXPECT_EQ(zrSetIQSweepListSteps(h, 1201), zrInvalidParameterErr);
    EXPECT_EQ(zrSetIQSweepListSteps(h, 1200), zrNoError);
    EXPECT_EQ(zrSetIQSweepListSteps(h, 3), zrNoError);
    ASSERT_EQ(steps.size(), 3u);
    EXPECT_EQ(zrSetIQSweepListFreq(h, 3, 1e9), zrInvalidParameterErr);
    EXPECT_EQ(zrSetIQSweepListFreq(h, -1, 1e9), zrInvalidParameterErr);
    EXPECT_EQ(zrSetIQSweepListFreq(h, 2, 2.5e9), zrNoError);
    EXPECT_EQ(zrSetIQSweepListFreq(h, 1, 1.0), zrSettingClamped);
    EXPECT_EQ(steps[1].frequency, 9000.0);

    EXPECT_EQ(zrSetIQSweepListAtten(h, 0, 3), zrNoError);
    EXPECT_EQ(zrSetIQSweepListAtten(h, 0, -2), zrSettingClamped);
    EXPECT_EQ(steps[0].attenuator, -1);
    EXPECT_EQ(zrSetIQSweepListAtten(h, 0, -1), zrNoError);
    EXPECT_EQ(zrSetIQSweepListAtten(h, 0, 7), zrSettingClamped);
    EXPECT_EQ(steps[0].attenuator, 6);
    // The reference level stays when the attenuator is set...
    EXPECT_EQ(steps[0].refLevel, -20.0);
    // ...and a reference level turns a fixed attenuator back to automatic.
    EXPECT_EQ(zrSetIQSweepListRef(h, 0, 30.0), zrSettingClamped);
    EXPECT_EQ(steps[0].refLevel, 20.0);
    EXPECT_EQ(steps[0].attenuator, -1);
    EXPECT_EQ(zrSetIQSweepListRef(h, 0, -100.0), zrNoError);

    EXPECT_EQ(zrSetIQSweepListSampleCount(h, 2, 0xFFFFFFFFu), zrNoError);
    EXPECT_EQ(steps[2].sampleCount, 0xFFFFFFFFu);

    // Growing keeps existing steps and gives new ones the defaults.
    EXPECT_EQ(zrSetIQSweepListSteps(h, 5), zrNoError);
    EXPECT_EQ(steps[2].frequency, 2.5e9);
    EXPECT_EQ(steps[4].frequency, 1e9);
    EXPECT_EQ(steps[4].attenuator, -1);
    EXPECT_EQ(steps[4].refLevel, -20.0);
    EXPECT_EQ(steps[4].sampleCount, 1000000u);

    EXPECT_EQ(zrSetIQSweepListCorrected(h, zrFalse), zrNoError);
    EXPECT_EQ(d.device().iqSweepList.uncorrected, 1);
    EXPECT_EQ(zrSetIQSweepListCorrected(h, (ZrBool)2), zrInvalidParameterErr);
    EXPECT_EQ(d.device().iqSweepList.uncorrected, 1);
}

TEST(Settings, SegmentedFamilyNeedsCaptureMemory) {
    const double f[] = {1e9}, a[] = {-40.0};
    for (ZrDeviceType t : {zrDeviceTypeMesa1, zrDeviceTypeMesa3, zrDeviceTypeRidge3}) {
        InstalledDevice d(t);
        const int h = d.handle();
        EXPECT_EQ(zrSetSegIQDataType(h, zrDataType32fc), zrInvalidDeviceErr);
        EXPECT_EQ(zrSetSegIQCenterFreq(h, 1e9), zrInvalidDeviceErr);
        EXPECT_EQ(zrSetSegIQVideoTrigger(h, -20.0, zrTriggerEdge0), zrInvalidDeviceErr);
        EXPECT_EQ(zrSetSegIQExtTrigger(h, zrTriggerEdge0), zrInvalidDeviceErr);
        EXPECT_EQ(zrSetSegIQFMTParams(h, 1024, f, a, 1), zrInvalidDeviceErr);
        EXPECT_EQ(zrSetSegIQSegmentCount(h, 1), zrInvalidDeviceErr);
        EXPECT_EQ(zrSetSegIQSegment(h, 0, zrTriggerTypeImmediate, 0, 100, 0.0), zrInvalidDeviceErr);
    }
}

TEST(Settings, SegmentedTriggersAndMask) {
    InstalledDevice d(zrDeviceTypeRidge2);
    const int h = d.handle();
    SegmentedSettings& s = d.device().segmented;
    // A bad edge stores nothing, not even a legal level.
    EXPECT_EQ(zrSetSegIQVideoTrigger(h, -30.0, (ZrTriggerEdge)2), zrInvalidParameterErr);
    EXPECT_EQ(s.videoTriggerLevel, -20.0);
    EXPECT_EQ(zrSetSegIQVideoTrigger(h, 50.0, zrTriggerEdge1), zrSettingClamped);
    EXPECT_EQ(s.videoTriggerLevel, 20.0);
    EXPECT_EQ(s.videoTriggerEdge, 1u);
    EXPECT_EQ(zrSetSegIQCenterFreq(h, 45e9), zrSettingClamped);
    EXPECT_EQ(s.center, 44.2e9);

    const double rising[] = {1e9, 1e9, 2e9}, falling[] = {2e9, 1e9}, amps[] = {-10, -20, -30};
    EXPECT_EQ(zrSetSegIQFMTParams(h, 1024, nullptr, amps, 3), zrNullPtrErr);
    EXPECT_EQ(zrSetSegIQFMTParams(h, 1024, rising, nullptr, 3), zrNullPtrErr);
    EXPECT_EQ(zrSetSegIQFMTParams(h, 1024, rising, amps, 0), zrInvalidConfigurationErr);
    EXPECT_EQ(zrSetSegIQFMTParams(h, 1024, falling, amps, 2), zrInvalidConfigurationErr);
    EXPECT_EQ(zrSetSegIQFMTParams(h, 1000, rising, amps, 3), zrInvalidConfigurationErr);
    EXPECT_EQ(zrSetSegIQFMTParams(h, 32768, rising, amps, 3), zrInvalidConfigurationErr);
    EXPECT_EQ(s.maskFftSize, 16384);
    ASSERT_EQ(s.maskFrequencies.size(), 1u);
    EXPECT_EQ(zrSetSegIQFMTParams(h, 512, rising, amps, 3), zrNoError);
    EXPECT_EQ(s.maskFftSize, 512);
    EXPECT_EQ(s.maskFrequencies, std::vector<double>(rising, rising + 3));
    EXPECT_EQ(s.maskAmplitudes, std::vector<double>(amps, amps + 3));
}

TEST(Settings, SegmentsFoldImmediatePreTriggerAndRespectCaptureMemory) {
    InstalledDevice d(zrDeviceTypeMesa2);
    const int h = d.handle();
    auto& segs = d.device().segmented.segments;
    EXPECT_EQ(zrSetSegIQSegment(h, 0, zrTriggerTypeImmediate, 0, 100, 0.0), zrInvalidParameterErr);
    EXPECT_EQ(zrSetSegIQSegmentCount(h, 0), zrInvalidParameterErr);
    EXPECT_EQ(zrSetSegIQSegmentCount(h, 251), zrInvalidParameterErr);
    EXPECT_EQ(zrSetSegIQSegmentCount(h, 2), zrNoError);
    EXPECT_EQ(zrSetSegIQSegment(h, 2, zrTriggerTypeImmediate, 0, 100, 0.0), zrInvalidParameterErr);

    EXPECT_EQ(zrSetSegIQSegment(h, 0, zrTriggerTypeImmediate, 100, 1000, 0.5), zrNoError);
    EXPECT_EQ(segs[0].preTrigger, 0);
    EXPECT_EQ(segs[0].captureSize, 1100u);
    EXPECT_EQ(segs[0].timeout, 0.5);
    EXPECT_EQ(zrSetSegIQSegment(h, 1, zrTriggerTypeVideo, 100, 1000, 0.0), zrNoError);
    EXPECT_EQ(segs[1].preTrigger, 100);
    EXPECT_EQ(segs[1].captureSize, 1000u);

    // The total over all segments may not pass the capture memory; the old
    // segment stays when it would.
    const uint32_t rest = kMaxSegmentedSamples - 1100;
    EXPECT_EQ(zrSetSegIQSegment(h, 1, zrTriggerTypeExternal, 0, rest + 1, 0.0), zrInvalidParameterErr);
    EXPECT_EQ(segs[1].captureSize, 1000u);
    EXPECT_EQ(zrSetSegIQSegment(h, 1, zrTriggerTypeExternal, 0, rest, 0.0), zrNoError);
    EXPECT_EQ(segs[1].captureSize, rest);
    // A capture that would wrap a 32-bit total is still refused.
    EXPECT_EQ(zrSetSegIQSegment(h, 1, zrTriggerTypeExternal, 0, 0xFFFFFF00u, 0.0), zrInvalidParameterErr);
    EXPECT_EQ(zrSetSegIQSegment(h, 0, zrTriggerTypeVideo, -5, 10, 0.0), zrInvalidParameterErr);

    // Growing keeps what was set; new segments take the defaults.
    EXPECT_EQ(zrSetSegIQSegmentCount(h, 3), zrNoError);
    EXPECT_EQ(segs.size(), 3u);
    EXPECT_EQ(segs[0].captureSize, 1100u);
    EXPECT_EQ(segs[2].captureSize, 16384u);
}

TEST(Settings, TriggerSentinelIsProcessWide) {
    EXPECT_EQ(zrSetIQTriggerSentinel(-1.0), zrNoError);
    EXPECT_EQ(iqTriggerSentinel, -1.0);
    EXPECT_EQ(zrSetIQTriggerSentinel(NAN), zrNoError);
    EXPECT_TRUE(std::isnan(iqTriggerSentinel));
    zrSetIQTriggerSentinel(0.0);
}

// Calibration images as the open meets them: the zrCal* inquiries, the
// value check with its repairs, the device's tables (corrections, RF
// state, coarse timebase) and every planner that reads them. The input is
// a family byte and patches over a sound image of that family.
#include <algorithm>
#include <cstdint>
#include <memory>

#include "calibration/image_check.h"
#include "device/device.h"
#include "fuzz_support.h"
#include "iq/iq_plan.h"
#include "rf/rf_glue.h"
#include "support/cal_images.h"
#include "support/fake_transport.h"
#include "sweep/engine_fast.h"
#include "sweep/engine_narrow.h"
#include "sweep/engine_sweep_controller.h"

using namespace zr;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    static const auto mesa = test::makeMesaImage(20000001);
    static const auto ridge = test::makeRidgeImage(30000001);
    const bool isRidge = data[0] & 1;
    const size_t imageSize = isRidge ? sizeof(RidgeCalData) : sizeof(MesaCalData);
    auto t = std::make_unique<test::OfflineTransport>(isRidge ? zrDeviceTypeRidge2 : zrDeviceTypeMesa2,
                                                      isRidge ? 30000001 : 20000001);
    std::memcpy(t->image.data(), isRidge ? static_cast<const void*>(ridge.get()) : mesa.get(), imageSize);
    const uint8_t slice = data[1], temperature = data[2];
    fuzz::applyPatches(t->image.data(), imageSize, data + 3, size - 3);

    uint8_t* image = t->image.data();
    (void)zrCalGetCorrectionCalDate(image, isRidge);
    (void)zrCalGetCalVersion(image);
    (void)zrCalDoesCorrectionsExist(image);
    (void)zrCalDoesPretestDataExist(image);
    if (isRidge) {
        const auto* r = reinterpret_cast<const RidgeCalData*>(image);
        (void)zrCalDoesCBBDataExist(r);
        (void)zrCalDoesLOFTDataExist(r);
        (void)zrCalDoesOptIFDataExist(r);
    }
    // As flash: implausible values are repaired before anything reads them.
    checkCalibrationValues(image, isRidge, true);

    // The device's tables from the image, as its construction builds them,
    // on one device per family for the whole run.
    static ZrDevice* devices[2] = {new ZrDevice(std::make_unique<test::OfflineTransport>(zrDeviceTypeMesa2, 20000001)),
                                   new ZrDevice(std::make_unique<test::OfflineTransport>(zrDeviceTypeRidge2, 30000001))};
    ZrDevice& dev = *devices[isRidge];
    dev.corrections.LoadFromTransportImage(image, isRidge);
    if (isRidge) {
        const auto* r = reinterpret_cast<const RidgeCalData*>(image);
        rf::loadCbbColumns(dev.rf.ridge, *r);
        dev.loadCoarseTimebase(r->timebaseValue, r->timebaseDate);
    } else {
        const auto* m = reinterpret_cast<const MesaCalData*>(image);
        rf::buildMesaRfState(dev.rf.mesa, *m);
        dev.loadCoarseTimebase(m->timebaseValue, m->timebaseDate);
    }
    dev.corrections.SetTemperature(float(temperature) - 60.0f);
    const double centre = 9e3 + slice * (isRidge ? 1.7e8 : 8e7);

    SweepPlan plan;
    CommandList list, more;
    dev.sweep.center = std::min(centre, dev.maxFrequency / 2);
    dev.sweep.span = std::min(4e8, dev.sweep.center * 2);
    dev.sweep.rbw = dev.sweep.vbw = 3e5;
    (void)buildControllerPlan(dev, plan, list);
    buildFastPlan(dev, plan, list, more);
    dev.sweep.center = centre;
    dev.sweep.span = 1e6;
    NarrowDecimation dec;
    (void)buildNarrowPlan(dev, plan, list, dec);
    dev.iq.center = centre;
    dev.iq.decimation = 1 << (slice % 13);
    IQPlan iq;
    (void)buildUsbIQPlan(dev, dev.iq, iq, list, more);
    return 0;
}

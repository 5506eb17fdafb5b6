#pragma once
// A simulated USB instrument of the test's family, opened through the
// interface and unpaced, for the sweep engine tests of this folder.
#include <gtest/gtest.h>

#include "registry.h"
#include "support/temp_folder.h"
#include "support/watchdog.h"
#include "zr_api.h"
#include "zr_sim.h"

namespace zr::test {

class SimSweepTest : public ::testing::TestWithParam<ZrDeviceType> {
protected:
    static constexpr int kSerial = 10007171;

    void SetUp() override {
        ASSERT_EQ(zrSetDataFolder(folder.str().c_str()), zrNoError);
        zrSimSetWaitScale(0.0);
        ASSERT_EQ(zrSimAttachUSB(GetParam(), kSerial), zrNoError);
        ASSERT_GE(zrOpenDeviceBySerial(&handle, kSerial), zrNoError);
        inst = sim::findInstrument(kSerial).get();
        inst->setPaced(false);
    }
    void TearDown() override {
        if (handle >= 0) zrCloseDevice(handle);
        zrSimDetach(kSerial);
        zrSimSetWaitScale(1.0);
    }

    TempFolder folder;
    Watchdog dog{std::chrono::seconds(120)};
    int handle = -1;
    sim::Instrument* inst = nullptr;
};

}  // namespace zr::test

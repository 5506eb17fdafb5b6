// Command-line parsing and unit handling of zr: everything a user can get
// wrong must be caught here, before an instrument is opened.
#include <gtest/gtest.h>

#include "zr/cli.h"
#include "zr/units.h"

using namespace zrtool;

namespace {

std::string parseError(std::vector<std::string> args) {
    Invocation inv;
    std::string error;
    EXPECT_FALSE(parseCommandLine(args, &inv, &error)) << "accepted: " << args.back();
    return error;
}

}  // namespace

TEST(ToolUnits, FrequenciesAsPeopleTypeThem) {
    EXPECT_EQ(parseFrequency("1.5G"), 1.5e9);
    EXPECT_EQ(parseFrequency("100M"), 100e6);
    EXPECT_EQ(parseFrequency("10k"), 10e3);
    EXPECT_EQ(parseFrequency("2.4e9"), 2.4e9);
    EXPECT_EQ(parseFrequency("915MHz"), 915e6);
    EXPECT_EQ(parseFrequency("50"), 50.0);
    for (const char* bad : {"", "G", "10q", "-1G", "1e", "inf", "nan", "0x10", " 5M", "5 M", "5MHzz"})
        EXPECT_FALSE(parseFrequency(bad)) << bad;
    EXPECT_EQ(parseLevel("-30"), -30.0);
    EXPECT_EQ(parseLevel("-12.5dBm"), -12.5);
    EXPECT_FALSE(parseLevel("loud"));
    EXPECT_FALSE(parseLevel("-30dB"));
}

TEST(ToolUnits, FormatsInTheLargestUnitAtOrAboveOne) {
    EXPECT_EQ(formatFrequency(2.4e9), "2.4 GHz");
    EXPECT_EQ(formatFrequency(915e6), "915 MHz");
    EXPECT_EQ(formatFrequency(12.5e3), "12.5 kHz");
    EXPECT_EQ(formatFrequency(800), "800 Hz");
    EXPECT_EQ(formatFrequency(100058.386, 3), "100.058 kHz");
    // A peak table tells neighbouring bins apart and lines up.
    EXPECT_EQ(formatFrequencyTo(2.4e9, 24414.0625), "2.40000 GHz");
    EXPECT_EQ(formatFrequencyTo(2.4e9 + 24414.0625, 24414.0625), "2.40002 GHz");
    EXPECT_EQ(formatFrequencyTo(5e6, 2e6), "5 MHz");
}

TEST(ToolCli, SweepWithEverySetting) {
    Invocation inv;
    std::string error;
    ASSERT_TRUE(parseCommandLine({"--sim", "Ridge2:20000002", "--tone", "2.4G:-30", "--tone=5.8G:-45.5", "sweep",
                                  "--start", "100M", "--stop", "6G", "--rbw", "1M", "--atten", "15", "--detector",
                                  "minmax", "--window", "nuttall", "--speed", "normal", "--count", "4", "--ref", "-10",
                                  "--serial", "20000002", "--csv", "a.csv", "--plot=a.png"},
                                 &inv, &error))
        << error;
    EXPECT_EQ(inv.command, "sweep");
    ASSERT_EQ(inv.sims.size(), 1u);
    EXPECT_EQ(inv.sims[0].type, zrDeviceTypeRidge2);
    EXPECT_EQ(inv.sims[0].serial, 20000002);
    ASSERT_EQ(inv.tones.size(), 2u);
    EXPECT_EQ(inv.tones[1].frequency, 5.8e9);
    EXPECT_EQ(inv.tones[1].level, -45.5);
    EXPECT_EQ(inv.sweep.start, 100e6);
    EXPECT_EQ(inv.sweep.stop, 6e9);
    EXPECT_EQ(inv.sweep.rbw, 1e6);
    EXPECT_FALSE(inv.sweep.vbw);
    EXPECT_EQ(inv.sweep.attenuator, 3);  // 5 dB steps
    EXPECT_EQ(inv.sweep.detector, zrDetectorMinMax);
    EXPECT_EQ(inv.sweep.window, zrWindowNuttall);
    EXPECT_EQ(inv.sweep.speed, zrSweepSpeedNormal);
    EXPECT_EQ(inv.sweep.count, 4);
    EXPECT_EQ(inv.sweep.refLevel, -10.0);
    EXPECT_EQ(inv.serial, 20000002);
    EXPECT_EQ(inv.sweep.plotPath, "a.png");

    // Options that sweep and iq share land in the command's own request.
    ASSERT_TRUE(parseCommandLine({"iq", "--center", "2.4G", "--ref", "-20", "--atten", "10", "--decimation", "64",
                                  "--duration", "2.5s", "--format", "ci16", "--out", "x", "--plot", "p.png"},
                                 &inv, &error))
        << error;
    EXPECT_EQ(inv.iq.center, 2.4e9);
    EXPECT_EQ(inv.iq.refLevel, -20.0);
    EXPECT_EQ(inv.iq.attenuator, 2);
    EXPECT_EQ(inv.iq.decimation, 64);
    EXPECT_EQ(inv.iq.duration, 2.5);
    EXPECT_EQ(inv.iq.format, zrDataType16sc);
    EXPECT_EQ(inv.iq.plotPath, "p.png");
    EXPECT_FALSE(inv.sweep.center);
    EXPECT_EQ(parseError({"iq", "--center", "2400"}),
              "--center 2.4 kHz is below the instruments' range (9 kHz); did you mean 2400M?");

    ASSERT_TRUE(parseCommandLine({"info", "10000003", "--sim", "Mesa1:10000003"}, &inv, &error)) << error;
    EXPECT_EQ(inv.serial, 10000003);
    ASSERT_TRUE(parseCommandLine({"sweep", "--help"}, &inv, &error));
    EXPECT_TRUE(inv.help);
    EXPECT_NE(helpText("sweep").find("--center F, --span F"), std::string::npos);
}

TEST(ToolCli, RefusesWhatCannotBeMeant) {
    EXPECT_EQ(parseError({"sweep", "--start", "5G", "--stop", "1G"}),
              "impossible range: --start 5 GHz is not below --stop 1 GHz");
    EXPECT_EQ(parseError({"sweep", "--center", "1M", "--span", "4M"}),
              "impossible range: --center 1 MHz with --span 4 MHz reaches below 0 Hz");
    EXPECT_EQ(parseError({"sweep", "--start", "1G", "--span", "1G"}),
              "give either --start/--stop or --center/--span, not both");
    EXPECT_EQ(parseError({"sweep", "--start", "1G"}), "--start needs --stop");
    EXPECT_EQ(parseError({"sweep"}), "sweep needs a range: --start F --stop F, or --center F --span F");
    EXPECT_EQ(parseError({"--tone", "1G:-20", "list"}),
              "--tone, --am and --fm describe the signal at a simulated instrument; add --sim MODEL");
    EXPECT_EQ(parseError({"--sim", "Mesa2", "--am", "1M:-40:1k:1.5", "list"}),
              "--am 1M:-40:1k:1.5: write FREQ:DBM:RATE:DEPTH, for example 1M:-40:1k:0.5 (depth 0 to 1)");
    EXPECT_EQ(parseError({"audio", "--center", "98M", "--type", "wfm"}), "--type wfm: am, fm, usb, lsb or cw");
    EXPECT_EQ(parseError({"vrt", "--center", "1G", "--count", "0"}),
              "--count 0: a number of data packets, 1 to 10000000");
    EXPECT_EQ(parseError({"vrt", "--center", "1G", "--stream-id", "0x1FFFFFFFF"}),
              "--stream-id 0x1FFFFFFFF: 0 to 0xFFFFFFFF");
    EXPECT_EQ(parseError({"vrt", "--center", "2400"}),
              "--center 2.4 kHz is below the instruments' range (9 kHz); did you mean 2400M?");
    EXPECT_EQ(parseError({"--sim", "Mesa2", "--tone", "1G-20", "list"}), "--tone 1G-20: write FREQ:DBM, for example 2.4G:-30");
    EXPECT_EQ(parseError({"--sim", "Mesa9", "list"}), "--sim Mesa9: unknown model (Mesa1, Mesa2, Ridge2)");
    EXPECT_EQ(parseError({"list", "--rbw", "1M"}), "--rbw is not an option of list (see zr list --help)");
    EXPECT_EQ(parseError({"sweep", "--start", "1G", "--stop", "2G", "--atten", "12"}),
              "--atten 12: auto, or 0 to 30 dB in steps of 5");
    EXPECT_EQ(parseError({"sweep", "--start", "1G", "--stop", "2G", "--window", "hann"}),
              "--window hann: choose one of flattop, nuttall, blackman, hamming, gaussian, rect");
    EXPECT_EQ(parseError({"sweep", "--start", "1G", "--stop", "2G", "--count", "0"}),
              "--count 0: a number of sweeps, 1 to 100000");
    EXPECT_EQ(parseError({"sweep", "--start"}), "--start needs a value (see zr --help)");
    EXPECT_EQ(parseError({"info", "123"}), "info 123: the serial must have 8 digits");
    EXPECT_EQ(parseError({"list", "extra"}), "unexpected argument extra (see zr list --help)");
    EXPECT_EQ(parseError({"--bogus", "list"}), "unknown option --bogus (see zr --help)");
    EXPECT_EQ(parseError({}), "no command given (list, info, sweep, iq, audio, vrt, version; see zr --help)");
}

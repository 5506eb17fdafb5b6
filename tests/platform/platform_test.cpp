#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "zr_api.h"
#include "platform/error_log.h"
#include "platform/data_folder.h"
#include "platform/threads.h"
#include "support/temp_folder.h"

using namespace zr;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

TEST(Threads, OsNamesFitAndStayDistinct) {
    const char* names[] = {"ZR Sweep USB Thread", "ZR Sweep Work Thread", "ZR HW Real Time USB Thread",
                           "ZR HW Real Time Accum Thread", "ZR SW Real Time FFT Thread",
                           "ZR IQ SW Filter Work Thread", "EngineSweepFast::AcquisitionThread",
                           "ZR IQ Sweep List Interface Thread"};
    std::set<std::string> seen;
    for (const char* n : names) {
        const std::string s = shortThreadName(n);
        EXPECT_LE(s.size(), 15u) << n;
        EXPECT_FALSE(s.empty()) << n;
        EXPECT_TRUE(seen.insert(s).second) << n << " -> " << s;
    }
}

TEST(Threads, RegistryKnowsFullNamesWhileTheyRun) {
    Event started(true), release(true);
    {
        NamedThread t("ZR Sweep Work Thread", ThreadPriority::AboveNormal, [&] {
            started.set();
            release.wait(5s);
        });
        ASSERT_TRUE(started.wait(5s));
        auto live = liveThreadNames();
        EXPECT_NE(std::find(live.begin(), live.end(), "ZR Sweep Work Thread"), live.end());
        release.set();
    }
    auto live = liveThreadNames();
    EXPECT_EQ(std::find(live.begin(), live.end(), "ZR Sweep Work Thread"), live.end());
}

TEST(Threads, AutoResetReleasesOneWaiterManualResetReleasesAll) {
    Event autoEv(false);
    std::atomic<int> woke{0};
    {
        NamedThread a("waiter a", ThreadPriority::Normal, [&] { if (autoEv.wait(2s)) ++woke; });
        NamedThread b("waiter b", ThreadPriority::Normal, [&] { if (autoEv.wait(300ms)) ++woke; });
        std::this_thread::sleep_for(50ms);
        autoEv.set();
    }
    EXPECT_EQ(woke.load(), 1);
    EXPECT_FALSE(autoEv.isSet());

    Event manual(true);
    woke = 0;
    {
        NamedThread a("waiter a", ThreadPriority::Normal, [&] { if (manual.wait(2s)) ++woke; });
        NamedThread b("waiter b", ThreadPriority::Normal, [&] { if (manual.wait(2s)) ++woke; });
        manual.set();
    }
    EXPECT_EQ(woke.load(), 2);
    EXPECT_TRUE(manual.isSet());
    manual.reset();
    EXPECT_FALSE(manual.wait(10ms));
}

TEST(DataFolder, SetFolderCreatesItAndCalFiles) {
    test::TempFolder tmp;
    const std::string target = tmp.str() + "a/b/Quillon";
    EXPECT_EQ(zrSetDataFolder(nullptr), zrNullPtrErr);
    EXPECT_EQ(zrSetDataFolder(""), zrInvalidParameterErr);
    EXPECT_EQ(zrSetDataFolder(target.c_str()), zrNoError);
    EXPECT_EQ(appDataFolder(), target + "/");
    EXPECT_EQ(calFilesFolder(), target + "/cal_files/");
    EXPECT_TRUE(fs::is_directory(target + "/cal_files"));

    // A path through a regular file cannot be a folder; the old one stays.
    std::ofstream(tmp.str() + "plain") << "x";
    EXPECT_EQ(zrSetDataFolder((tmp.str() + "plain/sub").c_str()), zrInvalidParameterErr);
    EXPECT_EQ(appDataFolder(), target + "/");
}

TEST(ErrorLog, StampedLinesRestartPastTheLimitAndStopWhenUnwritable) {
    test::TempFolder tmp;
    ASSERT_EQ(zrSetDataFolder(tmp.str().c_str()), zrNoError);
    resetErrorLogForTest();
    const std::string path = tmp.str() + "mesa_error_log.txt";

    logError("Error: %s send returned %d\n", "NetworkedDataTransfer::FinishDataXfer", -1);
    logError(nullptr);
    {
        std::ifstream in(path);
        std::stringstream ss;
        ss << in.rdbuf();
        const std::string text = ss.str();
        EXPECT_TRUE(std::regex_search(text, std::regex(R"(^\S+ \S+: Error: NetworkedDataTransfer::FinishDataXfer send returned -1\n$)")))
            << text;
    }

    // Past 1000000 bytes the file starts over with the line that crossed.
    const std::string filler(1900, 'x');
    for (int i = 0; i < 600; ++i) logError("%s %d\n", filler.c_str(), i);
    const auto size = fs::file_size(path);
    EXPECT_LT(size, 1000000u);
    EXPECT_GT(size, 1900u);

    // Lines never exceed the 2048-byte buffer.
    const std::string huge(5000, 'y');
    logError("%s\n", huge.c_str());
    std::ifstream in(path);
    std::string line, last;
    while (std::getline(in, line)) last = line;
    EXPECT_LT(last.size(), 2048u + 64u);

    // An unwritable log fails once and then stays quiet.
    fs::remove_all(tmp.path());
    logError("lost %d\n", 1);
    fs::create_directories(tmp.path());
    logError("still lost %d\n", 2);
    EXPECT_FALSE(fs::exists(path));
    resetErrorLogForTest();
    logError("back %d\n", 3);
    EXPECT_TRUE(fs::exists(path));
    resetErrorLogForTest();
}

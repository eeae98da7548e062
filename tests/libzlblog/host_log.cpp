// SPDX-License-Identifier: Apache-2.0
// The bridge to the host platform's log library, with small libraries of the test's own at its fixed path. What stood
// there before is put back afterwards.
#include "support/scripted_reader.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

using vorn::test::standardOutputOf;
namespace fs = std::filesystem;

namespace {

const char* const kPath = "/home/zlb/applications/KTP/Localconfig/so/libzlblog.so";
const char* const kKept = "/home/zlb/applications/KTP/Localconfig/so/libzlblog.so.kept-by-test";
const char* const kOurDirectories[] = {"/home/zlb", "/home/zlb/applications", "/home/zlb/applications/KTP",
                                       "/home/zlb/applications/KTP/Localconfig",
                                       "/home/zlb/applications/KTP/Localconfig/so"};
const char* const kLock = "/tmp/vorn-host-log-test.lock";

struct Call {
    std::string function;
    void* a1;
    void* a2;
    void* a3;
    int a4;
    void* a6;

    bool operator==(const Call& other) const
    {
        return function == other.function && a1 == other.a1 && a2 == other.a2 && a3 == other.a3 && a4 == other.a4 &&
               a6 == other.a6;
    }
};

std::vector<Call>& calls()
{
    static std::vector<Call> all;
    return all;
}

void* pointer(std::uintptr_t value) { return reinterpret_cast<void*>(value); }

} // namespace

// What the libraries call.
extern "C" void hostLogCalled(const char* function, void* a1, void* a2, void* a3, int a4, void* a6);
extern "C" void hostLogCalled(const char* function, void* a1, void* a2, void* a3, int a4, void* a6)
{
    calls().push_back({function, a1, a2, a3, a4, a6});
}

static int unloadings = 0;
extern "C" void hostLogUnloaded();
extern "C" void hostLogUnloaded() { ++unloadings; }

namespace {

// The fixed path, as this test's own for a while. Two runs of the test at the same time take turns.
class HostLogPlace {
public:
    HostLogPlace()
    {
        lock_ = open(kLock, O_RDONLY | O_CLOEXEC); // another user's, perhaps
        lock_ = lock_ >= 0 ? lock_ : open(kLock, O_RDONLY | O_CREAT | O_CLOEXEC, 0644);
        if (lock_ < 0 || flock(lock_, LOCK_EX) != 0) {
            reason_ = std::string("no lock ") + kLock;
            return;
        }
        std::error_code error;
        createDirectories(fs::path(kPath).parent_path(), error);
        removeLeftOver();
        // A file kept already is the host's, left by a run that was broken off.
        if (!error && fs::exists(kPath, error) && !fs::exists(kKept, error)) {
            fs::rename(kPath, kKept, error);
        }
        if (!error && access(fs::path(kPath).parent_path().c_str(), W_OK) != 0) {
            error = std::error_code(errno, std::generic_category());
        }
        reason_ = error ? error.message() : "";
    }

    ~HostLogPlace()
    {
        std::error_code ignored;
        if (usable()) {
            fs::remove(kPath, ignored);
            if (fs::exists(kKept, ignored)) {
                fs::rename(kKept, kPath, ignored);
            }
        }
        for (auto directory = created_.rbegin(); directory != created_.rend(); ++directory) {
            fs::remove(*directory, ignored);
        }
        close(lock_);
    }

    HostLogPlace(const HostLogPlace&) = delete;
    HostLogPlace& operator=(const HostLogPlace&) = delete;

    bool usable() const { return reason_.empty(); }
    const std::string& reason() const { return reason_; }

    // A new file every time: a library that is still loaded from the old one stays as it is.
    void put(const std::string& library) const
    {
        fs::remove(kPath);
        if (!library.empty()) {
            fs::copy_file(library, kPath);
        }
    }

private:
    // A run that was broken off may have left a library of the test's, and the directories that it created.
    void removeLeftOver()
    {
        if (vorn::test::fileText(kPath).find("hostLogCalled") == std::string::npos) {
            return;
        }
        std::error_code ignored;
        fs::remove(kPath, ignored);
        if (created_.empty() && !fs::exists(kKept, ignored)) {
            for (const char* directory : kOurDirectories) {
                created_.push_back(directory); // only what is empty in the end goes
            }
        }
    }

    void createDirectories(const fs::path& wanted, std::error_code& error)
    {
        fs::path directory;
        for (const fs::path& part : wanted) {
            directory /= part;
            if (fs::create_directory(directory, error)) {
                created_.push_back(directory);
            }
            if (error) {
                return;
            }
        }
    }

    int lock_ = -1;
    std::string reason_;
    std::vector<fs::path> created_;
};

class HostLogBridge : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!place_.usable()) {
            std::cout << "SKIPPED ALL: the host log bridge is NOT tested: " << kPath << ": " << place_.reason() << "\n";
            GTEST_SKIP() << "cannot create " << kPath << ": " << place_.reason();
        }
        calls().clear();
        log_close();
    }
    void TearDown() override { log_close(); }

    // What log_init returned and printed with this library at the path.
    std::string initWith(const std::string& library)
    {
        place_.put(library);
        return init();
    }

    static std::string init()
    {
        int result = -1;
        const std::string output = standardOutputOf([&] { result = log_init(); });
        return std::to_string(result) + (output.empty() ? "" : " " + output);
    }

    static int log(int level, int a4 = 5) { return messLog(pointer(1), pointer(2), pointer(3), a4, level, pointer(4)); }

    static bool loaded()
    {
        void* const handle = dlopen(kPath, RTLD_LAZY | RTLD_NOLOAD);
        if (handle != nullptr) {
            dlclose(handle);
        }
        return handle != nullptr;
    }

private:
    HostLogPlace place_;
};

const std::string kComplete = HOST_LOG_COMPLETE;

struct Level {
    int level;
    const char* function;
};

class HostLogLevels : public HostLogBridge, public ::testing::WithParamInterface<Level> {};
class HostLogOtherLevels : public HostLogBridge, public ::testing::WithParamInterface<int> {};
class IncompleteHostLog : public HostLogBridge, public ::testing::WithParamInterface<const char*> {};

} // namespace

TEST_F(HostLogBridge, LoadsTheLibraryAndPrintsNothing)
{
    EXPECT_EQ(initWith(kComplete), "1");
    EXPECT_TRUE(loaded());
    EXPECT_TRUE(calls().empty()); // loading calls none of them
}

TEST_F(HostLogBridge, BindsLazily)
{
    // The library calls, somewhere, a function that nobody defines.
    void* const bound = (initWith(""), dlopen(HOST_LOG_COMPLETE, RTLD_NOW));
    EXPECT_EQ(bound, nullptr) << "the test's library does not show the difference";
    EXPECT_EQ(initWith(kComplete), "1");
}

TEST_P(HostLogLevels, HandOnFiveArgumentsWithoutTheLevel)
{
    ASSERT_EQ(initWith(kComplete), "1");
    const std::uintptr_t large = UINTPTR_MAX;
    EXPECT_EQ(messLog(pointer(large), pointer(0x1122), nullptr, -77, GetParam().level, pointer(large - 9)), 0);
    ASSERT_EQ(calls().size(), 1U);
    EXPECT_EQ(calls()[0],
              (Call{GetParam().function, pointer(large), pointer(0x1122), nullptr, -77, pointer(large - 9)}));
}

INSTANTIATE_TEST_SUITE_P(HostLog, HostLogLevels,
                         ::testing::Values(Level{1, "LogInfo"}, Level{2, "LogWarn"}, Level{3, "LogError"}),
                         [](const ::testing::TestParamInfo<Level>& i) { return std::string(i.param.function); });

TEST_P(HostLogOtherLevels, WriteNothing)
{
    ASSERT_EQ(initWith(kComplete), "1");
    EXPECT_EQ(log(GetParam()), 0);
    EXPECT_TRUE(calls().empty());
}

INSTANTIATE_TEST_SUITE_P(HostLog, HostLogOtherLevels, ::testing::Values(0, 4, 5, -1, 257, INT32_MAX, INT32_MIN));

TEST_F(HostLogBridge, AbsentLibraryIsReportedOnce)
{
    EXPECT_EQ(initWith(""), "0 error open so\n");
    EXPECT_FALSE(loaded());
}

TEST_F(HostLogBridge, AfterAnAbsentLibraryNothingIsCalled)
{
    ASSERT_EQ(initWith(""), "0 error open so\n");
    for (int level = 0; level <= 4; ++level) {
        EXPECT_EQ(standardOutputOf([&] { EXPECT_EQ(log(level), 0); }), "");
    }
    EXPECT_TRUE(calls().empty());
}

TEST_F(HostLogBridge, FileThatIsNoLibraryIsReported)
{
    EXPECT_EQ(initWith(HOST_LOG_NO_LIBRARY), "0 error open so\n");
    EXPECT_EQ(log(1), 0);
}

TEST_F(HostLogBridge, BeforeLogInitNothingIsCalled)
{
    EXPECT_EQ(log(1), 0);
    EXPECT_EQ(log(3), 0);
    EXPECT_TRUE(calls().empty());
}

TEST_P(IncompleteHostLog, IsReportedAndStaysLoaded)
{
    EXPECT_EQ(initWith(GetParam()), "0 error open so 1\n");
    EXPECT_TRUE(loaded());
}

TEST_P(IncompleteHostLog, IsNotCalledAtAnyLevel)
{
    ASSERT_EQ(initWith(GetParam()), "0 error open so 1\n");
    for (int level = 0; level <= 4; ++level) {
        EXPECT_EQ(log(level), 0);
    }
    EXPECT_TRUE(calls().empty());
}

TEST_P(IncompleteHostLog, IsUnloadedByLogClose)
{
    ASSERT_EQ(initWith(GetParam()), "0 error open so 1\n");
    log_close();
    EXPECT_FALSE(loaded());
}

TEST_P(IncompleteHostLog, CanBeReplacedByACompleteOne)
{
    ASSERT_EQ(initWith(GetParam()), "0 error open so 1\n");
    log_close();
    EXPECT_EQ(initWith(kComplete), "1");
    log(1);
    EXPECT_EQ(calls().size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(HostLog, IncompleteHostLog,
                         ::testing::Values(HOST_LOG_NO_INFO, HOST_LOG_NO_WARN, HOST_LOG_NO_ERROR),
                         [](const ::testing::TestParamInfo<const char*>& i) {
                             return std::string(i.index == 0 ? "NoInfo" : i.index == 1 ? "NoWarn" : "NoError");
                         });

TEST_F(HostLogBridge, LogCloseUnloadsTheLibrary)
{
    ASSERT_EQ(initWith(kComplete), "1");
    log_close();
    EXPECT_FALSE(loaded());
}

TEST_F(HostLogBridge, AfterLogCloseNothingIsCalled)
{
    ASSERT_EQ(initWith(kComplete), "1");
    ASSERT_EQ(log(2), 0);
    log_close();
    calls().clear();
    for (int level = 0; level <= 4; ++level) {
        EXPECT_EQ(log(level), 0);
    }
    EXPECT_TRUE(calls().empty());
}

TEST_F(HostLogBridge, LogCloseLeavesALibraryThatTheHostLoadedItself)
{
    ASSERT_EQ(initWith(kComplete), "1");
    void* const own = dlopen(kPath, RTLD_LAZY);
    ASSERT_NE(own, nullptr);
    log_close();
    log_close(); // the second one has nothing to give back
    EXPECT_TRUE(loaded());
    dlclose(own);
    EXPECT_FALSE(loaded());
}

TEST_F(HostLogBridge, CanBeLoadedAgainAfterLogClose)
{
    ASSERT_EQ(initWith(kComplete), "1");
    log_close();
    ASSERT_EQ(init(), "1");
    log(3);
    ASSERT_EQ(calls().size(), 1U);
    EXPECT_EQ(calls()[0].function, "LogError");
}

TEST_F(HostLogBridge, LoadedTwiceIsUnloadedByOneLogClose)
{
    ASSERT_EQ(initWith(kComplete), "1");
    ASSERT_EQ(init(), "1");
    EXPECT_EQ(log(1), 0);
    EXPECT_EQ(calls().size(), 1U);
    log_close();
    EXPECT_FALSE(loaded());
}

TEST_F(HostLogBridge, LogCloseWithoutLogInitDoesNothing)
{
    EXPECT_EQ(standardOutputOf([] {
                  log_close();
                  log_close();
              }),
              "");
}

TEST_F(HostLogBridge, LoadedTwiceIsNotUnloadedInBetween)
{
    ASSERT_EQ(initWith(kComplete), "1");
    unloadings = 0;
    ASSERT_EQ(init(), "1");
    EXPECT_EQ(unloadings, 0); // what the library keeps of its own is still there
    EXPECT_EQ(log(2), 0);
    EXPECT_EQ(calls().size(), 1U);
    log_close();
    EXPECT_EQ(unloadings, 1);
}

TEST_F(HostLogBridge, LoadedManyTimesCountsOnce)
{
    ASSERT_EQ(initWith(kComplete), "1");
    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(init(), "1");
    }
    log_close();
    EXPECT_FALSE(loaded());
}

TEST_P(IncompleteHostLog, IsLoadedTwiceAndUnloadedByOneLogClose)
{
    ASSERT_EQ(initWith(GetParam()), "0 error open so 1\n");
    EXPECT_EQ(init(), "0 error open so 1\n");
    EXPECT_TRUE(loaded());
    log_close();
    EXPECT_FALSE(loaded());
}

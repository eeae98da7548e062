// SPDX-License-Identifier: Apache-2.0
// A test program holds the tests of one folder. --file NAME.cpp runs those of one of its files, in a process of their
// own: the library keeps its link in globals, and a test that breaks one leaves the others alone.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

namespace {

bool isOf(const testing::TestInfo& test, std::string_view file)
{
    const std::string_view path = test.file();
    return path.size() > file.size() && path.substr(path.size() - file.size()) == file &&
           path[path.size() - file.size() - 1] == '/';
}

std::string testsOf(std::string_view file)
{
    std::string filter;
    const testing::UnitTest& all = *testing::UnitTest::GetInstance();
    for (int s = 0; s < all.total_test_suite_count(); ++s) {
        const testing::TestSuite& suite = *all.GetTestSuite(s);
        for (int t = 0; t < suite.total_test_count(); ++t) {
            const testing::TestInfo& test = *suite.GetTestInfo(t);
            if (isOf(test, file)) {
                filter += std::string(filter.empty() ? "" : ":") + suite.name() + "." + test.name();
            }
        }
    }
    return filter;
}

// VORN_EXPECT_LIBRARY names the file that the library has to come from: whoever runs these tests with another build of
// it wants to know that it was that one.
bool libraryIsTheExpectedOne()
{
    const char* const expected = std::getenv("VORN_EXPECT_LIBRARY");
    if (expected == nullptr) {
        return true;
    }
    Dl_info loaded{};
    void* const call = dlsym(RTLD_DEFAULT, "IC_GetInfo");
    if (call == nullptr) {
        return true; // this program only looks at the library's file
    }
    if (dladdr(call, &loaded) == 0) {
        std::fprintf(stderr, "the library is nowhere\n");
        return false;
    }
    std::error_code none;
    if (!std::filesystem::equivalent(loaded.dli_fname, expected, none)) {
        std::fprintf(stderr, "the library is %s, not %s\n", loaded.dli_fname, expected);
        return false;
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (!libraryIsTheExpectedOne()) {
        return 1;
    }
    if (argc == 3 && std::string_view(argv[1]) == "--file") {
        const std::string filter = testsOf(argv[2]);
        if (filter.empty()) {
            std::fprintf(stderr, "no test in %s\n", argv[2]);
            return 1;
        }
        testing::GTEST_FLAG(filter) = filter;
    } else if (argc != 1) {
        std::fprintf(stderr, "usage: %s [--file NAME.cpp] [GoogleTest's options]\n", argv[0]);
        return 2;
    }
    return RUN_ALL_TESTS();
}

// SPDX-License-Identifier: Apache-2.0
// Walking a card's data and building lists needs no memory but the caller's.
#include "support/card_text.h"
#include "support/failing_calls.h"
#include "support/line.h"
#include "support/scripted_reader.h"

#include "ICC_COMM_VORN.h"

#include <climits>
#include <gtest/gtest.h>

#include <functional>
#include <string>

using namespace vorn::test;

namespace {

// How often the library asks for memory in f.
int allocationsIn(const std::function<void()>& f)
{
    failing_calls::arm(Site::Allocate, How::Fail, INT_MAX);
    f();
    const int count = failing_calls::callsSinceArmed(Site::Allocate);
    failing_calls::disarm();
    return count;
}

// Objects inside so many templates, and one behind them.
Bytes nested(int depth, std::size_t size)
{
    Bytes data;
    const Bytes object = fromHex("9F10 0D 0102030405060708090A0B0C0D");
    while (data.size() < size) {
        data.insert(data.end(), object.begin(), object.end());
    }
    for (int i = 0; i < depth; ++i) {
        const std::size_t inner = data.size();
        const Bytes header{0x70, 0x82, static_cast<std::uint8_t>(inner >> 8), static_cast<std::uint8_t>(inner & 0xFF)};
        data.insert(data.begin(), header.begin(), header.end());
    }
    const Bytes last = fromHex("5A 02 6222");
    data.insert(data.end(), last.begin(), last.end());
    return data;
}

class NoAllocation : public ReaderTest {
protected:
    void SetUp() override
    {
        if (!failing_calls::allocationsFail()) {
            GTEST_SKIP() << "a sanitizer has taken the place of the allocations";
        }
    }
};

} // namespace

TEST_F(NoAllocation, ACallThatNeedsMemoryIsCounted)
{
    std::string text(5000, 'x');
    EXPECT_GT(allocationsIn([&] { log_write(text.c_str()); }), 0);
}

TEST_F(NoAllocation, InASearch)
{
    for (const int depth : {1, 10, 100}) {
        for (const std::size_t size : {std::size_t{200}, std::size_t{4096}, std::size_t{60000}}) {
            const Bytes data = nested(depth, size);
            const unsigned char tag[] = {0x5A};
            unsigned char list[] = {0x5A, 0x9F, 0x10, 0x57};
            unsigned char value[256] = {};
            int length = 0;
            int left = 0;
            EXPECT_EQ(allocationsIn([&] {
                          vrdk_gettagvalue(tag, 1, data.data(), static_cast<int>(data.size()), value, &length);
                          left = vrdk_findapptag(data.data(), static_cast<int>(data.size()), list, sizeof list);
                      }),
                      0);
            EXPECT_EQ(length, 2) << depth << " templates, " << size << " bytes";
            EXPECT_EQ(left, 1);
        }
    }
}

TEST_F(NoAllocation, InAList)
{
    const Bytes source = nested(10, 4096);
    const Bytes dol = fromHex("9F1020 5A0A 9F0206");
    unsigned char values[VORN_DOL_DATA_CAPACITY];
    int length = 0;
    EXPECT_EQ(allocationsIn([&] {
                  vrdk_BuildDOL(source.data(), static_cast<int>(source.size()), dol.data(),
                                static_cast<int>(dol.size()), values, &length);
              }),
              0);
    EXPECT_EQ(length, 0x20 + 0x0A + 0x06);
}

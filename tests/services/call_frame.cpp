// SPDX-License-Identifier: Apache-2.0
// What the card data and transaction calls begin with, as a host finds it afterwards.
#include "support/scripted_reader.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using namespace vorn::test;

namespace {

class TracedCall : public ReaderTest {
protected:
    // The shared text is spoilt before, so that a line which stays from the call before is none.
    static std::string lineOf(const std::function<int()>& call)
    {
        std::strcpy(DbgString, "from before");
        standardOutputOf([&] { EXPECT_EQ(call(), VORN_OPEN_FAILED); });
        return DbgString;
    }

    int icType = 1, length = 0;
    char text[32] = {}, more[32] = {}, third[32] = {};
};

const char* const kNowhere = "pts/nowhere";

} // namespace

TEST_F(TracedCall, LeavesItsTraceLineInTheSharedText)
{
    EXPECT_EQ(lineOf([&] { return IC_GetInfo(kNowhere, "x1", 1200, 1, &icType, "", "A", &length, text); }),
              "nPortNo=pts/nowhere extendPort=x1 nBaudRate=1200 nTimeout=1");
    EXPECT_EQ(lineOf([&] { return IC_GetTranDeta(kNowhere, "x2", 2400, 2, &icType, "", &length, text); }),
              "nPortNo=pts/nowhere extendPort=x2 nBaudRate=2400 nTimeout=2");
    EXPECT_EQ(lineOf([&] { return IC_GenARQC(kNowhere, "x3", 4800, 3, &icType, "", "", &length, text, more); }),
              "nPortNo=pts/nowhere extendPort=x3 nBaudRate=4800 nTimeout=3");
    EXPECT_EQ(
        lineOf([&] { return IC_CtlScriptData(kNowhere, "x4", 9600, 4, &icType, "", "", &length, text, more, third); }),
        "nPortNo=pts/nowhere extendPort=x4 nBaudRate=9600 nTimeout=4");
}

TEST_F(TracedCall, CutsALineThatTheSharedTextCannotHold)
{
    const std::string extension(600, 'e');
    EXPECT_EQ(lineOf([&] { return IC_GetInfo(kNowhere, extension.c_str(), 1200, 1, &icType, "", "A", &length, text); }),
              ("nPortNo=pts/nowhere extendPort=" + extension).substr(0, 511));
}

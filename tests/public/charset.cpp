// SPDX-License-Identifier: Apache-2.0
// Text between GBK, UTF-8 and UCS-2. This executable defines iconv_open and iconv_close, which the dynamic linker
// finds before libc's: a test sees which code sets are asked for and can refuse them.
#include "support/line.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <iconv.h>

#include <cerrno>
#include <string>
#include <vector>

namespace {

enum class Opening { Real, Refused, Null };

struct IconvCalls {
    Opening opening = Opening::Real;
    std::vector<std::string> opened; // "from>to"
    int closed = 0;
};

IconvCalls& iconvCalls()
{
    static IconvCalls calls;
    return calls;
}

// iconv's own sign of failure.
iconv_t refusedDescriptor() { return reinterpret_cast<iconv_t>(std::intptr_t{-1}); }

} // namespace

extern "C" {

iconv_t iconv_open(const char* to, const char* from)
{
    using Function = iconv_t (*)(const char*, const char*);
    static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "iconv_open"));
    IconvCalls& calls = iconvCalls();
    calls.opened.push_back(std::string(from) + ">" + to);
    if (calls.opening == Opening::Real) {
        return real(to, from);
    }
    errno = EINVAL;
    return calls.opening == Opening::Null ? nullptr : refusedDescriptor();
}

int iconv_close(iconv_t descriptor)
{
    using Function = int (*)(iconv_t);
    static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "iconv_close"));
    ++iconvCalls().closed;
    return real(descriptor);
}

} // extern "C"

using namespace vorn::test;

namespace {

using Conversion = int (*)(const char*, unsigned long, char*, unsigned long);

constexpr std::uint8_t kGuard = 0xEE;

struct Converted {
    int result = 0;
    std::string output; // the whole capacity, as hex

    bool operator==(const Converted& other) const { return result == other.result && output == other.output; }
};

std::ostream& operator<<(std::ostream& stream, const Converted& c) { return stream << c.result << " " << c.output; }

Converted converted(Conversion conversion, const std::string& hex, std::size_t capacity)
{
    const Bytes input = fromHex(hex);
    Bytes output(capacity + 4, kGuard);
    Converted c;
    c.result = conversion(reinterpret_cast<const char*>(input.data()), input.size(),
                          reinterpret_cast<char*>(output.data()), capacity);
    EXPECT_EQ(toHex(Bytes(output.end() - 4, output.end())), "EEEEEEEE") << "written behind the capacity";
    output.resize(capacity);
    c.output = toHex(output);
    return c;
}

class Charsets : public ::testing::Test {
protected:
    Charsets() { iconvCalls() = IconvCalls{}; }
    ~Charsets() override { iconvCalls() = IconvCalls{}; }
};

struct Direction {
    const char* name;
    Conversion conversion;
    const char* codeSets;
    const char* input; // the same text, "card" and two Chinese characters
    const char* output;
    const char* broken; // 'A' and then what no text of this code set holds
};

const Direction kDirections[] = {
    {"Utf8ToGbk", Utf8ToGbk, "utf8>gbk", "63617264 E993B6 E8A18C", "63617264 D2F8 D0D0", "41 E9 41 41"},
    {"GbkToUtf8", GbkToUtf8, "gbk>utf8", "63617264 D2F8 D0D0", "63617264 E993B6 E8A18C", "41 FF FF 41"},
    {"Ucs2ToUtf8", ucs2_utf8, "ucs2>utf8", "6300 6100 7200 6400 F694 4C88", "63617264 E993B6 E8A18C", "4100 00D8 4100"},
};

class EachDirection : public Charsets, public ::testing::WithParamInterface<Direction> {};

std::string zeros(std::size_t count) { return std::string(2 * count, '0'); }

std::string compact(const std::string& hex) { return toHex(fromHex(hex)); }

std::string directionName(const ::testing::TestParamInfo<Direction>& info) { return info.param.name; }

} // namespace

TEST_P(EachDirection, ConvertsAndFillsTheRestWithZeros)
{
    const std::string output = compact(GetParam().output);
    const std::size_t size = output.size() / 2;
    EXPECT_EQ(converted(GetParam().conversion, GetParam().input, size + 20), (Converted{0, output + zeros(20)}));
}

TEST_P(EachDirection, OpensItsTwoCodeSetsAndClosesThem)
{
    converted(GetParam().conversion, GetParam().input, 64);
    EXPECT_EQ(iconvCalls().opened, std::vector<std::string>{GetParam().codeSets});
    EXPECT_EQ(iconvCalls().closed, 1);
}

TEST_P(EachDirection, FillsAnOutputThatIsJustLargeEnoughWithoutANul)
{
    const std::string output = compact(GetParam().output);
    EXPECT_EQ(converted(GetParam().conversion, GetParam().input, output.size() / 2), (Converted{0, output}));
}

TEST_P(EachDirection, OutputThatIsTooSmallFailsAndKeepsWhatFitted)
{
    const std::string output = compact(GetParam().output);
    // One byte is missing: the last character goes, whole.
    const std::size_t lastCharacter = GetParam().conversion == Utf8ToGbk ? 2 : 3;
    const std::size_t capacity = output.size() / 2 - 1;
    const std::string kept = output.substr(0, output.size() - 2 * lastCharacter);
    EXPECT_EQ(converted(GetParam().conversion, GetParam().input, capacity),
              (Converted{-1, kept + zeros(lastCharacter - 1)}));
}

TEST_P(EachDirection, InvalidInputFailsAndKeepsWhatStoodBeforeIt)
{
    EXPECT_EQ(converted(GetParam().conversion, GetParam().broken, 10), (Converted{-1, "41" + zeros(9)}));
}

TEST_P(EachDirection, CharacterCutOffAtTheEndFails)
{
    const Bytes whole = fromHex(GetParam().input);
    const std::string cut = toHex(Bytes(whole.begin(), whole.end() - 1));
    const Converted c = converted(GetParam().conversion, cut, 64);
    EXPECT_EQ(c.result, -1);
    EXPECT_EQ(c.output.substr(0, 8), "63617264");
}

TEST_P(EachDirection, EmptyTextGivesZeros)
{
    EXPECT_EQ(converted(GetParam().conversion, "", 6), (Converted{0, zeros(6)}));
    EXPECT_EQ(converted(GetParam().conversion, "", 0), (Converted{0, ""}));
}

TEST_P(EachDirection, ZeroBytesInTheTextAreText)
{
    const bool wide = GetParam().conversion == ucs2_utf8;
    EXPECT_EQ(converted(GetParam().conversion, wide ? "4100 0000 4200" : "41 00 42", 5), (Converted{0, "4100420000"}));
}

TEST_P(EachDirection, SystemWithoutTheCodeSetFailsOnAClearedOutput)
{
    iconvCalls().opening = Opening::Refused;
    EXPECT_EQ(converted(GetParam().conversion, GetParam().input, 8), (Converted{-1, zeros(8)}));
}

TEST_P(EachDirection, NoDescriptorAtAllFails)
{
    iconvCalls().opening = Opening::Null;
    EXPECT_EQ(converted(GetParam().conversion, GetParam().input, 8).result, -1);
    EXPECT_EQ(iconvCalls().closed, 0);
}

INSTANTIATE_TEST_SUITE_P(Charsets, EachDirection, ::testing::ValuesIn(kDirections), directionName);

TEST_F(Charsets, NameThatACardHoldsInGbkComesBackUnchanged)
{
    const std::string name = "D6D0B9FA20D5C5C8FD2F4D52"; // two words and a title
    Converted utf8 = converted(GbkToUtf8, name, 16);
    EXPECT_EQ(utf8, (Converted{0, "E4B8ADE59BBD20E5BCA0E4B8892F4D52"}));
    EXPECT_EQ(converted(Utf8ToGbk, utf8.output, 12), (Converted{0, name}));
}

TEST_F(Charsets, CharacterThatGbkLacksFails)
{
    EXPECT_EQ(converted(Utf8ToGbk, "41 F09F9880 42", 6), (Converted{-1, "41" + zeros(5)})); // an emoji
}

// SPDX-License-Identifier: Apache-2.0
// TLV search and list building on random well-formed data, against a model that knows where it put what. The seed is
// fixed and printed, so a failure comes back in the next run.
#include "support/dictionary_table.h"
#include "support/line.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <cstring>
#include <iostream>
#include <map>
#include <random>
#include <string>
#include <vector>

using namespace vorn::test;

namespace {

constexpr unsigned kSeed = 20291231;
constexpr int kRounds = 1000;

class Random {
public:
    explicit Random(unsigned seed) : engine_(seed) {}

    // 0 to bound - 1
    std::size_t below(std::size_t bound) { return engine_() % bound; }
    std::uint8_t byte() { return static_cast<std::uint8_t>(engine_() & 0xFF); }
    bool once(std::size_t in) { return below(in) == 0; }
    Bytes bytes(std::size_t size)
    {
        Bytes all(size);
        for (std::uint8_t& each : all) {
            each = byte();
        }
        return all;
    }
    template <typename T>
    const T& oneOf(const std::vector<T>& list)
    {
        return list[below(list.size())];
    }

private:
    std::mt19937 engine_;
};

void append(Bytes& to, const Bytes& more) { to.insert(to.end(), more.begin(), more.end()); }

Bytes lengthField(std::size_t size, bool longForm)
{
    if (size > 0xFF || (longForm && size % 2 == 0)) {
        return {0x82, static_cast<std::uint8_t>(size >> 8), static_cast<std::uint8_t>(size)};
    }
    if (size > 0x7F || longForm) {
        return {0x81, static_cast<std::uint8_t>(size)};
    }
    return {static_cast<std::uint8_t>(size)};
}

// An object of the model: where it stands in the buffer, and what it holds.
struct Object {
    Bytes tag;
    std::size_t at;
    std::uint8_t lengthForm; // the first byte of its length field
    std::size_t valueAt;
    Bytes value;
};

// Random data with the objects that it holds, in the order in which they begin.
struct Model {
    Bytes bytes;
    std::vector<Object> objects;

    const Object* first(const Bytes& tag) const
    {
        for (const Object& object : objects) {
            if (object.tag == tag) {
                return &object;
            }
        }
        return nullptr;
    }
};

class Generator {
public:
    // Unbounded data: tags of two bytes at most, none beginning with a zero.
    Generator(Random& random, bool unbounded) : random_(random), unbounded_(unbounded) {}

    Model model()
    {
        Model model;
        const std::size_t count = 1 + random_.below(8);
        for (std::size_t i = 0; i < count; ++i) {
            appendObject(model, 0);
        }
        if (unbounded_) {
            model.bytes.push_back(0);
        }
        return model;
    }

    Bytes tag(bool constructed)
    {
        for (;;) {
            Bytes tag{static_cast<std::uint8_t>(constructed ? random_.byte() | 0x20 : random_.byte() & ~0x20)};
            if ((tag[0] & 0x1F) == 0x1F) {
                while (!unbounded_ && random_.once(4)) {
                    tag.push_back(static_cast<std::uint8_t>(0x80 | random_.below(0x7F)));
                }
                tag.push_back(static_cast<std::uint8_t>(random_.below(0x80)));
            }
            if (tag[0] != 0xFF && (tag[0] != 0 || !unbounded_)) {
                return tag;
            }
        }
    }

private:
    // Few different tags, so that some stand in the data twice.
    Bytes nextTag(bool constructed)
    {
        std::vector<Bytes>& used = constructed ? templates_ : primitives_;
        if (used.empty() || random_.once(3)) {
            used.push_back(random_.once(3) && !constructed ? random_.oneOf(known_).tag : tag(constructed));
        }
        return random_.oneOf(used);
    }

    void appendObject(Model& model, int depth)
    {
        const bool constructed = depth < 5 && random_.once(3);
        Object object;
        object.tag = nextTag(constructed);
        // A known tag may be a template itself; then it is filled like one.
        const bool entered = (object.tag[0] & 0x20) != 0;
        Model inner;
        if (entered) {
            const std::size_t count = random_.below(4);
            for (std::size_t i = 0; i < count && depth < 6; ++i) {
                appendObject(inner, depth + 1);
            }
        } else {
            inner.bytes = random_.bytes(random_.once(8) ? random_.below(700) : random_.below(20));
        }
        const Bytes length = lengthField(inner.bytes.size(), random_.once(6));
        object.at = model.bytes.size();
        object.lengthForm = length[0];
        object.valueAt = object.at + object.tag.size() + length.size();
        object.value = inner.bytes;
        append(model.bytes, object.tag);
        append(model.bytes, length);
        append(model.bytes, inner.bytes);
        const std::size_t valueAt = object.valueAt;
        model.objects.push_back(object);
        for (Object nested : inner.objects) {
            nested.at += valueAt;
            nested.valueAt += valueAt;
            model.objects.push_back(nested);
        }
    }

    Random& random_;
    bool unbounded_;
    std::vector<TagFormat> known_ = dictionaryTable();
    std::vector<Bytes> primitives_, templates_;
};

std::vector<Bytes> tagsToSeek(Random& random, Generator& generator, const Model& model)
{
    std::vector<Bytes> tags;
    for (const Object& object : model.objects) {
        tags.push_back(object.tag);
    }
    for (int i = 0; i < 5; ++i) {
        tags.push_back(generator.tag(random.once(2))); // most of them absent
    }
    return tags;
}

int sizeOf(const Bytes& bytes) { return static_cast<int>(bytes.size()); }

void checkSearch(const Model& model, const Bytes& tag, int bound)
{
    const Object* const expected = model.first(tag);
    const unsigned char* const found = vrdk_findtag(tag.data(), sizeOf(tag), model.bytes.data(), bound);
    ASSERT_EQ(found != nullptr, expected != nullptr) << toHex(tag);
    if (expected != nullptr) {
        EXPECT_EQ(static_cast<std::size_t>(found - model.bytes.data()), expected->at) << toHex(tag);
    }
}

// What vrdk_gettagvalue hands out: of the 81 form as many bytes as the buffer's second byte says.
Bytes expectedValue(const Model& model, const Object& object)
{
    if (object.lengthForm != 0x81) {
        return object.value;
    }
    Bytes value(model.bytes.begin() + static_cast<std::ptrdiff_t>(object.valueAt), model.bytes.end());
    value.resize(model.bytes[1], 0);
    return value;
}

void checkValue(const Model& model, const Bytes& tag, int bound)
{
    Bytes value(model.bytes.size() + 256, 0xEE);
    int length = -5;
    const int result = vrdk_gettagvalue(tag.data(), sizeOf(tag), model.bytes.data(), bound, value.data(), &length);
    const Object* const expected = model.first(tag);
    ASSERT_EQ(result, expected == nullptr ? -1 : 0) << toHex(tag);
    if (expected == nullptr) {
        EXPECT_EQ(length, -5);
        return;
    }
    const Bytes wanted = expectedValue(model, *expected);
    ASSERT_EQ(static_cast<std::size_t>(length), wanted.size()) << toHex(tag);
    EXPECT_EQ(toHex(Bytes(value.begin(), value.begin() + length)), toHex(wanted)) << toHex(tag);
}

void checkFoundObject(const Model& model, const Object& object)
{
    Bytes value(256, 0xEE);
    unsigned char length = 0xEE;
    EXPECT_EQ(vrdk_GetTagData(sizeOf(object.tag), model.bytes.data() + object.at, value.data(), &length), 0);
    const std::size_t kept = object.value.size() & 0xFF; // one byte counts
    EXPECT_EQ(length, kept);
    EXPECT_EQ(toHex(Bytes(value.begin(), value.begin() + length)),
              toHex(Bytes(object.value.begin(), object.value.begin() + static_cast<std::ptrdiff_t>(kept))));
}

std::string inRound(int round) { return "round " + std::to_string(round) + ", seed " + std::to_string(kSeed); }

// The field that a list gets for a value, from the format's definition.
Bytes expectedField(char format, std::size_t length, const Bytes& value)
{
    if (format == '-' || format == 't') {
        return Bytes(length, 0);
    }
    Bytes field = value;
    if (format == 'n') {
        Bytes padded(length, 0);
        append(padded, field);
        return Bytes(padded.end() - static_cast<std::ptrdiff_t>(length), padded.end());
    }
    field.resize(length, format == 'c' ? 0xFF : 0x00);
    return field;
}

class Formats {
public:
    Formats()
    {
        for (const TagFormat& entry : dictionaryTable()) {
            letters_[entry.tag] = entry.letter;
        }
    }
    char of(const Bytes& tag) const
    {
        const auto found = letters_.find(tag);
        return found == letters_.end() ? '-' : found->second;
    }

private:
    std::map<Bytes, char> letters_;
};

// A list entry's own length field, with what it asks for.
std::size_t appendListLength(Random& random, Bytes& dol)
{
    const std::size_t length = random.once(12) ? random.below(400) : random.below(24);
    append(dol, lengthField(length, random.once(6)));
    return length;
}

class Properties : public ::testing::TestWithParam<bool> {
protected:
    Properties() { std::cout << "seed " << kSeed << "\n"; }

    Random random{kSeed};
    const bool unbounded = GetParam();
};

} // namespace

TEST_P(Properties, SearchFindsTheFirstObjectInBufferOrderAndNoOther)
{
    for (int round = 0; round < kRounds && !HasFailure(); ++round) {
        SCOPED_TRACE(inRound(round));
        Generator generator(random, unbounded);
        const Model model = generator.model();
        for (const Bytes& tag : tagsToSeek(random, generator, model)) {
            checkSearch(model, tag, unbounded ? 0 : sizeOf(model.bytes));
        }
    }
}

TEST_P(Properties, ValueOfATagIsThatOfItsFirstObject)
{
    for (int round = 0; round < kRounds && !HasFailure(); ++round) {
        SCOPED_TRACE(inRound(round));
        Generator generator(random, unbounded);
        Model model = generator.model();
        if (unbounded) {
            model.bytes.resize(model.bytes.size() + 256, 0); // the 81 form may reach behind the data
        }
        for (const Bytes& tag : tagsToSeek(random, generator, model)) {
            checkValue(model, tag, unbounded ? 0 : sizeOf(model.bytes));
        }
        for (const Object& object : model.objects) {
            checkFoundObject(model, object);
        }
    }
}

TEST_P(Properties, PrunedListKeepsTheAbsentTagsInTheirOrder)
{
    for (int round = 0; round < kRounds && !HasFailure(); ++round) {
        SCOPED_TRACE(inRound(round));
        Generator generator(random, unbounded);
        const Model model = generator.model();
        Bytes list, kept;
        for (const Bytes& tag : tagsToSeek(random, generator, model)) {
            if (tag.size() <= 2 && random.once(2)) {
                append(list, tag);
                append(kept, model.first(tag) == nullptr ? tag : Bytes());
            }
        }
        list.push_back(0xEE); // behind the list
        const int length =
            vrdk_findapptag(model.bytes.data(), unbounded ? 0 : sizeOf(model.bytes), list.data(), sizeOf(list) - 1);
        ASSERT_EQ(static_cast<std::size_t>(length), kept.size());
        EXPECT_EQ(toHex(Bytes(list.begin(), list.begin() + length)), toHex(kept));
        EXPECT_EQ(list.back(), 0xEE);
    }
}

TEST_P(Properties, ListIsBuiltFieldByFieldFromTheFormats)
{
    const Formats formats;
    const std::vector<TagFormat> known = dictionaryTable();
    for (int round = 0; round < kRounds && !HasFailure(); ++round) {
        SCOPED_TRACE(inRound(round));
        Generator generator(random, unbounded);
        const Model source = generator.model();
        Bytes dol, expected;
        for (const Bytes& sought : tagsToSeek(random, generator, source)) {
            const Bytes tag = random.once(4) ? random.oneOf(known).tag : sought;
            if (std::memchr(tag.data(), 0, tag.size()) != nullptr || expected.size() > 3500) {
                continue; // a tag with a zero byte is another test's
            }
            append(dol, tag);
            const std::size_t length = appendListLength(random, dol);
            const Object* const object = source.first(tag);
            append(expected,
                   object == nullptr ? Bytes(length, 0) : expectedField(formats.of(tag), length, object->value));
        }
        if (dol.empty()) {
            continue;
        }
        Bytes output(VORN_DOL_DATA_CAPACITY, 0xEE);
        int length = -5;
        ASSERT_EQ(vrdk_BuildDOL(source.bytes.data(), unbounded ? 0 : sizeOf(source.bytes), dol.data(), sizeOf(dol),
                                output.data(), &length),
                  0);
        ASSERT_EQ(static_cast<std::size_t>(length), expected.size());
        EXPECT_EQ(toHex(Bytes(output.begin(), output.begin() + length)), toHex(expected));
    }
}

TEST_P(Properties, ListEntriesReadBackAsTheyWereWritten)
{
    for (int round = 0; round < kRounds && !HasFailure(); ++round) {
        SCOPED_TRACE(inRound(round));
        Generator generator(random, unbounded);
        const Bytes tag = generator.tag(random.once(2));
        Bytes dol = tag;
        const std::size_t asked = appendListLength(random, dol);
        const std::size_t size = dol.size();
        append(dol, random.bytes(random.below(5)));
        unsigned char read[257];
        int length = -5;
        ASSERT_EQ(static_cast<std::size_t>(vrdk_GetTaginDOL(dol.data(), sizeOf(dol), read, &length)), size);
        EXPECT_EQ(static_cast<std::size_t>(length), asked);
        EXPECT_EQ(toHex(Bytes(read, read + tag.size())), toHex(tag));
        EXPECT_EQ(read[tag.size()], 0);
        EXPECT_EQ(vrdk_findtaginDOL(tag.data(), sizeOf(tag), dol.data(), static_cast<int>(size)), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Tlv, Properties, ::testing::Bool(), [](const ::testing::TestParamInfo<bool>& i) {
    return std::string(i.param ? "WithoutABound" : "WithABound");
});

// SPDX-License-Identifier: Apache-2.0
#include "card/dol.h"

#include "vorn/card.h"

#include <cstring>

namespace vorn {
namespace {

enum class EntryState { Read, Unreadable, LengthMissing };

struct Entry {
    EntryState state;
    ByteView tag;
    std::size_t length = 0; // what the list asks for
    std::size_t size = 0;   // what the entry takes in the list
};

Entry readEntry(ByteView dol)
{
    const std::size_t size = tagSize(dol, Bound::Length);
    if (size == 0) {
        return {EntryState::Unreadable, {}};
    }
    const ByteView rest = dol.from(size);
    const LengthField field = lengthField(rest);
    if (!rest.holds(0, field.size)) {
        const bool twoBytes = rest[0] == kTwoLengthBytes;
        return {twoBytes ? EntryState::Unreadable : EntryState::LengthMissing, {}};
    }
    return {EntryState::Read, dol.first(size), field.value, size + field.size};
}

// Length of the tag as a text: a tag with a zero byte in it is sought by what stands before that byte.
std::size_t textLength(ByteView tag)
{
    std::size_t length = 0;
    while (length < tag.size() && tag[length] != 0) {
        ++length;
    }
    return length;
}

// Places a value into its field, which holds zeros. A tag that is not in the dictionary, and a template, stay zero
// (compatibility: "Proprietary objects are sent empty").
void fillField(std::uint8_t* field, std::size_t length, unsigned char format, ByteView value)
{
    if (format == 0 || format == 't' || length == 0) {
        return;
    }
    const bool numeric = format == 'n';
    if (value.size() >= length) {
        const ByteView kept = numeric ? value.from(value.size() - length) : value.first(length);
        std::memcpy(field, kept.data(), kept.size());
        return;
    }
    if (format == 'c') {
        std::memset(field, 0xFF, length);
    }
    value.copyTo(numeric ? field + (length - value.size()) : field);
}

// The objects that a list asks for, looked for in one walk over the source: of each the first one counts, and nothing is
// read behind the last one needed.
class WantedObjects {
public:
    // cppcheck-suppress uninitMemberVar ; of objects_ only the first count_ are read
    explicit WantedObjects(const TlvBuffer& source) : source_(source) {}

    void add(ByteView tag, std::uint8_t* field, std::size_t length)
    {
        if (count_ == kMost) {
            find();
        }
        objects_[count_] = {keyOf(tag), tag.data(), field, length};
        ++count_;
    }

    // Fills the fields of what is there.
    void find()
    {
        TlvWalk walk(source_);
        while (count_ != 0 && walk.next()) {
            fillWith(walk);
        }
        count_ = 0;
    }

private:
    struct Object {
        std::size_t key;
        const std::uint8_t* tag;
        std::uint8_t* field;
        std::size_t length;
    };
    static constexpr std::size_t kMost = 32; // more of them take another walk

    // Its size and its first two bytes. Tags of more bytes may have the same.
    static std::size_t keyOf(ByteView tag)
    {
        return tag.size() * 0x10000 + tag[0] * std::size_t{0x100} + (tag.size() > 1 ? tag[1] : 0);
    }

    void fillWith(const TlvWalk& walk)
    {
        const ByteView tag = walk.tag();
        const std::size_t key = keyOf(tag);
        std::size_t left = count_;
        for (std::size_t i = 0; i < left;) {
            const Object& object = objects_[i];
            if (object.key == key && (tag.size() <= 2 || ByteView(object.tag, tag.size()) == tag)) {
                fillField(object.field, object.length, letterOf(tag), walk.value());
                objects_[i] = objects_[--left];
            } else {
                ++i;
            }
        }
        count_ = left;
    }

    const TlvBuffer& source_;
    Object objects_[kMost];
    std::size_t count_ = 0;
};

// A field of zeros for each entry. False: the list is empty or breaks off.
bool addFields(ByteView dol, DolValues& values, WantedObjects& wanted)
{
    if (dol.empty()) {
        return false;
    }
    while (!dol.empty()) {
        const Entry entry = readEntry(dol);
        if (entry.state != EntryState::Read) {
            return false;
        }
        dol = dol.from(entry.size);
        std::uint8_t* field = values.data() + values.size();
        if (!values.appendZeros(entry.length)) {
            return false;
        }
        wanted.add(entry.tag.first(textLength(entry.tag)), field, entry.length);
    }
    return true;
}

} // namespace

bool buildDol(const TlvBuffer& source, ByteView dol, DolValues& values)
{
    WantedObjects wanted(source);
    const bool readable = addFields(dol, values, wanted);
    wanted.find();
    return readable;
}

} // namespace vorn

using namespace vorn;

extern "C" {

int vrdk_GetTaginDOL(const unsigned char* dol, int remaining, unsigned char* tag, int* length)
{
    const Entry entry = readEntry(viewOf(dol, remaining));
    switch (entry.state) {
    case EntryState::Unreadable:
        return 0;
    case EntryState::LengthMissing:
        return -1;
    case EntryState::Read:
        break;
    }
    std::memcpy(tag, entry.tag.data(), entry.tag.size());
    tag[entry.tag.size()] = 0;
    *length = static_cast<int>(entry.length);
    return static_cast<int>(entry.size);
}

int vrdk_findtaginDOL(const unsigned char* tag, int tagLength, const unsigned char* dol, int dolLength)
{
    const ByteView sought = viewOf(tag, tagLength);
    ByteView rest = viewOf(dol, dolLength);
    while (!rest.empty()) {
        const std::size_t size = tagSize(rest, Bound::Length);
        if (size == 0) {
            break;
        }
        if (rest.first(size) == sought) {
            return 0;
        }
        rest = rest.from(size + lengthField(rest.from(size)).size);
    }
    return 1;
}

int vrdk_BuildDOL(const unsigned char* source, int sourceLength, const unsigned char* dol, int dolLength,
                  unsigned char* output, int* outputLength)
{
    DolValues values;
    const bool built = buildDol(tlvBufferOf(source, sourceLength), viewOf(dol, dolLength), values);
    if (values.size() > 0) {
        std::memcpy(output, values.data(), values.size()); // of a list that breaks off, the fields before the break
    }
    *outputLength = static_cast<int>(values.size());
    return built ? 0 : -1;
}

} // extern "C"

// SPDX-License-Identifier: Apache-2.0
// GET PROCESSING OPTIONS and the records that the AFL names (EMV Book 3, 10.1 and 10.2).
#include "card/dol.h"
#include "card/records.h"
#include "card/tags.h"
#include "card/tlv.h"

#include "vorn/card.h"

#include <cstdint>
#include <cstring>

namespace vorn {
namespace {

constexpr int kCannotProcess = -1;
constexpr std::size_t kAipSize = 2;
constexpr std::uint8_t kCommandTemplate = 0x83;
constexpr std::size_t kCommandDataMax = 255;

using CommandData = ByteBuffer<kCommandDataMax>;

// Tag 83 with the values that the card's PDOL asks for; none when it has no PDOL.
bool buildGpoData(ByteView fci, const TlvBuffer& terminalData, CommandData& data)
{
    DolValues values;
    const TagValue pdol = readTag(tag::kPdol, fci);
    if (pdol.found && !buildDol(terminalData, pdol.view(), values)) {
        return false;
    }
    const std::uint8_t head[] = {kCommandTemplate, static_cast<std::uint8_t>(values.size())};
    static_assert(sizeof head <= kCommandDataMax, "there is room for the template's tag and length");
    proven(data.append(ByteView(head, sizeof head)));
    return data.append(values.view());
}

// Where the two results of GET PROCESSING OPTIONS go.
struct Options {
    unsigned char* aip;
    unsigned char* aipLength;
    unsigned char* afl;
    unsigned char* aflLength;

    void setAip(ByteView value) const
    {
        for (std::size_t i = 0; i < kAipSize; ++i) {
            aip[i] = value[i];
        }
        *aipLength = kAipSize;
    }

    void setAfl(ByteView value) const
    {
        value.copyTo(afl);
        *aflLength = static_cast<unsigned char>(value.size());
    }
};

int readResponse(ByteView response, const Options& options)
{
    const ByteView format1 = findObject(tag::kResponseFormat1, response);
    if (!format1.empty()) {
        if (format1[1] == 0) {
            return kCannotProcess;
        }
        const ByteView value = valueOfByteLength(format1);
        options.setAip(value); // of a shorter value the rest reads as zero
        options.setAfl(value.from(kAipSize));
        return 0;
    }
    const ByteView aip = findObject(tag::kAip, response);
    if (!aip.empty() && aip[1] <= kAipSize) {
        options.setAip(aip.from(2));
    }
    const ByteView afl = findObject(tag::kAfl, response);
    if (afl.empty()) {
        return kCannotProcess;
    }
    options.setAfl(valueOfByteLength(afl));
    return 0;
}

// ---------------------------------------------------------------- records

constexpr std::size_t kAflEntrySize = 4;
constexpr std::uint8_t kValueOnlyUpTo = 10;

// What became of a record that an output was given.
enum class Kept { Yes, NoRoom, NoMemory };

// The buffers of vrdk_GetAppData's caller. What does not fit any more is passed over.
class CallersBuffers {
public:
    CallersBuffers(unsigned char* records, int* recordsSize, unsigned char* authData, int* authDataSize)
        : records_{records, recordsSize}, authData_{authData, authDataSize}
    {
        *recordsSize = 0;
        *authDataSize = 0;
    }

    Kept keep(ByteView record) { return append(records_, record) ? Kept::Yes : Kept::NoRoom; }
    void keepAuthenticated(ByteView data) { static_cast<void>(append(authData_, data)); }

private:
    struct Buffer {
        unsigned char* bytes;
        int* size;
    };

    static bool append(const Buffer& buffer, ByteView more)
    {
        const auto used = static_cast<std::size_t>(*buffer.size);
        if (more.size() > VORN_APPDATA_CAPACITY - used) {
            return false;
        }
        more.copyTo(buffer.bytes + used);
        *buffer.size += static_cast<int>(more.size());
        return true;
    }

    Buffer records_;
    Buffer authData_;
};

// The records for the services, which do no offline data authentication.
class WholeRecords {
public:
    explicit WholeRecords(GrowingBytes& records) : records_(records) {}

    Kept keep(ByteView record)
    {
        records_.append(record);
        return records_.complete() ? Kept::Yes : Kept::NoMemory;
    }
    void keepAuthenticated(ByteView) {}

private:
    GrowingBytes& records_;
};

struct AflEntry {
    std::uint8_t raw; // the short file identifier times 8
    int first, last;
    int authenticated; // so many records, from the first on
};

// What the record adds to the authentication data. The raw byte is compared, so only file 1 gives the template's
// value alone (compatibility: "The first file is authenticated without its template").
ByteView authenticationData(std::uint8_t raw, ByteView record)
{
    const ByteView whole = findObject(tag::kRecordTemplate, record);
    if (whole.empty()) {
        return {};
    }
    const ByteView value = objectValue(whole, 1);
    if (raw <= kValueOnlyUpTo) {
        return value;
    }
    return whole.first(1 + lengthField(whole.from(1)).size + value.size());
}

template <class Output>
class RecordReader {
public:
    RecordReader(ByteView wanted, Output output) : output_(output)
    {
        wanted.copyTo(wanted_);
        wantedSize_ = static_cast<int>(wanted.size());
    }

    int readAll(ByteView afl)
    {
        while (state_ == State::Wanting && afl.holds(0, kAflEntrySize)) {
            readEntry({afl[0], afl[1], afl[2], afl[3]});
            afl = afl.from(kAflEntrySize);
        }
        return state_ == State::NoMemory ? VORN_BAD_ARGUMENT : VORN_OK;
    }

private:
    enum class State { Wanting, Complete, NoMemory };

    void readEntry(const AflEntry& entry)
    {
        int counted = 0;
        for (int number = entry.first; number <= entry.last && state_ == State::Wanting; ++number) {
            std::uint8_t bytes[VORN_RESPONSE_MAX] = {};
            std::uint8_t size = 0;
            if (vrdk_ReadRecord(static_cast<std::uint8_t>(number), static_cast<std::uint8_t>(entry.raw >> 3), bytes,
                                &size) != 0) {
                continue;
            }
            const ByteView record(bytes, size);
            if (take(record) && counted < entry.authenticated) {
                output_.keepAuthenticated(authenticationData(entry.raw, record));
                ++counted;
            }
        }
    }

    // True when the record was kept and more is wanted behind it.
    bool take(ByteView record)
    {
        const Kept kept = output_.keep(record);
        if (kept != Kept::Yes) {
            state_ = kept == Kept::NoMemory ? State::NoMemory : state_;
            return false;
        }
        if (!record.empty()) {
            wantedSize_ = vrdk_findapptag(record.data(), static_cast<int>(record.size()), wanted_, wantedSize_);
        }
        state_ = wantedSize_ > 0 ? State::Wanting : State::Complete;
        return state_ == State::Wanting;
    }

    State state_ = State::Wanting;
    std::uint8_t wanted_[255] = {};
    int wantedSize_ = 0;
    Output output_;
};

} // namespace

int readRecords(ByteView afl, ByteView wantedTags, GrowingBytes& records)
{
    return wantedTags.empty() ? int{VORN_OK} : RecordReader(wantedTags, WholeRecords(records)).readAll(afl);
}

} // namespace vorn

using namespace vorn;

extern "C" {

int vrdk_GetProcOptions(const unsigned char* fci, unsigned char fciLength, const unsigned char* terminalData,
                        int terminalDataLength, unsigned char* aip, unsigned char* aipLength, unsigned char* afl,
                        unsigned char* aflLength)
{
    *aipLength = 0;
    CommandData data;
    if (!buildGpoData(ByteView(fci, fciLength), tlvBufferOf(terminalData, terminalDataLength), data)) {
        return kCannotProcess;
    }
    std::uint8_t response[VORN_RESPONSE_MAX] = {};
    std::uint8_t size = 0;
    const unsigned result =
        vrdk_GetProcessOptions(data.data(), static_cast<unsigned char>(data.size()), response, &size);
    if (result != 0) {
        return static_cast<int>(result);
    }
    return readResponse(ByteView(response, size), Options{aip, aipLength, afl, aflLength});
}

int vrdk_GetAppData(const unsigned char* afl, unsigned char aflLength, const unsigned char* wantedTags,
                    unsigned char wantedTagsLength, unsigned char* records, int* recordsLength, unsigned char* authData,
                    int* authDataLength)
{
    const CallersBuffers output(records, recordsLength, authData, authDataLength);
    const ByteView wanted(wantedTags, wantedTagsLength);
    return wanted.empty() ? int{VORN_OK} : RecordReader(wanted, output).readAll(ByteView(afl, aflLength));
}

} // extern "C"

// SPDX-License-Identifier: Apache-2.0
// GET PROCESSING OPTIONS and the records that the AFL names (EMV Book 3, 10.1 and 10.2).
#include "card/dol.h"
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
    data.append(kCommandTemplate);
    data.append(static_cast<std::uint8_t>(values.size()));
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

// An output of vrdk_GetAppData.
class Collected {
public:
    Collected(unsigned char* bytes, int* size) : bytes_(bytes), size_(size) { *size_ = 0; }

    bool append(ByteView more)
    {
        const auto used = static_cast<std::size_t>(*size_);
        if (more.size() > VORN_APPDATA_CAPACITY - used) {
            return false;
        }
        more.copyTo(bytes_ + used);
        *size_ += static_cast<int>(more.size());
        return true;
    }

private:
    unsigned char* bytes_;
    int* size_;
};

struct AflEntry {
    std::uint8_t raw; // the short file identifier times 8
    int first, last;
    int authenticated; // so many records, from the first on
};

// What the record adds to the authentication data. The raw byte is compared, so only file 1 gives the template's
// value alone; hosts build on that.
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

class RecordReader {
public:
    RecordReader(ByteView wanted, Collected records, Collected authData) : records_(records), authData_(authData)
    {
        wanted.copyTo(wanted_);
        wantedSize_ = static_cast<int>(wanted.size());
    }

    // False as soon as nothing is wanted any more.
    bool readEntry(const AflEntry& entry)
    {
        int counted = 0;
        for (int number = entry.first; number <= entry.last; ++number) {
            std::uint8_t bytes[VORN_RESPONSE_MAX] = {};
            std::uint8_t size = 0;
            if (vrdk_ReadRecord(static_cast<std::uint8_t>(number), static_cast<std::uint8_t>(entry.raw >> 3), bytes,
                                &size) != 0) {
                continue;
            }
            const ByteView record(bytes, size);
            if (!records_.append(record)) {
                continue;
            }
            if (!stillWanted(record)) {
                return false;
            }
            if (counted < entry.authenticated) {
                authData_.append(authenticationData(entry.raw, record));
                ++counted;
            }
        }
        return true;
    }

private:
    bool stillWanted(ByteView record)
    {
        if (!record.empty()) {
            wantedSize_ = vrdk_findapptag(record.data(), static_cast<int>(record.size()), wanted_, wantedSize_);
        }
        return wantedSize_ > 0;
    }

    std::uint8_t wanted_[255] = {};
    int wantedSize_ = 0;
    Collected records_;
    Collected authData_;
};

} // namespace
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
    const Collected allRecords(records, recordsLength);
    const Collected authenticated(authData, authDataLength);
    if (wantedTagsLength == 0) {
        return 0;
    }
    RecordReader reader(ByteView(wantedTags, wantedTagsLength), allRecords, authenticated);
    for (std::size_t i = 0; i < aflLength / kAflEntrySize; ++i) {
        const unsigned char* entry = afl + i * kAflEntrySize;
        if (!reader.readEntry({entry[0], entry[1], entry[2], entry[3]})) {
            break;
        }
    }
    return 0;
}

} // extern "C"

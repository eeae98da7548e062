// SPDX-License-Identifier: Apache-2.0
// IC_GetTranDeta: the card's transaction log as lettered fields.
#include "ICC/ICC_COMM_VORN/application.h"
#include "ICC/ICC_COMM_VORN/call_frame.h"
#include "card/tags.h"
#include "public/local_log.h"

#include "ICC_COMM_VORN.h"

#include <cstdio>
#include <cstring>

using namespace vorn;

namespace {

// A field and where its bytes lie in a log record. The layout is fixed; the card's own log format is not asked for.
struct LogField {
    char letter;
    std::size_t at;
    std::size_t size;
    bool hasText; // false: the next field stands where the text would
};

constexpr LogField kFieldsBeforeName[] = {
    {'P', 6, 6, false}, // compatibility: "The authorised amount never reaches the caller"
    {'Q', 12, 6, true}, {'R', 20, 2, true}, {'S', 0, 3, true},
    {'T', 42, 1, true}, {'U', 3, 3, true},  {'V', 18, 2, true},
};
constexpr LogField kCounterField = {'X', 43, 2, true};

constexpr std::size_t kNameAt = 22;
constexpr std::size_t kNameSize = 20;

constexpr std::size_t sizeOf(const LogField& field) { return 4 + (field.hasText ? 2 * field.size : 0); }

constexpr std::size_t groupSizeMax()
{
    constexpr std::size_t kUtf8OfOneByteMax = 3;
    std::size_t size = sizeOf(kCounterField) + 4 + kUtf8OfOneByteMax * kNameSize;
    for (const LogField& field : kFieldsBeforeName) {
        size += sizeOf(field);
    }
    return size;
}
static_assert(ICC_TX_DETAIL_CAPACITY == 255 * groupSizeMax() + 1, "as many records as a log entry can name");

// A log record, zeros behind it.
struct LogRecord {
    std::uint8_t bytes[VORN_RESPONSE_MAX + 1] = {};
    std::uint8_t size = 0;
};

class Detail {
public:
    void add(const LogRecord& record)
    {
        for (const LogField& field : kFieldsBeforeName) {
            addHex(field, record);
        }
        addName(record);
        addHex(kCounterField, record);
    }

    const char* text() const { return reinterpret_cast<const char*>(text_.data()); }
    int length() const { return static_cast<int>(text_.size()); }

private:
    void append(const char* text)
    {
        proven(text_.append(ByteView(reinterpret_cast<const std::uint8_t*>(text), std::strlen(text))));
    }

    void addHead(char letter, std::size_t count)
    {
        char head[16];
        std::snprintf(head, sizeof head, "%c%03d", letter, static_cast<int>(count));
        append(head);
    }

    void addHex(const LogField& field, const LogRecord& record)
    {
        addHead(field.letter, 2 * field.size);
        if (field.hasText) {
            char hex[2 * 6 + 1];
            storeHex(hex, ByteView(record.bytes + field.at, field.size));
            append(hex);
        }
    }

    // The count is that of the card's own bytes up to the first zero, wherever that stands; the text is the name in
    // UTF-8 (compatibility: "The merchant's name is counted in the card's bytes").
    void addName(const LogRecord& record)
    {
        char utf8[512] = {};
        GbkToUtf8(reinterpret_cast<const char*>(record.bytes + kNameAt), kNameSize, utf8, sizeof utf8);
        addHead('W', std::strlen(reinterpret_cast<const char*>(record.bytes + kNameAt)));
        append(utf8);
    }

    ByteBuffer<ICC_TX_DETAIL_CAPACITY> text_; // full but for the NUL at the most
};

// A record that cannot be read ends the log and powers the card off at once.
void readLog(std::uint8_t shortFileId, int records, Detail& detail)
{
    for (int number = 1; number <= records; ++number) {
        LogRecord record;
        if (vrdk_ReadRecord(static_cast<std::uint8_t>(number), shortFileId, record.bytes, &record.size) != VORN_OK) {
            vr_closeicc();
            return;
        }
        detail.add(record);
    }
}

int readDetail(const char* pszAIDlist, int* pnTxDetailLen, char* pszTxDetail)
{
    Application application;
    const Selection selection = selectApplication(pszAIDlist, application);
    if (selection.outcome != Selection::Outcome::Selected) {
        return endCall(CardPower::Off, selection.code());
    }
    const TagValue logEntry = readTag(tag::kLogEntry, application.fciView());
    if (logEntry.size < 2) {
        storeText(pszTxDetail, "");
        return endCall(CardPower::Off, VORN_OBJECT_MISSING);
    }
    Detail detail;
    readLog(logEntry.bytes[0], logEntry.bytes[1], detail);
    storeText(pszTxDetail, detail.text());
    store(pnTxDetailLen, detail.length());
    logService("pnTxDetailLen:%d\r\n", detail.length());
    logService("TxDetail:%s\r\n", detail.text());
    return endCall(CardPower::Off, VORN_OK);
}

} // namespace

extern "C" int IC_GetTranDeta(const char* nPortNo, const char* extendPort, int nBaudRate, int nTimeout, int* pnIcType,
                              const char* pszAIDlist, int* pnTxDetailLen, char* pszTxDetail)
{
    beginTracedCall("IC_GetTranDeta", nPortNo, extendPort, nBaudRate, nTimeout);
    const int icType = pnIcType == nullptr ? 0 : *pnIcType;
    logService("IC_GetTranDeta nPortNo:%s,extendPort:%s,nBaudRate:%d,nTimeout:%d,pnIcType:%d,pszAIDlist:%s\r\n",
               textOf(nPortNo), textOf(extendPort), nBaudRate, nTimeout, icType, textOf(pszAIDlist));
    const int found = openAndAwaitCard(pnIcType, nTimeout, leaveWithoutCard);
    return found != VORN_OK ? found : readDetail(pszAIDlist, pnTxDetailLen, pszTxDetail);
}

// SPDX-License-Identifier: Apache-2.0
// What the tests of the two transaction calls share: the calls with their outputs, the exchanges with a card that
// carries an ordinary transaction through, and the texts for the issuer item by item.
#pragma once

#include "support/card_text.h"
#include "support/scripted_reader.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace vorn::test {

// ---------------------------------------------------------------- data objects

struct DataObject {
    std::string tag;
    std::string value;
};
using DataObjects = std::vector<DataObject>;

// A list that asks for the objects at the sizes they have here.
inline std::string dolOf(const DataObjects& objects)
{
    std::string list;
    for (const DataObject& object : objects) {
        list += object.tag + hexByte(object.value.size() / 2);
    }
    return list;
}

inline std::string valuesOf(const DataObjects& objects)
{
    std::string values;
    for (const DataObject& object : objects) {
        values += object.value;
    }
    return values;
}

inline std::string valueIn(const DataObjects& objects, const std::string& tag)
{
    for (const DataObject& object : objects) {
        if (object.tag == tag) {
            return object.value;
        }
    }
    ADD_FAILURE() << "the test asks for " << tag << ", which its list does not hold";
    return "";
}

inline DataObjects changed(DataObjects objects, const DataObjects& changes)
{
    for (const DataObject& change : changes) {
        for (DataObject& object : objects) {
            if (object.tag == change.tag) {
                object.value = change.value;
            }
        }
    }
    return objects;
}

const std::string kNumber = "9E37A1C4"; // the unpredictable number that most tests give
const std::string kNumberText = "K008" + kNumber;

// The name of the bank as it is stored, to the twentieth byte: each GBK byte as the UTF-8 of a cp1252 character.
const std::string kBankName = "C396C390C2B9C3BAC387C3A0C2BAC38CC2B4C2A2";

// Every object that a card can ask of the terminal, as it is sent when the text gives nothing but kNumber. A card
// gets zeros for DF60: no format is known for it.
inline DataObjects terminalObjects()
{
    return {{"9F02", "000000000000"}, {"9F03", "000000000000"}, {"9F1A", "0156"},
            {"95", "0000000800"},     {"5F2A", "0156"},         {"9C", "01"},
            {"9A", "000000"},         {"9F21", "000000"},       {"9F37", kNumber},
            {"9F66", "F4000000"},     {"9F7A", "01"},           {"9F7B", "000001000000"},
            {"DF60", "00"},           {"9F4E", kBankName},      {"DF69", "01"}};
}

// ---------------------------------------------------------------- the texts for the issuer

const std::string kAid = "A000000333010102";
const std::string kPan = "6217003810022334455F";
const std::string kIssuerData = "07010203A02000010A0100000123450A5B6C7D";

// The items in their order. Those with a tag of their own in the value here may be absent.
struct IssuerText {
    std::string cryptogram = "1F2E3D4C5B6A7988";
    std::string information = "80";
    std::string issuerData = kIssuerData;
    std::string number = kNumber;
    std::string counter = "0137";
    std::string tvr = "0000000800";
    std::string lastOnline = "9F13020122"; // as an item
    std::string date = "000000";
    std::string type = "01";
    std::string amount = "000000000000";
    std::string currency = "0156";
    std::string pan = "5A0A" + kPan;   // as an item
    std::string sequence = "5F340102"; // as an item
    std::string aip = "82027C00";      // as an item
    std::string country = "0156";
    std::string other = "000000000000";
    bool currencyLost = false;

    // The card's answer to GENERATE AC in format 1.
    std::string response() const { return tlv("80", information + counter + cryptogram + issuerData); }

    IssuerText& take(const DataObjects& objects)
    {
        number = valueIn(objects, "9F37");
        tvr = valueIn(objects, "95");
        date = valueIn(objects, "9A");
        type = valueIn(objects, "9C");
        amount = valueIn(objects, "9F02");
        currency = valueIn(objects, "5F2A");
        country = valueIn(objects, "9F1A");
        other = valueIn(objects, "9F03");
        return *this;
    }

    std::string arqc() const
    {
        return front() + "9F0206" + amount + "5F2A02" + currency + pan + sequence + aip + "9F1A02" + country +
               "9F0306" + other + "9F330320A100";
    }

    // The second tag bytes of amount, currency, country and other amount are missing; the currency's is there when
    // its value is the one that stands in for a lost one.
    std::string tc() const
    {
        return front() + "9F06" + amount + (currencyLost ? "5F2A02" : "5F02") + currency + pan + sequence + aip +
               "9F02" + country + "9F06" + other + "9F330320A100";
    }

    // Items up to the transaction type: the same in both.
    std::string front() const
    {
        return "9F2608" + cryptogram + "9F2701" + information + (issuerData.empty() ? "" : tlv("9F10", issuerData)) +
               "9F3704" + number + "9F3602" + counter + "9505" + tvr + lastOnline + "9A03" + date + "9C01" + type;
    }
};

// ---------------------------------------------------------------- exchanges

struct Exchange {
    std::string command; // the reader's command
    std::string payload;
    std::uint8_t status = 0;
};
using Exchanges = std::vector<Exchange>;

inline Exchanges operator+(Exchanges a, const Exchanges& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

enum class Way { Contact = 1, Field = 2 };

// A card's exchanges, through the contact slot or the field.
struct CardTalk {
    Way way = Way::Contact;

    Exchange apdu(const std::string& command, const std::string& response) const
    {
        return {std::string(way == Way::Contact ? "322600" : "3226FF") + withoutBlanks(command),
                withoutBlanks(response), 0};
    }
    Exchange powerOn() const
    {
        return way == Way::Contact ? Exchange{"3222018000", "3B00", 0} : Exchange{"32240180", "3B8001", 0};
    }
    Exchange powerOff() const { return way == Way::Contact ? Exchange{"322300", "", 0} : Exchange{"32250000", "", 0}; }

    Exchanges directory() const
    {
        return {apdu(select(kPseName), ok(directoryFci(kPseName))),
                apdu(readRecord(1, 1), ok(tlv("70", directoryEntry(kAid)))), apdu(readRecord(2, 1), "6A83")};
    }
    Exchange finalSelect(const std::string& pdol = "") const
    {
        return apdu(select(kAid), ok(applicationFci(kAid, pdol.empty() ? "" : tlv("9F38", pdol))));
    }
    Exchange processing(const std::string& pdolValues, const std::string& response) const
    {
        return apdu("80A80000" + hexByte(pdolValues.size() / 2 + 2) + tlv("83", pdolValues), ok(response));
    }
    Exchange record(std::size_t number, const std::string& content) const
    {
        return apdu(readRecord(number, 2), ok(tlv("70", content)));
    }
    Exchange externalAuthenticate(const std::string& data, const std::string& response = "9000") const
    {
        return apdu("00820000" + hexByte(data.size() / 2) + data, response);
    }
    // referenceControl: 80 ARQC, 40 TC, C0, 00 AAC.
    Exchange generate(const std::string& referenceControl, const std::string& dolValues,
                      const std::string& response) const
    {
        return apdu("80AE" + referenceControl + "00" + hexByte(dolValues.size() / 2) + dolValues, ok(response));
    }
    Exchange lastOnline(const std::string& response = "9F130201229000") const { return apdu("80CA9F1300", response); }
};

// AIP and the records 1 and 2 of the short file 2.
const std::string kProcessing = "80067C0010010200";

// ---------------------------------------------------------------- the calls

class TransactionTest : public ReaderTest {
protected:
    // The call and its outputs; what a call does not write stays "as it was" and -77.
    int first(const std::string& txData, const char* aidList = nullptr, int timeout = 5)
    {
        set(arqcBuffer_, ICC_CRYPTOGRAM_CAPACITY);
        set(stateBuffer_, ICC_STATE_CAPACITY);
        length = -77;
        const int result = IC_GenARQC(port(), "E7", 115200, timeout, &icType, aidList, txData.c_str(), &length,
                                      arqcBuffer_.data(), stateBuffer_.data());
        arqc = arqcBuffer_.data();
        state = stateBuffer_.data();
        return result;
    }

    int second(const std::string& txData, const std::string& answer, const std::string& stateText)
    {
        return second(txData.c_str(), answer.c_str(), stateText.c_str());
    }
    int second(const char* txData, const char* answer, const char* stateText)
    {
        set(tcBuffer_, ICC_CRYPTOGRAM_CAPACITY);
        set(scriptBuffer_, ICC_SCRIPT_RESULT_CAPACITY);
        length = -77;
        int result = 0;
        printed = standardOutputOf([&] {
            result = IC_CtlScriptData(port(), "E7", 115200, 5, &icType, txData, answer, &length, tcBuffer_.data(),
                                      scriptBuffer_.data(), stateText);
        });
        tc = tcBuffer_.data();
        scriptResult = scriptBuffer_.data();
        return result;
    }

    void expect(const Exchange& exchange) { reader.command(exchange.command, exchange.payload, exchange.status); }
    void expect(const Exchanges& exchanges)
    {
        for (const Exchange& exchange : exchanges) {
            expect(exchange);
        }
    }
    void setWay(Way way)
    {
        card.way = way;
        icType = static_cast<int>(way);
    }

    // The line went through a whole call: opened, switched, switched back, and left as it was found.
    void expectClosed() const
    {
        EXPECT_TRUE(linkClosed());
        EXPECT_EQ(reader.lineEvents(), kWholeCall);
        EXPECT_TRUE(reader.done()) << "not asked: " << reader.next();
    }

    // What the calls write on entry.
    std::string traceOf(const std::string& call, int timeout = 5) const
    {
        return "----------------------------------------------\r\n" + call + "\r\nnPortNo=" + line.port() +
               " extendPort=E7 nBaudRate=115200 nTimeout=" + std::to_string(timeout) + "\r\nActual input is:\r\n" +
               line.port() + ":9600,N,8,1\r\n";
    }
    std::string firstEntry(const std::string& txData, const std::string& aidList = "", int type = 1,
                           int timeout = 5) const
    {
        return "IC_GenARQC nPortNo:" + line.port() +
               ",extendPort:E7,nBaudRate:115200,nTimeout:" + std::to_string(timeout) +
               ",pnIcType:" + std::to_string(type) + ",pszAIDlist:" + aidList + ",pszTxData:" + txData + "\r\n";
    }
    std::string secondEntry(const std::string& txData, const std::string& answer, const std::string& stateText,
                            int type = 1) const
    {
        return "IC_CtlScriptData nPortNo:" + line.port() +
               ",extendPort:E7,nBaudRate:115200,nTimeout:5,pnIcType:" + std::to_string(type) + ",pszTxData:" + txData +
               ",pszARPC:" + answer + ",icc_tempappdata:" + stateText + "\r\n";
    }
    static std::string errorLine(int number, int result, const std::string& tail = "")
    {
        return "[ICC/ICC_COMM_VORN:" + std::to_string(number) + "]" + std::to_string(result) + tail;
    }

    const std::vector<std::string> kWholeCall = {"ESC $ I 2 at 9600", "ESC $ I 4 at 38400", "ESC $ B ESC % A at 9600"};
    CardTalk card;
    int icType = 1;
    int length = -77;
    std::string arqc, state, tc, scriptResult, printed;

private:
    static void set(std::vector<char>& buffer, std::size_t capacity)
    {
        buffer.assign(capacity, '~');
        std::strcpy(buffer.data(), "as it was");
    }
    std::vector<char> arqcBuffer_, stateBuffer_, tcBuffer_, scriptBuffer_; // on the heap, exactly as large as promised
};

// What a test row is called.
template <class Row>
std::string rowName(const ::testing::TestParamInfo<Row>& info)
{
    std::string name = info.param.name;
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return name;
}

inline std::string wayName(const ::testing::TestParamInfo<Way>& info)
{
    return info.param == Way::Contact ? "Contact" : "Contactless";
}

inline std::string lowerCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

} // namespace vorn::test

// SPDX-License-Identifier: Apache-2.0
// Writes the first inputs of every fuzzer: what simulated readers, cards and an issuer exchange with the library in whole
// calls, in the form that the fuzzers read.   seeds DIRECTORY
#include "sim/cards/emv_card.h"
#include "sim/issuer/issuer.h"
#include "sim/profiles/profile.h"
#include "sim/reader/line_decoder.h"
#include "sim/reader/line_recording.h"
#include "sim/reader/observations.h"
#include "support/logged.h"
#include "support/readers.h"

#include "ICC_COMM_VORN.h"
#include "seam/world.h"

#ifdef VORN_USB_REDIRECTION
#include <usbredirparser.h>
#endif

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>

using namespace vorn;
using sim::Bytes;

namespace {

std::filesystem::path top;

void write(const std::string& fuzzer, const std::string& name, const Bytes& input)
{
    std::filesystem::create_directories(top / fuzzer);
    std::ofstream out(top / fuzzer / name, std::ios::binary);
    out.write(reinterpret_cast<const char*>(input.data()), static_cast<std::streamsize>(input.size()));
    if (!out) {
        throw std::runtime_error("cannot write " + (top / fuzzer / name).string());
    }
}

Bytes bytesOf(const std::string& text) { return Bytes(text.begin(), text.end()); }

Bytes fileOf(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return bytesOf(text.str());
}

ByteView viewOf(const Bytes& bytes) { return ByteView(bytes.data(), bytes.size()); }

Bytes& operator+=(Bytes& to, const Bytes& more)
{
    to.insert(to.end(), more.begin(), more.end());
    return to;
}

Bytes text(std::string characters) // as Input::text reads it
{
    characters.resize(characters.size() + characters.size() % 2, '\0');
    Bytes bytes{static_cast<std::uint8_t>(characters.size() / 2)};
    return bytes += bytesOf(characters);
}

Bytes counted(const Bytes& content)
{
    Bytes bytes{static_cast<std::uint8_t>(content.size())};
    return bytes += content;
}

// A simulated reader on the line of the world.
class Simulated final : public fuzz::Peer {
public:
    explicit Simulated(const sim::Profile& profile) : reader_([] { return std::chrono::milliseconds(0); })
    {
        sim::load(profile, reader_);
        fuzz::beginWorld(this);
        fuzz::attach(fuzz::readerOnUsb());
    }

    // Calls that wait for a card without an end get no more answers at some time.
    void receive(ByteView bytes) override
    {
        if (reader_.exchanges().size() > kExchangesMax) {
            return;
        }
        for (const auto& output : reader_.receive(Bytes(bytes.data(), bytes.data() + bytes.size()), 0)) {
            fuzz::say(viewOf(output.bytes));
        }
    }

    // What was exchanged, as AnsweringReader gives it again.
    Bytes answers() const
    {
        Bytes bytes;
        for (const auto& exchange : reader_.exchanges()) {
            fuzz::appendAnswer(bytes, exchange.status, viewOf(exchange.payload));
        }
        return bytes;
    }

    const std::vector<sim::Reader::Exchange>& exchanges() const { return reader_.exchanges(); }

private:
    static constexpr std::size_t kExchangesMax = 60;

    sim::Reader reader_;
};

// The exchanges as the library's log has them, behind the entry of a call and before those of its end.
std::string logOf(const std::string& begin, const Simulated& reader, const std::string& end)
{
    std::string log = begin + "\r\n";
    for (const auto& exchange : reader.exchanges()) {
        const std::uint8_t operation = exchange.command.size() > 1 ? exchange.command[1] : std::uint8_t{0};
        const std::string mark = operation == 0x22 ? "icc_poweron" : operation == 0x24 ? "picc_Active" : "capdu";
        log += fuzz::logOf(mark, exchange.command, exchange.payload);
    }
    return log + end;
}

void writeLog(const std::string& name, const std::string& log)
{
    Bytes pieces{0x3F, 0x00};
    write("tool_log", name, pieces += bytesOf(log));
    Bytes head{0x00};
    write("tool_recognise", "log-" + name, head += bytesOf(log));
    Bytes number(12);
    write("tool_redact", name, number += bytesOf(log));
}

// The same as a recording of the line.
void writeRecording(const std::string& name, const Simulated& reader)
{
    sim::RecordedLine line;
    std::string lines;
    const auto add = [&](sim::RecordedLine::Kind kind, const Bytes& bytes) {
        line.at += std::chrono::milliseconds(2);
        line.kind = kind;
        line.speed = 38400;
        line.bytes = bytes;
        lines += sim::textOf(line);
    };
    add(sim::RecordedLine::Kind::FromHost, bytesOf("\x1B$I2"));
    for (const auto& exchange : reader.exchanges()) {
        add(sim::RecordedLine::Kind::FromHost, sim::encodeFrame(exchange.command));
        Bytes content{0x32, exchange.status};
        add(sim::RecordedLine::Kind::FromReader, sim::encodeFrame(content += exchange.payload));
    }
    add(sim::RecordedLine::Kind::FromHost, bytesOf("\x1B$I4\x1B$B\x1B%A"));
    Bytes head{0x3F, 0x00};
    head.resize(head.size() + 12); // of an account number
    head.push_back(0x01);
    write("tool_recording", name, head += bytesOf(lines));
}

// The same again, taken apart: kind, slot, command and answer of each.
void writeExchanges(const std::string& name, const Simulated& reader)
{
    constexpr std::uint8_t toContact = 5, powerOn = 1, activate = 2, other = 4; // as the fuzzer reads them
    Bytes exchanges{0x00};
    for (const auto& exchange : reader.exchanges()) {
        const Bytes& command = exchange.command;
        const std::uint8_t operation = command.size() > 1 ? command[1] : std::uint8_t{0};
        if (operation == 0x26 && command.size() > 3) {
            exchanges += {toContact, command[2]};
            exchanges += counted({command.begin() + 3, command.end()});
        } else {
            exchanges += {operation == 0x22 ? powerOn : operation == 0x24 ? activate : other, 0x00};
            exchanges += counted(command);
        }
        exchanges += counted(exchange.payload);
    }
    write("tool_exchange", name, exchanges);
}

// Single answers and commands are seeds for what looks at one of them.
void writeParts(const std::string& name, const Simulated& reader)
{
    writeRecording(name, reader);
    writeExchanges(name, reader);
    Bytes commands{0x20};
    Bytes apdus{0x00};
    int number = 0;
    for (const auto& exchange : reader.exchanges()) {
        const std::string part = name + "-" + std::to_string(number++);
        commands += counted(exchange.command);
        const bool apdu = exchange.command.size() > 3 && exchange.command[1] == 0x26;
        if (apdu) {
            const Bytes command(exchange.command.begin() + 3, exchange.command.end());
            apdus += counted(command);
            Bytes pasted{0x00};
            write("tool_recognise", part,
                  pasted += bytesOf(sim::toHex(command) + "\n" + sim::toHex(exchange.payload) + "\n"));
            Bytes words = counted(command);
            write("tool_values", part, words += exchange.payload);
            Bytes mask{0x00, 0x5A};
            write("tool_mask", part, (mask += counted(command)) += exchange.payload);
        }
        if (apdu && exchange.payload.size() > 4) {
            const Bytes objects(exchange.payload.begin(), exchange.payload.end() - 2);
            Bytes search{0x0A, 0x9F, 0x36, 0x5A, 0x57};
            write("tlv", part, search += objects);
            Bytes view{0x00};
            write("tool_tlv", part, view += objects);
            Bytes list{0x01, 0x5A, 0x08, 0x9F, 0x02, 0x03, 0x01, 0x02, 0x03, 0x9A, 0x00};
            write("dol", part, list += objects);
        } else if (exchange.payload.size() > 2) {
            write("tool_atr", part, exchange.payload);
        }
    }
    write("sim_line", name, commands);
    for (const std::uint8_t abilities : {0x00, 0x02, 0x04, 0x06}) {
        apdus[0] = abilities;
        write("sim_card", name + "-" + std::to_string(abilities), apdus);
    }
    Bytes raw{0x03};
    for (const auto& exchange : reader.exchanges()) {
        Bytes content{0x32, exchange.status};
        const Bytes frame = sim::encodeFrame(content += exchange.payload);
        raw += counted(exchange.command);
        raw.push_back(static_cast<std::uint8_t>((frame.size() + 63) / 64));
        for (std::size_t at = 0; at < frame.size(); at += 31) {
            const std::size_t size = std::min<std::size_t>(31, frame.size() - at);
            raw.push_back(static_cast<std::uint8_t>(size << 3));
            raw.insert(raw.end(), frame.begin() + static_cast<std::ptrdiff_t>(at),
                       frame.begin() + static_cast<std::ptrdiff_t>(at + size));
        }
    }
    write("line", name, raw);
}

void writeCall(const std::string& fuzzer, const std::string& name, Bytes head, const Simulated& reader)
{
    write(fuzzer, name, head += reader.answers());
    writeParts(fuzzer + "-" + name, reader);
}

void cardData(const sim::Profile& profile)
{
    for (const char* const aid : {"", "A000000333010101"}) {
        Simulated reader(profile);
        static char record[ICC_USER_INFO_CAPACITY];
        int type = VORN_OPEN_EITHER;
        int length = 0;
        IC_GetInfo("ttyS1", "", 9600, 3, &type, aid, "ABCDEFGHIJKL", &length, record);
        const std::string name = profile.name + (*aid == '\0' ? "" : "-aid");
        Bytes head{0x00, 0x03};
        head += text(aid);
        writeCall("card_data", name, head += text("ABCDEFGHIJKL"), reader);
        Bytes watched{0x0F};
        for (const auto& exchange : reader.exchanges()) {
            Bytes answer{0x32, exchange.status};
            const Bytes sent = sim::encodeFrame(exchange.command);
            const Bytes received = sim::encodeFrame(answer += exchange.payload);
            for (const auto& [frame, direction] : {std::pair(sent, 0U), std::pair(received, 1U)}) {
                for (std::size_t at = 0; at < frame.size(); at += 127) {
                    const std::size_t size = std::min<std::size_t>(127, frame.size() - at);
                    watched.push_back(static_cast<std::uint8_t>(size << 1 | direction));
                    watched.insert(watched.end(), frame.begin() + static_cast<std::ptrdiff_t>(at),
                                   frame.begin() + static_cast<std::ptrdiff_t>(at + size));
                }
            }
        }
        write("tool_line", name, watched);
        write("tool_lettered", name, bytesOf(record));
        Bytes pasted{0x00};
        write("tool_recognise", "record-" + name, pasted += bytesOf(record));
        writeLog(name, logOf("begin func IC_GetInfo(nPortNo:ttyS1,extendPort:,nBaudRate:9600,nTimeout:3,pnIcType:3,"
                             "pszAIDlist:,pszTaglist:ABCDEFGHIJKL",
                             reader, "pnUsrInfoLen:" + std::to_string(length) + "\r\npnUsrInfoLen:" + record + "\r\n"));
        Bytes selection{static_cast<std::uint8_t>(*aid == '\0' ? 1 : 2)};
        selection += counted(*aid == '\0' ? bytesOf("1PAY.SYS.DDF01") : *sim::fromHex(aid));
        Bytes rest;
        for (const auto& exchange : reader.exchanges()) {
            if (exchange.command.size() > 4 && exchange.command[1] == 0x26) {
                fuzz::appendAnswer(rest, exchange.status, viewOf(exchange.payload));
            }
        }
        write("directory", name, selection += rest);
    }
}

void logDetail(const sim::Profile& profile)
{
    Simulated reader(profile);
    static char detail[ICC_TX_DETAIL_CAPACITY];
    int type = VORN_OPEN_EITHER;
    int length = 0;
    IC_GetTranDeta("ttyS1", "", 9600, 3, &type, "", &length, detail);
    Bytes head{0x00, 0x03};
    writeCall("log_detail", profile.name, head += text(""), reader);
    write("tool_lettered", profile.name + "-log", bytesOf(detail));
    Bytes pasted{0x01};
    write("tool_recognise", "transactions-" + profile.name, pasted += bytesOf(detail));
    writeLog("detail-" + profile.name, logOf("IC_GetTranDeta nPortNo:ttyS1,extendPort:,nBaudRate:9600,nTimeout:3,"
                                             "pnIcType:1,pszAIDlist:",
                                             reader, std::string("TxDetail:") + detail + "\r\n"));
}

void sale(const sim::Profile& profile, const std::string& amount)
{
    const std::string transaction = "P012" + amount + "R0040156T00201S006260102U006120000K00811223344V00854455354";
    Simulated reader(profile);
    static char request[ICC_CRYPTOGRAM_CAPACITY];
    static char state[ICC_STATE_CAPACITY];
    static char certificate[ICC_CRYPTOGRAM_CAPACITY];
    char script[ICC_SCRIPT_RESULT_CAPACITY];
    int type = VORN_OPEN_EITHER;
    int length = 0;
    IC_GenARQC("ttyS1", "", 9600, 3, &type, "", transaction.c_str(), &length, request, state);
    const auto issuer = sim::issuerOf(profile);
    const std::string answer = issuer ? issuer->authorise(request).text : std::string("910A00112233445566773030");
    IC_CtlScriptData("ttyS1", "", 9600, 3, &type, transaction.c_str(), answer.c_str(), &length, certificate, script,
                     state);
    const std::string name = profile.name + "-" + amount;
    Bytes head{0x00, 0x03};
    ((head += text("")) += text(transaction)) += text(answer);
    writeCall("sale", name, head, reader);
    writeLog("sale-" + name,
             logOf("IC_GenARQC nPortNo:ttyS1,extendPort:,nBaudRate:9600,nTimeout:3,pnIcType:3,pszAIDlist:,pszTxData:" +
                       transaction,
                   reader,
                   std::string("pszARQC:") + request + "\r\nicc_tempappdata:" + state + "\r\nIC_CtlScriptData " +
                       "nPortNo:ttyS1,extendPort:,nBaudRate:9600,nTimeout:3,pnIcType:1,pszTxData:" + transaction +
                       ",pszARPC:" + answer + ",icc_tempappdata:" + state + "\r\npnTCLen:1,pszTC:" + certificate +
                       "\r\npszScriptResult:" + script + "\r\n[ICC/ICC_COMM_VORN:5411]0"));
    for (const auto& [part, hex] :
         {std::pair("arqc", request), std::pair("tc", certificate), std::pair("state", state)}) {
        Bytes pasted{0x00};
        write("tool_recognise", part + ("-" + name), pasted += bytesOf(hex));
    }
    Bytes texts{0x01};
    ((((texts += text("ttyS1")) += text(transaction)) += text(answer)) += text(""));
    write("host_texts", "sale-" + name, texts);
    Bytes requestText{0x01};
    write("sim_card", "request-" + name, requestText += bytesOf(request));
    Bytes certificateText{0x01};
    write("sim_card", "certificate-" + name, certificateText += bytesOf(certificate));
    if (const auto bytes = sim::fromHex(answer)) {
        Bytes commands{0x02, 0x00, static_cast<std::uint8_t>(bytes->size())};
        commands += *bytes;
        write("processing", "script-" + name, commands += {0x03, 0x02, 0x90, 0x00});
    }
}

void rawAccess(const sim::Profile& profile)
{
    for (const int type : {1, 2}) {
        Simulated reader(profile);
        static const char* const kApdu = "00A404000E315041592E5359532E4444463031";
        char atr[ICC_ATR_CAPACITY];
        char response[ICC_RESPONSE_CAPACITY];
        IC_PowerOn("ttyS1", "", 9600, 1, type, 1, atr);
        IC_SendAPDU("ttyS1", "", 9600, 1, type, 1, kApdu, response);
        IC_PowerOff("ttyS1", "", 9600, 1, type, 1);
        Bytes head{0x00, static_cast<std::uint8_t>(type | 1 << 3)};
        writeCall("power", profile.name + "-" + std::to_string(type), head += text(kApdu), reader);
        Bytes device{0x00, 0x00, 0x01, 0x01, 0x02, 0x01, 0x81};
        write("usb", profile.name + "-" + std::to_string(type), device += reader.answers());
    }
}

void memoryCard(const sim::Profile& profile)
{
    Simulated reader(profile);
    unsigned char flag = 0;
    char uid[ICC_ATR_CAPACITY];
    static constexpr unsigned char kKey[] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    unsigned char block[ICC_M1_BLOCK_SIZE] = {};
    IC_M1ActiveCard("ttyS1", "", 9600, 1, &flag, uid);
    IC_M1CheckCardPin("ttyS1", "", 9600, 1, 4, "A", kKey);
    IC_M1ReadCard("ttyS1", "", 9600, 1, 4, block);
    IC_M1WriteCard("ttyS1", "", 9600, 1, 4, block);
    IC_M1PowerOff("ttyS1", "", 9600, 1);
    Bytes head{0x00, 0, 1, 2, 3, 4, 0, 1, 2, 4};
    head += Bytes(std::begin(kKey), std::end(kKey));
    head += Bytes(std::begin(block), std::end(block));
    writeCall("memory_card", profile.name, head, reader);
}

void wallet(const sim::Profile& profile)
{
    Simulated reader(profile);
    char context[ICC_CONTEXT_ID_CAPACITY];
    char mode[ICC_WALLET_TEXT_CAPACITY];
    char aid[ICC_WALLET_TEXT_CAPACITY];
    IC_GetZzhHardWalletInfo("ttyS1", "", 9600, 3, context, mode, aid);
    writeCall("wallet", profile.name, {0x00}, reader);
}

void fixedTexts()
{
    int number = 0;
    for (const char* const port :
         {"ttyS1", "/dev/pts/3", "USB", "../../etc/passwd", "/dev/serial/by-path/pci-0:1", "x,9"}) {
        write("tool_port", std::to_string(number++), bytesOf(port));
    }
    for (const char* const request : {R"({"RequestPort": "3"})", R"({"RequestPort": "0"})", R"({"RequestPort": 3})",
                                      R"({"RequestPort": "99999999999"})", "[[[[{}]]]]", ""}) {
        Bytes input{0x00};
        input += text(request);
        write("device", std::to_string(number++),
              input += {0x05, 0x0C, 'D', 'K', '7', '7', '1', '0', ' ', 'V', '1', '.', '0', '6'});
    }
    for (const char* const given :
         {"status=06@3", "silence@4", "noise=5", "delay=200/26", "pull@7", "00A40400 05 ????*", "00B2*",
          "00A4040002 3F00", "long=9/26", "short=4", "check", "noend@2"}) {
        Bytes input{0x00};
        write("sim_transcript", std::to_string(number), input += counted(bytesOf(given)));
        Bytes fault{static_cast<std::uint8_t>(0x20 | std::string(given).size())};
        fault += bytesOf(given);
        write("sim_line", "fault-" + std::to_string(number++), fault += counted({0x32, 0x22, 0x01, 0x80, 0x00}));
    }
    const std::string digits = "6228480012345678901";
    for (std::uint8_t kind = 0; kind < 4; ++kind) {
        Bytes input{kind, 0x01, 0x40};
        write("converters", std::to_string(kind),
              input += bytesOf(kind == 3 ? "\xC0\xCF\xB3\xC7\xC3\xE6\xB9\xDD" : digits));
    }
    write("line", "id", {0x02, 0x60, 0xAA, 0xAA, 0xAA, 0x96, 0x69, 0x00, 0x04, 0x01, 0x02, 0x03, 0x04});
    write("line", "version", {0x01, 0x28, 'V', '1', '.', '0', '6'});
    Bytes card{0x00};
    ((card += text("ttyS1")) += text("A0000003330101")) += text("ABCDEFGHIJKL");
    write("host_texts", "card", card);
    Bytes apdu{0x02};
    (apdu += text("ttyS1")) += {0x01};
    write("host_texts", "apdu", apdu += bytesOf("00A404000E315041592E5359532E4444463031"));
    Bytes port{0x80};
    ((port += text("pts/3")) += text("A0")) += text("A");
    write("host_texts", "port", port);
    const Bytes record = *sim::fromHex("70125A086228480012345678570662284800123F9000");
    Bytes records{0x01, 0x04, 0x08, 0x01, 0x01, 0x01, 0x02, 0x5A, 0x57};
    fuzz::appendAnswer(records, 0, viewOf(record));
    write("processing", "records", records);
    Bytes options{0x00};
    (options += counted(*sim::fromHex("6F10A50E9F380B9F7A019F02065F2A02 9505"))) +=
        counted(*sim::fromHex("9F7A01019F0206000000000100"));
    const Bytes answer = *sim::fromHex("770E82027C0094080801010010010201 9000");
    fuzz::appendAnswer(options, 0, viewOf(answer));
    write("processing", "options", options);
    Bytes commands{0x03, 0x02, 0x11, 0x22, 0x00, 0x08, 0x01};
    for (int i = 0; i < 8; ++i) {
        fuzz::appendAnswer(commands, 0, viewOf(record));
    }
    write("processing", "commands", commands);
    Bytes usb{0x82, 0x00, 0x01, 0x01, 0x02, 0x81, 0x01, 0x00, 0x02, 0x02,
              0x02, 0x81, 0x82, 0x00, 0x01, 0x00, 0x01, 0x12, 0x34, 0x00};
    write("usb", "devices", usb);
    write("usb", "id", Bytes{0x80, 0x00, 0x01, 0x01, 0x02, 0x01, 0x81, 0x00, 0x04, 'V', '1', '.', '0',
                             0x0C, 0xAA, 0xAA, 0xAA, 0x96, 0x69, 0x00, 0x04, 1,    2,   3,   4,   5});
}

#ifdef VORN_USB_REDIRECTION
// A virtual machine that plugs the reader in and asks it for its version.
void redirection()
{
    static Bytes sent;
    usbredirparser* const parser = usbredirparser_create();
    parser->log_func = [](void*, int, const char*) {};
    parser->read_func = [](void*, std::uint8_t*, int) { return 0; };
    parser->write_func = [](void*, std::uint8_t* data, int count) {
        sent.insert(sent.end(), data, data + count);
        return count;
    };
    usbredirparser_init(parser, "machine", nullptr, 0, 0);
    usb_redir_set_configuration_header configuration{1};
    usbredirparser_send_set_configuration(parser, 1, &configuration);
    usb_redir_control_packet_header control{0x80, 0x06, 0x80, 0, 0x0100, 0, 18};
    usbredirparser_send_control_packet(parser, 2, &control, nullptr, 0);
    Bytes question = {0x1B, 'K', 'T', 'L', 'V', 'N'};
    usb_redir_bulk_packet_header in{};
    in.endpoint = 0x81;
    in.length = 64;
    usbredirparser_send_bulk_packet(parser, 3, &in, nullptr, 0);
    usb_redir_bulk_packet_header out{};
    out.endpoint = 0x01;
    out.length = static_cast<std::uint16_t>(question.size());
    usbredirparser_send_bulk_packet(parser, 4, &out, question.data(), static_cast<int>(question.size()));
    usbredirparser_send_bulk_packet(parser, 5, &in, nullptr, 0);
    usbredirparser_send_cancel_data_packet(parser, 5);
    while (usbredirparser_has_data_to_write(parser) > 0 && usbredirparser_do_write(parser) == 0) {}
    usbredirparser_destroy(parser);
    write("sim_usb_peer", "machine", sent);
}
#endif

// A card found, powered, asked, reset and switched off in one slot of the PC/SC driver; the calls as targets/pcsc.cpp
// reads them, the reader's answers behind each.
void driver(const std::string& name, std::uint8_t circumstances, unsigned slot, const Bytes& atr)
{
    constexpr std::uint8_t kNoCard = 0x02;
    enum { Presence, Power, Transmit, Control, Capability, Protocol, Reopen, Time };
    Bytes seed{circumstances, 0x00};
    const auto call = [&](unsigned which, const Bytes& arguments = {}) {
        seed.push_back(static_cast<std::uint8_t>(which | slot << 3));
        seed += arguments;
    };
    const auto answer = [&seed](std::uint8_t status, const Bytes& payload = {}) {
        fuzz::appendAnswer(seed, status, viewOf(payload));
    };
    call(Presence);
    answer(kNoCard);
    answer(kNoCard);
    call(Time, {0x04, 0x00});
    call(Presence);
    answer(0, atr);
    answer(0);
    call(Power, {0x00});
    answer(0, atr);
    call(Protocol, {0x01, 0x00});
    call(Protocol, {0x02, 0x00});
    call(Transmit, {0x00, 0x05, 0x00, 0x84, 0x00, 0x00, 0x08, 0x80, 0x01});
    answer(0, {0x01, 0x02, 0x90, 0x00});
    call(Control, {0x00, 0x00, 0x40});
    call(Control, {0x01, 0x00, 0x40});
    for (const auto& [kind, tag] : {std::pair(9, 0x0303), std::pair(1, 0x0100), std::pair(1, 0x0101),
                                    std::pair(8, 0x0201), std::pair(9, 0x0300), std::pair(10, 0xA007)}) {
        call(Capability, {static_cast<std::uint8_t>(kind), static_cast<std::uint8_t>(tag >> 8),
                          static_cast<std::uint8_t>(tag & 0xFF), 0x40});
    }
    call(Capability, {0x80, 0x0F, 0xAE, 0x01});
    call(Power, {0x01});
    answer(0);
    answer(0, atr);
    call(Transmit, {0x00, 0x04, 0x00, 0xA4, 0x00, 0x00, 0x02, 0x01});
    answer(kNoCard);
    call(Presence);
    call(Power, {0x00});
    answer(0, atr);
    call(Power, {0x02});
    answer(0);
    call(Reopen);
    write("pcsc", name, seed);
}

void drivers()
{
    driver("contact-t0", 0x00, 0, {0x3B, 0x02, 0x14, 0x50});
    driver("contact-t1", 0x00, 0, {0x3B, 0x81, 0x01, 0xAA, 0x2A});
    driver("field", 0x00, 1, {0x09, 0x78, 0x33, 0x88, 0x02, 0x41, 0x42, 0x43, 0x44});
    driver("module", 0x00, 2, {0x3B, 0x00});
    driver("usb", 0x01, 0, {0x3B, 0x80, 0x80, 0x01, 0x01});
}

// Every observation alone, with a value that it may have, and all of them.
void reports()
{
    const auto report = [](const std::string& observations) {
        return bytesOf(R"({"format": "vorn-acceptance", "version": 1, "observations": {)" + observations + "}}");
    };
    std::string all;
    for (const sim::ObservationName& one : sim::observationNames()) {
        const bool number = one.kind == sim::ObservationKind::Number || one.kind == sim::ObservationKind::Time;
        const std::string text = one.kind == sim::ObservationKind::Word    ? one.words.back()
                                 : one.kind == sim::ObservationKind::Reply ? "raw 15"
                                                                           : "12";
        const std::string member = '"' + std::string(one.name) + "\": " + (number ? "24" : '"' + text + '"');
        write("sim_report", one.name, report(member));
        all += (all.empty() ? "" : ", ") + member;
    }
    write("sim_report", "all", report(all));
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: seeds DIRECTORY\n";
        return 2;
    }
    top = argv[1];
    for (const std::string& name : sim::shippedProfiles()) {
        const sim::Profile profile = sim::findProfile(name);
        cardData(profile);
        logDetail(profile);
        for (const char* const amount : {"000000000500", "000000100000", "009999999999"}) {
            sale(profile, amount);
        }
        rawAccess(profile);
        memoryCard(profile);
        wallet(profile);
        write("sim_profile", name, bytesOf(profile.json));
        const std::filesystem::path image = std::filesystem::path(profile.path).replace_extension(".image");
        if (std::filesystem::exists(image)) {
            Bytes seed{0x04};
            write("sim_image", name, seed += fileOf(image));
        }
    }
    fixedTexts();
    drivers();
    reports();
#ifdef VORN_USB_REDIRECTION
    redirection();
#endif
    return 0;
}

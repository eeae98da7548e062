// SPDX-License-Identifier: Apache-2.0
// The description of the attached reader.
#include "ICC/ICC_COMM_VORN/call_frame.h"
#include "link/medium.h"
#include "public/local_log.h"

#include "ICC_COMM_VORN.h"

#include <cJSON.h>
#include <climits>

#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace vorn;

namespace {

constexpr unsigned char kVersionCommand[] = {0x1B, 'K', 'T', 'L', 'V', 'N'};
constexpr int kVersionTimeoutS = 2;
constexpr int kOpenPortFailure = -10;

struct DeviceTexts {
    char version[ICC_DEVICE_TEXT_CAPACITY] = {};
    char date[ICC_DEVICE_TEXT_CAPACITY] = {};
    char serial[ICC_DEVICE_TEXT_CAPACITY] = {};
};

// A number that no int holds is the nearest one: a port that is not there, and never another one.
int portNumber(const char* text)
{
    const long number = std::strtol(text, nullptr, 10);
    return static_cast<int>(number > INT_MAX ? INT_MAX : number < INT_MIN ? INT_MIN : number);
}

// The port that a request names; 0, and whatever is no such request, is USB.
void portOfRequest(const char* request, char* port, std::size_t capacity)
{
    cJSON* parsed = cJSON_Parse(textOf(request));
    const char* value = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(parsed, "RequestPort"));
    const int number = portNumber(textOf(value));
    cJSON_Delete(parsed);
    if (number != 0) {
        std::snprintf(port, capacity, "COM%d", number);
    } else {
        std::snprintf(port, capacity, "USB");
    }
}

// Bytes of the UTF-8 character at the front (RFC 3629); 0 when there is none.
std::size_t characterSize(const unsigned char* text)
{
    static constexpr struct {
        unsigned char first, last;      // of the first byte
        unsigned char second, secondTo; // of the second byte
        std::size_t size;
    } kForms[] = {
        {0x01, 0x7F, 0x00, 0xFF, 1}, {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3},
        {0xE1, 0xEC, 0x80, 0xBF, 3}, {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3},
        {0xF0, 0xF0, 0x90, 0xBF, 4}, {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
    };
    for (const auto& form : kForms) {
        if (text[0] < form.first || text[0] > form.last) {
            continue;
        }
        bool whole = form.size == 1 || (text[1] >= form.second && text[1] <= form.secondTo);
        for (std::size_t i = 2; whole && i < form.size; ++i) {
            whole = (text[i] & 0xC0) == 0x80;
        }
        return whole ? form.size : 0;
    }
    return 0;
}

// A JSON text is UTF-8, whatever a reader calls its version: a byte that belongs to no character becomes a question
// mark, so the text stays as long as it is.
void makeUtf8(char* text)
{
    auto* at = reinterpret_cast<unsigned char*>(text);
    while (*at != '\0') {
        const std::size_t size = characterSize(at);
        if (size == 0) {
            *at = '?';
        }
        at += size == 0 ? 1 : size;
    }
}

// NULL when there is no memory for the whole of it.
cJSON* describe(int result, const DeviceTexts& device)
{
    struct Member {
        const char* key;
        const char* value;
    };
    const Member failure[] = {{"ErrorCode", "-10"}, {"ErrorMessage", "open port fail"}};
    const Member description[] = {
        {"ErrorCode", "0"},          {"ErrorMessage", "success"},       {"DeviceBrand", "VORN"},
        {"DllVersion", "1.0.0.8"},   {"DeviceVersion", device.version}, {"ProductionDate", device.date},
        {"DeviceSN", device.serial}, {"DeviceModel", "DK7710"},
    };
    cJSON* document = cJSON_CreateObject();
    bool whole = document != nullptr;
    const auto add = [&](const Member& member) {
        whole = whole && cJSON_AddStringToObject(document, member.key, member.value) != nullptr;
    };
    if (result == kOpenPortFailure) {
        for (const Member& member : failure) {
            add(member);
        }
    } else {
        for (const Member& member : description) {
            add(member);
        }
    }
    if (!whole) {
        cJSON_Delete(document);
        return nullptr;
    }
    return document;
}

} // namespace

extern "C" {

int GetDevInfo(const char* port, char* version, char* date, char* serial)
{
    choosePort(port);
    const int handle = OpenDev(vr_comportmode, vr_comportparam);
    if (handle == -1) {
        return VORN_OPEN_FAILED;
    }
    WriteBytes(handle, kVersionCommand, sizeof kVersionCommand);
    std::uint8_t text[ICC_DEVICE_TEXT_CAPACITY] = {};
    const int received = readUntilSilence(handle, text, sizeof text - 1, kVersionTimeoutS);
    closeDev(handle);
    if (received == -1) {
        return VORN_NO_REPLY;
    }
    storeText(version, reinterpret_cast<const char*>(text));
    storeText(date, "");
    storeText(serial, "");
    return VORN_OK;
}

// Whatever GetDevInfo returned, short of a code that it never returns, the reply says success: hosts learn of a
// missing reader from the empty version.
int DEV_CommCall(const char* request, void*, char* out, int* outLen)
{
    char port[16];
    portOfRequest(request, port, sizeof port);
    logService("DEV_CommCall");
    logService("%s", port);
    DeviceTexts device;
    const int result = GetDevInfo(port, device.version, device.date, device.serial);
    makeUtf8(device.version);
    cJSON* document = describe(result, device);
    char* text = cJSON_Print(document);
    storeText(out, textOf(text));
    store(outLen, static_cast<int>(std::strlen(textOf(text))));
    cJSON_free(text);
    cJSON_Delete(document);
    return VORN_OK;
}

} // extern "C"

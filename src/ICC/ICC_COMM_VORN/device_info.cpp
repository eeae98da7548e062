// SPDX-License-Identifier: Apache-2.0
// The description of the attached reader.
#include "ICC/ICC_COMM_VORN/call_frame.h"
#include "link/medium.h"
#include "public/local_log.h"

#include "ICC_COMM_VORN.h"

#include <cJSON.h>

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

// The port that a request names; 0, and whatever is no such request, is USB.
void portOfRequest(const char* request, char* port, std::size_t capacity)
{
    cJSON* parsed = cJSON_Parse(textOf(request));
    const char* value = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(parsed, "RequestPort"));
    const int number = std::atoi(textOf(value));
    cJSON_Delete(parsed);
    if (number != 0) {
        std::snprintf(port, capacity, "COM%d", number);
    } else {
        std::snprintf(port, capacity, "USB");
    }
}

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
    const auto add = [document](const Member& member) { cJSON_AddStringToObject(document, member.key, member.value); };
    if (result == kOpenPortFailure) {
        for (const Member& member : failure) {
            add(member);
        }
    } else {
        for (const Member& member : description) {
            add(member);
        }
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
    cJSON* document = describe(result, device);
    char* text = cJSON_Print(document);
    storeText(out, textOf(text));
    store(outLen, static_cast<int>(std::strlen(textOf(text))));
    cJSON_free(text);
    cJSON_Delete(document);
    return VORN_OK;
}

} // extern "C"

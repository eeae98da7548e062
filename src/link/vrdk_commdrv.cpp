// SPDX-License-Identifier: Apache-2.0
// One link at a time, serial or USB: which of them is open is kept in m_portmode, not in the handle.
#include "link/medium.h"

#include "vorn/link.h"

int m_portmode = 0;

namespace vorn {

const Medium& currentMedium() { return m_portmode == 1 ? usbMedium : serialMedium; }

int readUntilSilence(int handle, std::uint8_t* buffer, int capacity, int timeoutS)
{
    return currentMedium().readUntilSilence(handle, buffer, capacity, timeoutS);
}

} // namespace vorn

using namespace vorn;

extern "C" {

int OpenDev(int mode, char* param)
{
    currentMedium().release();
    m_portmode = 0;
    return mode == 0 ? openSerial(param) : openUsb(param);
}

void closeDev(int handle)
{
    const Medium& medium = currentMedium();
    m_portmode = 0;
    medium.close(handle);
}

int WriteBytes(int handle, const void* buf, int n)
{
    if (buf != nullptr && n >= 0) {
        currentMedium().write(handle, static_cast<const std::uint8_t*>(buf), n);
    }
    return n;
}

int ReadBytes_Ex(int handle, unsigned char* buf, int max, unsigned char start, unsigned char end, int timeoutS)
{
    return currentMedium().readFrame(handle, buf, max, start, end, timeoutS);
}

int _VRDK_Readstr(int handle, unsigned char* buf, int timeoutS)
{
    return readUntilSilence(handle, buf, VORN_READSTR_CAPACITY, timeoutS);
}

int _VRDK_ID2_Readstr(int handle, unsigned char* buf, int timeoutS)
{
    return currentMedium().readIdFrame(handle, buf, timeoutS);
}

} // extern "C"

#pragma once

#include <string>

// Connection record of one USB stick.
struct CUsbDeviceStatus {
    std::string m_deviceName;
    bool m_isConnected = false;
    std::string m_errorCode;  // "" when none, else "badFile" or "fileNotFound"
};

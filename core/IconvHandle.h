#pragma once

#include <iconv.h>

// Owns one iconv conversion descriptor.
class CIconvHandle {
public:
    CIconvHandle(const char* to, const char* from) : m_cd(iconv_open(to, from)) {}
    ~CIconvHandle()
    {
        if (IsOpen()) {
            iconv_close(m_cd);
        }
    }
    CIconvHandle(const CIconvHandle&) = delete;
    CIconvHandle& operator=(const CIconvHandle&) = delete;

    bool IsOpen() const { return m_cd != reinterpret_cast<iconv_t>(-1); }
    iconv_t Get() const { return m_cd; }

private:
    iconv_t m_cd;
};

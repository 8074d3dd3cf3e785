#include "core/Error.h"

#include <cerrno>
#include <cstring>
#include <iostream>

std::string CError::GetErrorText() const
{
    if (m_errorCode == 0) {
        return "Success";
    }
    return m_errorText;
}

void CError::SetError(const std::string& text, int code)
{
    const int savedErrno = errno;
    m_errorCode = code != 0 ? code : savedErrno;
    m_errorText = "E: " + text;
    if (code == 0) {
        char buffer[256];
        m_errorText += ' ';
        m_errorText += strerror_r(savedErrno, buffer, sizeof buffer);
    }
    std::cout << m_errorText << "(" << m_errorCode << ")" << std::endl;
}

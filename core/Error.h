#pragma once

#include <string>

// The last failure of the object that carries it: a signed code (0 is
// success) and a text that always begins with "E: ". Setting it also prints
// the text and code on standard output.
class CError {
public:
    CError() = default;
    virtual ~CError() = default;

    std::string GetErrorText() const;
    void SetError(const std::string& text, int code);
    // Back to success; operations call it when they start.
    void ClearError() { m_errorCode = 0; }

    int m_errorCode = 0;
    std::string m_errorText;
};

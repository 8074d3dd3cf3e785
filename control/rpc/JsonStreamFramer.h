#pragma once

#include <cstddef>
#include <string>

namespace Json {
namespace Rpc {

// Cuts a byte stream into top-level JSON value texts by value boundaries,
// not by reads: a value may arrive over many reads, and one read may hold
// several values with or without whitespace between them. Brackets and
// quotes inside strings are tracked, so they never end a value early.
// Anything that is not an object, array or string is cut at the next
// whitespace or bracket and left for the parser to reject.
class JsonStreamFramer {
public:
    explicit JsonStreamFramer(size_t maxPendingBytes) : m_maxPending(maxPendingBytes) {}

    void Append(const char* data, size_t size);

    // Moves the next complete value into `value`; false when none is complete.
    bool Next(std::string& value);

    // True when an incomplete value has grown past the limit.
    bool Overflowed() const;

    size_t PendingBytes() const { return m_buffer.size() - m_start; }

private:
    enum class Kind { None, Container, String, Bare };

    // Consumes one byte inside a string; true when it closes the string.
    bool StringEndsWith(char c);
    bool ScanContainer();
    bool ScanString();
    bool ScanBare();
    void Compact();

    std::string m_buffer;
    size_t m_start = 0;  // first byte of the value being scanned
    size_t m_pos = 0;    // next byte to scan
    Kind m_kind = Kind::None;
    int m_depth = 0;
    bool m_inString = false;
    bool m_escape = false;
    size_t m_maxPending;
};

}  // namespace Rpc
}  // namespace Json

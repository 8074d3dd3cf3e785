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
//
// A text the parser rejects is usually one malformed line ("this is not
// json"), not a run of separate bad values; after SkipMalformedRun the rest
// of it is dropped up to the next line break, or up to the next '{' or '['
// (the likely start of the next request), whichever comes first, so the
// whole run is answered with one error.
class JsonStreamFramer {
public:
    explicit JsonStreamFramer(size_t maxPendingBytes) : m_maxPending(maxPendingBytes) {}

    void Append(const char* data, size_t size);

    // Moves the next complete value into `value`; false when none is complete.
    bool Next(std::string& value);

    // The value last returned by Next did not parse: drop what follows it up
    // to and including the next '\n', or up to the next '{' or '[' (kept),
    // also when those bytes arrive in later reads.
    void SkipMalformedRun();

    // True when an incomplete value has grown past the limit.
    bool Overflowed() const;

    size_t PendingBytes() const { return m_buffer.size() - m_start; }

private:
    enum class Kind { None, Container, String, Bare, Skipping };

    // Consumes one byte inside a string; true when it closes the string.
    bool StringEndsWith(char c);
    bool ScanContainer();
    bool ScanString();
    bool ScanBare();
    bool SkipRun();
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

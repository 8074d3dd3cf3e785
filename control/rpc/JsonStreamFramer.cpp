#include "control/rpc/JsonStreamFramer.h"

namespace Json {
namespace Rpc {

namespace {
bool IsWhitespace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool IsStructural(char c)
{
    return c == '{' || c == '}' || c == '[' || c == ']' || c == '"';
}
}  // namespace

void JsonStreamFramer::Append(const char* data, size_t size)
{
    m_buffer.append(data, size);
}

bool JsonStreamFramer::Overflowed() const
{
    return m_kind != Kind::None && m_kind != Kind::Skipping && PendingBytes() > m_maxPending;
}

void JsonStreamFramer::SkipMalformedRun()
{
    m_kind = Kind::Skipping;
}

bool JsonStreamFramer::Next(std::string& value)
{
    if (m_kind == Kind::Skipping && !SkipRun()) {
        Compact();
        return false;
    }
    if (m_kind == Kind::None) {
        while (m_pos < m_buffer.size() && IsWhitespace(m_buffer[m_pos])) {
            ++m_pos;
        }
        m_start = m_pos;
        if (m_pos == m_buffer.size()) {
            Compact();
            return false;
        }
        const char first = m_buffer[m_pos];
        if (first == '{' || first == '[') {
            m_kind = Kind::Container;
            m_depth = 1;
            ++m_pos;
        } else if (first == '"') {
            m_kind = Kind::String;
            m_inString = true;
            ++m_pos;
        } else if (first == '}' || first == ']') {
            // A stray closer is a value of its own, for the parser to reject.
            ++m_pos;
            value.assign(m_buffer, m_start, 1);
            m_start = m_pos;
            return true;
        } else {
            m_kind = Kind::Bare;
        }
    }

    bool complete = false;
    switch (m_kind) {
    case Kind::Container: complete = ScanContainer(); break;
    case Kind::String: complete = ScanString(); break;
    case Kind::Bare: complete = ScanBare(); break;
    case Kind::None:
    case Kind::Skipping: break;
    }
    if (!complete) {
        Compact();
        return false;
    }
    value.assign(m_buffer, m_start, m_pos - m_start);
    m_start = m_pos;
    m_kind = Kind::None;
    return true;
}

bool JsonStreamFramer::StringEndsWith(char c)
{
    if (m_escape) {
        m_escape = false;
    } else if (c == '\\') {
        m_escape = true;
    } else if (c == '"') {
        m_inString = false;
        return true;
    }
    return false;
}

bool JsonStreamFramer::ScanContainer()
{
    const size_t size = m_buffer.size();
    while (m_pos < size) {
        const char c = m_buffer[m_pos++];
        if (m_inString) {
            StringEndsWith(c);
        } else if (c == '"') {
            m_inString = true;
        } else if (c == '{' || c == '[') {
            ++m_depth;
        } else if ((c == '}' || c == ']') && --m_depth == 0) {
            return true;
        }
    }
    return false;
}

bool JsonStreamFramer::ScanString()
{
    const size_t size = m_buffer.size();
    while (m_pos < size) {
        if (StringEndsWith(m_buffer[m_pos++])) {
            return true;
        }
    }
    return false;
}

bool JsonStreamFramer::ScanBare()
{
    const size_t size = m_buffer.size();
    while (m_pos < size) {
        const char c = m_buffer[m_pos];
        if (IsWhitespace(c) || IsStructural(c)) {
            return true;
        }
        ++m_pos;
    }
    return false;
}

// True when the run has ended: the framer is then back to looking for a
// value. Skipped bytes count as consumed, so a long run holds no memory.
bool JsonStreamFramer::SkipRun()
{
    bool ended = false;
    while (m_pos < m_buffer.size() && !ended) {
        const char c = m_buffer[m_pos];
        if (c == '{' || c == '[') {
            ended = true;  // left in place: it starts the next value
        } else {
            ended = c == '\n';
            ++m_pos;
        }
    }
    m_start = m_pos;
    if (ended) {
        m_kind = Kind::None;
    }
    return ended;
}

void JsonStreamFramer::Compact()
{
    // Drop consumed bytes once they dominate the buffer, so a long-lived
    // connection does not keep every request it ever sent.
    if (m_start > 0 && m_start >= m_buffer.size() / 2) {
        m_buffer.erase(0, m_start);
        m_pos -= m_start;
        m_start = 0;
    }
}

}  // namespace Rpc
}  // namespace Json

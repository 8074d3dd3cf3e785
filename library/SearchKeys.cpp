#include "library/SearchKeys.h"

#include <algorithm>

void CSearchKeys::Clear()
{
    std::string().swap(m_text);
    std::vector<uint32_t>().swap(m_starts);
    std::vector<int64_t>().swap(m_rows);
}

void CSearchKeys::Add(std::string_view key, int64_t row)
{
    m_starts.push_back(static_cast<uint32_t>(m_text.size()));
    m_text.append(key);
    m_text += '\0';
    m_rows.push_back(row);
}

std::vector<int64_t> CSearchKeys::RowsHolding(const std::string& key) const
{
    std::vector<int64_t> rows;
    for (size_t at = m_text.find(key); at != std::string::npos;) {
        const auto next = std::upper_bound(m_starts.begin(), m_starts.end(), at);
        rows.push_back(m_rows[static_cast<size_t>(next - m_starts.begin()) - 1]);
        at = next == m_starts.end() ? std::string::npos : m_text.find(key, *next);
    }
    return rows;
}

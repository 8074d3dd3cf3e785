#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// The search keys (SortKey) of one list, each with its row, held back to
// back in memory in the list's order: a substring search is one pass over
// them rather than a read of a table. Keys never hold a NUL, which ends each
// one here, so a match never spans two.
class CSearchKeys {
public:
    void Clear();
    void Add(std::string_view key, int64_t row);
    // The rows whose key holds `key` (not empty), once each, in list order.
    std::vector<int64_t> RowsHolding(const std::string& key) const;

private:
    std::string m_text;
    std::vector<uint32_t> m_starts;  // where each key starts in m_text
    std::vector<int64_t> m_rows;
};

#include "bench/measuring.h"

#include <cmath>
#include <cstdio>

namespace vexmor::Bench
{
namespace
{
int s_missed = 0;
}

void CTable::print() const
{
    std::vector<std::size_t> widths;
    for (const std::string& title : m_rows.front()) {
        widths.push_back(title.size());
    }
    for (const auto& row : m_rows) {
        for (std::size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], row[column].size());
        }
    }
    const auto printRow = [&widths](const std::vector<std::string>& row) {
        for (std::size_t column = 0; column < widths.size(); ++column) {
            const int width = static_cast<int>(widths[column]);
            const char* const text = column < row.size() ? row[column].c_str() : "";
            std::printf(column == 0 ? "| %-*s |" : " %*s |", width, text);
        }
        std::printf("\n");
    };
    std::printf("\n");
    printRow(m_rows.front());
    for (std::size_t column = 0; column < widths.size(); ++column) {
        std::printf(column == 0 ? "|-%s-|" : "-%s:|", std::string(widths[column], '-').c_str());
    }
    std::printf("\n");
    for (std::size_t row = 1; row < m_rows.size(); ++row) {
        printRow(m_rows[row]);
    }
    std::fflush(stdout);
}

std::string figure(double value)
{
    const double size = std::fabs(value);
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", size >= 100 ? 0 : size >= 10 ? 1 : 2, value);
    return text;
}

std::string verdict(const std::string& aim, bool met)
{
    s_missed += met ? 0 : 1;
    return aim + (met ? ", met" : ", NOT MET");
}

int aimsMissed()
{
    return s_missed;
}

} // namespace vexmor::Bench

#pragma once

#include <QString>

#include <array>
#include <mutex>

/// Access to the class-wide tables of translated texts, which any thread may read while another thread refills them.
namespace vexmor::Cim
{

/// Returns the lock that guards all tables.
inline std::mutex& textLock()
{
    static std::mutex lock;
    return lock;
}

/// Returns a copy of a text; empty for an index outside of the table.
template <std::size_t COUNT>
QString textIn(const QString (&table)[COUNT], int index)
{
    if (index < 0 || index >= static_cast<int>(COUNT)) {
        return {};
    }
    const std::lock_guard<std::mutex> guard(textLock());
    return table[index];
}

/// Fills a table with the translations that `translate` returns for the English texts. `translate` is called without
/// the lock, because a translator of the host application may read texts itself.
template <std::size_t COUNT, typename Translate>
void fillTexts(QString (&table)[COUNT], const char* const (&english)[COUNT], Translate&& translate)
{
    std::array<QString, COUNT> texts;
    for (std::size_t index = 0; index < COUNT; ++index) {
        texts[index] = translate(english[index]);
    }
    const std::lock_guard<std::mutex> guard(textLock());
    for (std::size_t index = 0; index < COUNT; ++index) {
        table[index].swap(texts[index]);
    }
}

} // namespace vexmor::Cim

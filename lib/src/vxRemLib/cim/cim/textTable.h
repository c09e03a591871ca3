#pragma once

#include <QString>

#include <array>
#include <mutex>

/// The class-wide tables of translated texts, which any thread may read while another one fills them anew.
namespace vexmor::Cim
{

/// One lock around all of them.
inline std::mutex& textLock()
{
    static std::mutex lock;
    return lock;
}

/// A copy of the text; empty for an index outside of the table.
template <std::size_t COUNT>
QString textIn(const QString (&table)[COUNT], int index)
{
    if (index < 0 || index >= static_cast<int>(COUNT)) {
        return {};
    }
    const std::lock_guard<std::mutex> guard(textLock());
    return table[index];
}

/// Fills a table with what `translate` makes of the English texts. It is called without the lock: a translator of the
/// host may ask for texts itself.
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

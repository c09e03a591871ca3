#pragma once

#include <QString>

#include <optional>
#include <utility>
#include <variant>

/// How everything outside the contract reports failures: as values. Each program shows them in its own way: by an exit
/// code, in a dialog or in an event log.
namespace vexmor
{

/// What went wrong.
struct SProblem {
    QString text;         ///< a line for the user, in the language of the catalogs that the program has installed
    int code = 0;         ///< result code of the interface; 0: none
    bool isUsage = false; ///< the request itself makes no sense; otherwise something refused it
};

/// The problem of a request that makes no sense.
inline SProblem wrongUsage(const QString& text)
{
    return {text, 0, true};
}

/// Empty when all went well.
using Failure = std::optional<SProblem>;

/// A value, or the problem that prevented it.
template <typename T>
class Result
{
public:
    Result(T value) : m_content(std::in_place_index<0>, std::move(value)) {}
    Result(SProblem problem) : m_content(std::in_place_index<1>, std::move(problem)) {}

    explicit operator bool() const { return m_content.index() == 0; }
    T& operator*() { return std::get<0>(m_content); }
    T* operator->() { return &std::get<0>(m_content); }
    const SProblem& problem() const { return std::get<1>(m_content); }

private:
    std::variant<T, SProblem> m_content;
};

} // namespace vexmor

#pragma once

#include <QString>

#include <optional>
#include <utility>
#include <variant>

/// Failures as values, used by everything outside the contract. Each program shows them in its own way: as an exit
/// code, in a dialog or in an event log.
namespace vexmor
{

/// The reason of a failure.
struct SProblem {
    QString text;         ///< A line for the user, translated by the installed catalogs.
    int code = 0;         ///< Result code of the interface; 0 if none.
    bool isUsage = false; ///< Whether the request itself was wrong; otherwise it was valid and was refused.
};

/// Returns the problem of a request that was wrong itself.
inline SProblem wrongUsage(const QString& text)
{
    return {text, 0, true};
}

/// A problem, or nothing after success.
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

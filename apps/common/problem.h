#pragma once

#include <QCoreApplication>
#include <QString>

#include <optional>
#include <utility>
#include <variant>

namespace vexmor::Apps
{

/// The context in which the catalogs of programs have the texts of common code.
struct Words {
    Q_DECLARE_TR_FUNCTIONS(Common)
};

/// What went wrong, as a value: each program tells it in its own way, by an exit code, in a dialog or in an event log.
struct SProblem {
    QString text;         ///< a line for the user, in the language of the catalogs that the program has installed
    int code = 0;         ///< result code of the interface; 0: none
    bool isUsage = false; ///< what was asked for makes no sense; otherwise somebody refused it
};

/// Empty when all went well.
using Failure = std::optional<SProblem>;

/// A value, or what was wrong.
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

} // namespace vexmor::Apps

#pragma once

#include <QCoreApplication>

namespace vexmor::Bench
{

/// The application object of a host, wherever in a program it is needed.
class CHostApplication
{
public:
    CHostApplication() : m_application(m_argumentCount, m_arguments) {}

private:
    // Qt keeps references to these.
    int m_argumentCount = 1;
    char m_program[6] = "bench";
    char* m_arguments[2] = {m_program, nullptr};
    const QCoreApplication m_application;
};

} // namespace vexmor::Bench

#pragma once

#include <QCoreApplication>
#include <QSettings>
#include <QTemporaryDir>

namespace vexmor::Bench
{

/// The application object of a host, with settings of its own, so that nobody's stored interfaces are touched.
class CHostApplication
{
public:
    explicit CHostApplication(const char* name) : m_application(m_argumentCount, m_arguments)
    {
        QCoreApplication::setOrganizationName(QStringLiteral("bench"));
        QCoreApplication::setApplicationName(QString::fromLatin1(name));
        QSettings::setDefaultFormat(QSettings::IniFormat);
        QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, m_settings.path());
    }

private:
    // Qt keeps references to these.
    int m_argumentCount = 1;
    char m_program[6] = "bench";
    char* m_arguments[2] = {m_program, nullptr};
    const QCoreApplication m_application;
    const QTemporaryDir m_settings;
};

} // namespace vexmor::Bench

#include "apps/cimctl/diagnostics.h"

#include "vxCore/logging.h"

#include <QCoreApplication>

#include <cstdarg>
#include <mutex>

namespace vexmor::Apps::Cimctl
{
namespace
{
CDiagnostics* s_diagnostics = nullptr; ///< The object, for the plain functions that Qt and the library call.
std::recursive_mutex s_mutex;          ///< Protects the pointer; the functions are called from any thread, and nested.

/// Calls `act` with the object in its thread: at once in this thread, otherwise when its event loop runs.
template <typename Act>
void inMainThread(Act act)
{
    const std::lock_guard<std::recursive_mutex> lock(s_mutex);
    if (s_diagnostics != nullptr) {
        QMetaObject::invokeMethod(s_diagnostics, [self = s_diagnostics, act] { act(*self); });
    }
}

QJsonObject eventObject(const QString& name, const QString& text)
{
    return {{QStringLiteral("event"), name}, {QStringLiteral("text"), text}};
}
} // namespace

CDiagnostics::CDiagnostics(COutput& output, bool verbose, int logLevel) : m_output(output), m_verbose(verbose)
{
    s_diagnostics = this;
    qInstallMessageHandler(&CDiagnostics::onQtMessage);
    if (logLevel != 0) {
        CoreLib::Logging::setVxLoggingLevel(logLevel);
        CoreLib::Logging::setVxLoggingHandler(&CDiagnostics::onLogLine);
    }
}

CDiagnostics::~CDiagnostics()
{
    qInstallMessageHandler(nullptr);
    CoreLib::Logging::setVxLoggingHandler(nullptr);
    {
        const std::lock_guard<std::recursive_mutex> lock(s_mutex);
        s_diagnostics = nullptr;
    }
    QCoreApplication::sendPostedEvents(this); // handles messages that other threads have posted
}

void CDiagnostics::warn(const QString& text)
{
    if (text == m_expected) {
        return;
    }
    if (m_holding) {
        m_held.append(text);
        return;
    }
    m_output.report(QStringLiteral("warning: %1").arg(text), eventObject(QStringLiteral("warning"), text),
                    EColor::eYellow);
}

void CDiagnostics::release()
{
    m_holding = false;
    for (const QString& text : std::exchange(m_held, {})) {
        warn(text);
    }
}

void CDiagnostics::drop()
{
    if (!m_verbose) {
        m_held.clear();
    }
    release();
}

void CDiagnostics::onQtMessage(QtMsgType type, const QMessageLogContext& /*context*/, const QString& text)
{
    inMainThread([type, text](CDiagnostics& self) {
        if (type != QtDebugMsg && type != QtInfoMsg) {
            self.warn(text);
        } else if (self.m_verbose) {
            self.m_output.report(QStringLiteral("debug: %1").arg(text), eventObject(QStringLiteral("debug"), text),
                                 EColor::eDim);
        }
    });
}

void CDiagnostics::onLogLine(int level, const char* source, int line, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const QString text = QString::vasprintf(format, arguments);
    va_end(arguments);
    const QString unit = QString::fromLocal8Bit(source).section(QLatin1Char('/'), -1);
    QJsonObject object = eventObject(QStringLiteral("log"), text);
    object.insert(QStringLiteral("level"), level);
    object.insert(QStringLiteral("source"), unit);
    object.insert(QStringLiteral("line"), line);
    inMainThread([object, level, unit, line, text](CDiagnostics& self) {
        self.m_output.report(
            QStringLiteral("log %1 %2:%3: %4").arg(QString::number(level), unit, QString::number(line), text), object,
            EColor::eDim);
    });
}

} // namespace vexmor::Apps::Cimctl

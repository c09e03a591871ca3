#include "apps/cimctl/output.h"

#include "vxCore/logging.h"

#include <QJsonDocument>

#include <cstdarg>
#include <cstdio>
#include <unistd.h>

namespace vexmor::Apps::Cimctl
{
namespace
{
constexpr int FLUSH_DELAY_MS = 50;
constexpr std::size_t BUFFER_SIZE = 65536;

COutput* s_output = nullptr; ///< receives Qt's messages and log lines, which come to plain functions

bool mayColor(int descriptor, bool json)
{
    return !json && isatty(descriptor) == 1 && qEnvironmentVariableIsEmpty("NO_COLOR");
}

QByteArray paintIf(bool color, EColor which, const QByteArray& text)
{
    static const char* const SEQUENCES[] = {"", "\033[1m", "\033[2m", "\033[31m", "\033[32m", "\033[33m", "\033[36m"};
    if (!color || which == EColor::ePlain) {
        return text;
    }
    return SEQUENCES[static_cast<int>(which)] + text + "\033[0m";
}

QByteArray jsonLine(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QJsonObject eventObject(const QString& name, const QString& text)
{
    return {{QStringLiteral("event"), name}, {QStringLiteral("text"), text}};
}
} // namespace

QByteArray printable(const QString& text)
{
    QString shown = text;
    for (QChar& character : shown) {
        if (!character.isPrint()) {
            character = QLatin1Char('?');
        }
    }
    return shown.toLocal8Bit();
}

COutput::COutput(bool json, bool verbose)
    : m_json(json),
      m_verbose(verbose),
      m_terminal(isatty(STDOUT_FILENO) == 1),
      m_color(mayColor(STDOUT_FILENO, json)),
      m_errorColor(mayColor(STDERR_FILENO, json))
{
    std::setvbuf(stdout, nullptr, _IOFBF, BUFFER_SIZE);
    m_flushTimer.setSingleShot(true);
    m_flushTimer.setInterval(FLUSH_DELAY_MS);
    connect(&m_flushTimer, &QTimer::timeout, this, [this] { flush(); });
    s_output = this;
    qInstallMessageHandler(&COutput::onQtMessage);
}

COutput::~COutput()
{
    flush();
    qInstallMessageHandler(nullptr);
    CoreLib::Logging::setVxLoggingHandler(nullptr);
    s_output = nullptr;
}

void COutput::print(const QByteArray& line)
{
    endOpenLine();
    std::fwrite(line.constData(), 1, static_cast<std::size_t>(line.size()), stdout);
    std::fputc('\n', stdout);
    if (!m_flushTimer.isActive()) {
        m_flushTimer.start();
    }
}

void COutput::print(const QJsonObject& object)
{
    print(jsonLine(object));
}

void COutput::printOver(const QByteArray& line)
{
    std::printf("\r%s\033[K", line.constData());
    m_lineOpen = true;
    flush();
}

void COutput::endOpenLine()
{
    if (m_lineOpen) {
        std::fputc('\n', stdout);
        m_lineOpen = false;
    }
}

bool COutput::flush()
{
    m_flushTimer.stop();
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        m_failed = true;
    }
    return !m_failed;
}

void COutput::report(const QString& text, const QJsonObject& object, EColor color)
{
    endOpenLine();
    flush(); // what happened before comes first
    if (m_json) {
        std::fprintf(stderr, "%s\n", jsonLine(object).constData());
        return;
    }
    QByteArrayList lines;
    for (const QString& line : text.split(QLatin1Char('\n'))) {
        lines.append(printable(line));
    }
    std::fprintf(stderr, "%s\n", paintIf(m_errorColor, color, lines.join('\n')).constData());
}

void COutput::warn(const QString& text)
{
    if (m_holding) {
        m_held.append(text);
        return;
    }
    report(QStringLiteral("warning: %1").arg(text), eventObject(QStringLiteral("warning"), text), EColor::eYellow);
}

void COutput::reportFailure(const QString& text, int code)
{
    const QString head = code == 0 ? QStringLiteral("error: ") : QStringLiteral("error %1: ").arg(code);
    QJsonObject object = eventObject(QStringLiteral("failure"), text);
    if (code != 0) {
        object.insert(QStringLiteral("code"), code);
    }
    report(head + text, object, EColor::eRed);
}

QByteArray COutput::paint(EColor color, const QByteArray& text) const
{
    return paintIf(m_color, color, text);
}

void COutput::releaseWarnings(bool show)
{
    m_holding = false;
    for (const QString& text : std::as_const(m_held)) {
        if (show || m_verbose) {
            warn(text);
        }
    }
    m_held.clear();
}

void COutput::showLog(int level)
{
    CoreLib::Logging::setVxLoggingLevel(level);
    CoreLib::Logging::setVxLoggingHandler(&COutput::onLogLine);
}

void COutput::onQtMessage(QtMsgType type, const QMessageLogContext& /*context*/, const QString& text)
{
    if (type == QtDebugMsg || type == QtInfoMsg) {
        if (s_output->m_verbose) {
            s_output->report(QStringLiteral("debug: %1").arg(text), eventObject(QStringLiteral("debug"), text),
                             EColor::eDim);
        }
        return;
    }
    s_output->warn(text);
}

void COutput::onLogLine(int level, const char* source, int line, const char* format, ...)
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
    s_output->report(QStringLiteral("log %1 %2:%3: %4").arg(QString::number(level), unit, QString::number(line), text),
                     object, EColor::eDim);
}

} // namespace vexmor::Apps::Cimctl

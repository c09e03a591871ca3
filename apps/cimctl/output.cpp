#include "apps/cimctl/output.h"

#include "sim/commandLine.h"
#include "vxCore/logging.h"

#include <QJsonDocument>

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <unistd.h>

namespace vexmor::Apps::Cimctl
{
namespace
{
constexpr int FLUSH_DELAY_MS = 50;
constexpr std::size_t BUFFER_SIZE = 65536;

COutput* s_output = nullptr; ///< receives Qt's messages and log lines, which come to plain functions

/// For `s_output` and what it writes with; recursive, since what is called under it may log as well.
std::recursive_mutex s_mutex;
using Lock = std::lock_guard<std::recursive_mutex>;

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
    connect(&m_flushTimer, &QTimer::timeout, this, [this] {
        if (!flush()) {
            Q_EMIT failed();
        }
    });
    s_output = this;
    qInstallMessageHandler(&COutput::onQtMessage);
}

COutput::~COutput()
{
    flush();
    qInstallMessageHandler(nullptr);
    CoreLib::Logging::setVxLoggingHandler(nullptr);
    const Lock lock(s_mutex);
    s_output = nullptr;
}

void COutput::print(const QByteArray& line)
{
    const Lock lock(s_mutex);
    endOpenLine();
    std::fwrite(line.constData(), 1, static_cast<std::size_t>(line.size()), stdout);
    std::fputc('\n', stdout);
    startFlushing();
}

void COutput::print(const QJsonObject& object)
{
    print(jsonLine(object));
}

void COutput::printOver(const QByteArray& line)
{
    const Lock lock(s_mutex);
    std::printf("\r%s\033[K", line.constData());
    m_lineOpen = true;
    startFlushing();
}

void COutput::endOpenLine()
{
    if (m_lineOpen) {
        std::fputc('\n', stdout);
        m_lineOpen = false;
    }
}

void COutput::openLog(const QString& file)
{
    m_log.setFileName(file);
    if (!m_log.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        failRefused(QStringLiteral("%1 cannot be written: %2").arg(file, m_log.errorString()));
    }
}

void COutput::log(const QByteArray& line)
{
    const Lock lock(s_mutex);
    if (m_log.isOpen()) {
        m_log.write(line + '\n');
        startFlushing();
    }
}

void COutput::startFlushing()
{
    if (!m_flushTimer.isActive()) {
        m_flushTimer.start();
    }
}

bool COutput::flush()
{
    const Lock lock(s_mutex);
    // The log first: a reader of stdout that has gone may end the program here.
    if (m_log.isOpen() && (!m_log.flush() || m_log.error() != QFileDevice::NoError)) {
        m_problem = QStringLiteral("%1 cannot be written: %2").arg(m_log.fileName(), m_log.errorString());
    }
    if (!Sim::flushOutput()) {
        m_problem = QStringLiteral("the output cannot be written");
    }
    return m_problem.isEmpty();
}

EExitCode COutput::finish(EExitCode exitCode)
{
    const Lock lock(s_mutex);
    if (flush()) {
        return exitCode;
    }
    reportFailure(m_problem, 0);
    return eRefused;
}

void COutput::report(const QString& text, const QJsonObject& object, EColor color)
{
    const Lock lock(s_mutex);
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
    const Lock lock(s_mutex);
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
    const Lock lock(s_mutex);
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
    const Lock lock(s_mutex);
    if (s_output == nullptr) {
        return;
    }
    if (type != QtDebugMsg && type != QtInfoMsg) {
        s_output->warn(text);
    } else if (s_output->m_verbose) {
        s_output->report(QStringLiteral("debug: %1").arg(text), eventObject(QStringLiteral("debug"), text),
                         EColor::eDim);
    }
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
    const Lock lock(s_mutex);
    if (s_output != nullptr) {
        s_output->report(
            QStringLiteral("log %1 %2:%3: %4").arg(QString::number(level), unit, QString::number(line), text), object,
            EColor::eDim);
    }
}

} // namespace vexmor::Apps::Cimctl

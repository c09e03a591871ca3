#pragma once

// What tests write down their values with, and hear log lines with.

#include "cim/canMessage.h"
#include "vxCore/logging.h"

#include <QtTest>

#include <cstdarg>
#include <cstdio>

namespace vexmor::Test
{

inline QString operator""_s(const char* text, std::size_t size)
{
    return QString::fromUtf8(text, static_cast<int>(size));
}

/// The parts of a text between its bars or, where it has none, its blanks: reads better in a table.
inline QStringList list(const QString& text)
{
    return text.split(QLatin1Char(text.contains(QLatin1Char('|')) ? '|' : ' '));
}

/// A clock that has been started.
struct SClock : QElapsedTimer {
    SClock() { start(); }
};

inline QByteArray hex(const char* digits)
{
    return QByteArray::fromHex(digits);
}

inline Cim::CCanMessage message(std::uint16_t id, const QByteArray& data = {})
{
    Cim::CCanMessage result;
    result.setId(Cim::CCanId::fromValue(id));
    result.setData(0, static_cast<unsigned int>(data.size()),
                   reinterpret_cast<unsigned char*>(const_cast<char*>(data.constData())));
    return result;
}

/// Makes the columns of a data table; what it gives adds a row: auto row = columns<int, QString>("code", "text").
template <typename... Values, typename... Names>
auto columns(Names... names)
{
    static_assert(sizeof...(Values) == sizeof...(names), "a type for each name");
    (QTest::addColumn<Values>(names), ...);
    return
        [](const QByteArray& rowName, const Values&... cells) { (QTest::newRow(rowName.constData()) << ... << cells); };
}

/// A cell of the row that runs.
template <typename Value>
Value cell(const char* column)
{
    return *static_cast<const Value*>(QTest::qData(column, qMetaTypeId<Value>()));
}

/// Makes a data table whose rows are their names alone.
inline void rows(std::initializer_list<const char*> names)
{
    QTest::addColumn<bool>("none");
    for (const char* name : names) {
        QTest::newRow(name) << true;
    }
}

/// The name of the row that runs.
inline QByteArray rowName()
{
    return QTest::currentDataTag();
}

/// Writes a file; gives its name.
inline QString writeFile(const QTemporaryDir& folder, const QByteArray& content)
{
    QFile file(folder.filePath("a.log"_s));
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size()) {
        qFatal("no file");
    }
    return file.fileName();
}

inline QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

struct SOutcome {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

/// Runs what could be typed into a shell.
inline SOutcome run(const QString& command)
{
    QProcess shell;
    shell.start("bash"_s, {"-c"_s, command});
    const bool hasEnded = shell.waitForFinished();
    return {hasEnded ? shell.exitCode() : -1, shell.readAllStandardOutput(), shell.readAllStandardError()};
}

/// While it exists, settings are stored in a folder of its own.
class CPrivateStore
{
public:
    CPrivateStore()
    {
        QSettings::setDefaultFormat(QSettings::IniFormat);
        for (const auto format : {QSettings::NativeFormat, QSettings::IniFormat}) {
            QSettings::setPath(format, QSettings::UserScope, m_folder.path());
        }
        QCoreApplication::setOrganizationName("Vexmor"_s);
        QCoreApplication::setApplicationName("tests"_s);
    }

private:
    const QTemporaryDir m_folder;
};

/// Records the log lines of its scope, each as "LEVEL UNIT: TEXT", the unit without the folders that all share.
class CLogRecorder
{
public:
    explicit CLogRecorder(int level = 0)
    {
        s_lines.clear();
        CoreLib::Logging::setVxLoggingLevel(level);
        CoreLib::Logging::setVxLoggingHandler(record);
    }
    ~CLogRecorder() { CoreLib::Logging::setVxLoggingHandler(nullptr); }
    const QList<QByteArray>& lines() const { return s_lines; }

private:
    static void record(int level, const char* source, int, const char* format, ...)
    {
        char text[256];
        va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(text, sizeof text, format, arguments);
        va_end(arguments);
        const QByteArray unit = QByteArray(source).replace("lib/src/vxRemLib/cim/", "");
        s_lines.append(QByteArray::number(level) + ' ' + unit + ": " + static_cast<const char*>(text));
    }
    inline static QList<QByteArray> s_lines;
};

} // namespace vexmor::Test

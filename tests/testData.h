#pragma once

// Helpers of the tests: values in short notation, tables, and a recorder of log lines.

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

/// Splits a text at its bars or, if it has none, at its blanks. Lists are easier to read this way in a table.
inline QStringList list(const QString& text)
{
    return text.split(QLatin1Char(text.contains(QLatin1Char('|')) ? '|' : ' '));
}

/// A running clock.
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

/// Creates the columns of a data table, and returns a function that adds a row. Example:
/// auto row = columns<int, QString>("code", "text");
template <typename... Values, typename... Names>
auto columns(Names... names)
{
    static_assert(sizeof...(Values) == sizeof...(names), "a type for each name");
    (QTest::addColumn<Values>(names), ...);
    return [](const QByteArray& name, const Values&... cells) { (QTest::newRow(name.constData()) << ... << cells); };
}

/// Returns a cell of the current row.
template <typename Value>
Value cell(const char* column)
{
    return *static_cast<const Value*>(QTest::qData(column, qMetaTypeId<Value>()));
}

/// Creates a data table whose rows have only a name.
inline void rows(std::initializer_list<const char*> names)
{
    QTest::addColumn<bool>("none");
    for (const char* name : names) {
        QTest::newRow(name) << true;
    }
}

/// Returns the name of the current row.
inline QByteArray rowName()
{
    return QTest::currentDataTag();
}

/// Writes a file in a folder, and returns its path.
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

/// Runs a command in a shell and waits for its end.
inline SOutcome run(const QString& command)
{
    QProcess shell;
    shell.start("bash"_s, {"-c"_s, command});
    const bool hasEnded = shell.waitForFinished();
    return {hasEnded ? shell.exitCode() : -1, shell.readAllStandardOutput(), shell.readAllStandardError()};
}

/// Keeps the settings of its scope in a temporary folder.
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

/// Records the log lines of its scope, each as "LEVEL UNIT: TEXT". Units are without their common folders.
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

#pragma once

// What tests write down their values with, and hear log lines with.

#include "cim/canMessage.h"
#include "vxCore/logging.h"

#include <QByteArray>
#include <QList>

#include <cstdarg>
#include <cstdio>

namespace vexmor::Test
{

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

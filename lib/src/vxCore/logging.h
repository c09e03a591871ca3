#pragma once

#include "vxCore/vxCoreExport.h"

namespace vexmor::CoreLib::Logging
{

/// A function that receives the log lines. Its arguments are the level (20 progress, 30 refused operations, 50 errors),
/// the path of the source file without extension, the number of the source line, and a printf-style format with its
/// arguments; text arguments are in the local 8-bit encoding. All of them are valid only during the call.
///
/// The function may be called from any thread that uses the library, several at a time, in the middle of an operation.
/// It must therefore not use interfaces or the plugin object.
using VxLogHandler = void (*)(int level, const char* source, int line, const char* format, ...);

/// Returns the installed handler; null, as at program start, when nothing is logged. Any thread may call this.
VXCORE_EXPORT VxLogHandler VxLoggingHandler();

/// Returns the lowest level that is logged; 30 at program start. Any thread may call this.
VXCORE_EXPORT int VxLoggingLevel();

/// Installs a handler; null removes it. Any thread may call this. A line that is being logged at that moment may still
/// reach the previous handler.
VXCORE_EXPORT void setVxLoggingHandler(VxLogHandler handler);

/// Sets the lowest level that is logged. Any thread may call this.
VXCORE_EXPORT void setVxLoggingLevel(int level);

} // namespace vexmor::CoreLib::Logging

/// Logs a line through the installed handler. SOURCE is the path of the source file without extension. LEVEL is
/// always evaluated, the format and its arguments only when the line is logged.
#define VX_LOG(LEVEL, SOURCE, ...)                                                                                     \
    do {                                                                                                               \
        if (::vexmor::CoreLib::Logging::VxLoggingLevel() <= (LEVEL)) {                                                 \
            if (const auto vxLogHandler = ::vexmor::CoreLib::Logging::VxLoggingHandler()) {                            \
                vxLogHandler((LEVEL), (SOURCE), __LINE__, __VA_ARGS__);                                                \
            }                                                                                                          \
        }                                                                                                              \
    } while (false)

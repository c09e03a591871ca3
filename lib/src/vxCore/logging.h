#pragma once

#include "vxCore/vxCoreExport.h"

namespace vexmor::CoreLib::Logging
{

/// Receives one log line: its level (20 progress, 30 refused operations, 50 errors), the source path of the unit
/// without extension, the source line, and a printf-style format with its arguments; texts are in the local 8-bit
/// encoding. The arguments live only for the length of the call. It may be called from any thread that uses the
/// library, in the middle of an operation: it must leave interfaces and the plugin object alone.
using VxLogHandler = void (*)(int level, const char* source, int line, const char* format, ...);

/// The installed handler, or null (the state at program start): nothing is logged then.
VXCORE_EXPORT VxLogHandler VxLoggingHandler();

/// The threshold: lines below it are not written. 30 at program start.
VXCORE_EXPORT int VxLoggingLevel();

/// Installs a handler; null removes it. Safe from any thread; a line that is being written still reaches the old one.
VXCORE_EXPORT void setVxLoggingHandler(VxLogHandler handler);

/// Sets the threshold. Safe from any thread.
VXCORE_EXPORT void setVxLoggingLevel(int level);

} // namespace vexmor::CoreLib::Logging

/// Writes one log line through the installed handler. The arguments are evaluated only when the line is written.
/// SOURCE is the path of the unit without extension.
#define VX_LOG(LEVEL, SOURCE, ...)                                                                                     \
    do {                                                                                                               \
        if (::vexmor::CoreLib::Logging::VxLoggingLevel() <= (LEVEL)) {                                                 \
            if (const auto vxLogHandler = ::vexmor::CoreLib::Logging::VxLoggingHandler()) {                            \
                vxLogHandler((LEVEL), (SOURCE), __LINE__, __VA_ARGS__);                                                \
            }                                                                                                          \
        }                                                                                                              \
    } while (false)

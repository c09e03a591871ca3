#pragma once

#include <QStandardPaths>
#include <QTest>

/// Skips the test where somebody else's program is missing; on CI it fails instead.
#define REQUIRE_TOOL(name)                                                                                             \
    if (QStandardPaths::findExecutable(QStringLiteral(name)).isEmpty()) {                                              \
        if (qEnvironmentVariableIsSet("CI")) {                                                                         \
            QFAIL("no " name);                                                                                         \
        }                                                                                                              \
        QSKIP("no " name " here");                                                                                     \
    }

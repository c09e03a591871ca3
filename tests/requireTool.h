#pragma once

#include <QStandardPaths>
#include <QTest>

/// Skips the test when a program of another project is not installed. On CI, the test fails instead.
#define REQUIRE_TOOL(name)                                                                                             \
    if (QStandardPaths::findExecutable(QStringLiteral(name)).isEmpty()) {                                              \
        if (qEnvironmentVariableIsSet("CI")) {                                                                         \
            QFAIL("no " name);                                                                                         \
        }                                                                                                              \
        QSKIP("no " name " here");                                                                                     \
    }

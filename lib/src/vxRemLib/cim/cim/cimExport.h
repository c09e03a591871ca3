#pragma once

#include <QtGlobal>

// A wrong version is possible with pkg-config; the CMake package checks the version itself.
#if defined(CIM_QT) && CIM_QT != QT_VERSION_MAJOR
#error "VexmorCim was built for another Qt: use the package vexmor-cim with Qt 5, and vexmor-cim-qt6 with Qt 6"
#endif

/// Marks the classes that host applications use. They are compiled into the plugin library and exported from it, so
/// that host application and plugin share one copy.
#if defined(CIM_BUILD)
#define CIM_EXPORT __attribute__((visibility("default")))
#else
#define CIM_EXPORT
#endif

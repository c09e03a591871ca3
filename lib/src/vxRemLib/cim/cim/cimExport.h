#pragma once

/// Marks the contract classes: compiled into the plugin library and exported from it, so that host and plugin share one
/// copy of them.
#if defined(CIM_BUILD)
#define CIM_EXPORT __attribute__((visibility("default")))
#else
#define CIM_EXPORT
#endif

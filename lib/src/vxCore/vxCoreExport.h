#pragma once

/// Marks what the library vxCore exports to the plugin and to host applications.
#if defined(VXCORE_BUILD)
#define VXCORE_EXPORT __attribute__((visibility("default")))
#else
#define VXCORE_EXPORT
#endif

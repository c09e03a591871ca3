#pragma once

#if defined(VXCORE_BUILD)
#define VXCORE_EXPORT __attribute__((visibility("default")))
#else
#define VXCORE_EXPORT
#endif

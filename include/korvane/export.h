#pragma once

#if defined(_WIN32)
#define KORVANE_API
#else
#define KORVANE_API __attribute__((visibility("default")))
#endif

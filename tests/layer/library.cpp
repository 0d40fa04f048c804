// The test layer as a shared library.
#include "korvane/instrument_library.h"
#include "layer/test_layer.h"

KORVANE_INSTRUMENT_LIBRARY(korvane::TestLayer)

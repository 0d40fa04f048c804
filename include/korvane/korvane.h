// The public face of the library.
#pragma once

#include "korvane/abort_helper.h"
#include "korvane/autotune_status.h"
#include "korvane/cal_mass_list.h"
#include "korvane/enumerations.h"
#include "korvane/error.h"
#include "korvane/spectrum_parser.h"
#include "korvane/status_id.h"
#include "korvane/tune_globals.h"
#include "korvane/tune_params_xml.h"
#include "korvane/tune_prefs_xml.h"

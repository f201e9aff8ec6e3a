// The version banner's text: release number, "_ga", build date and time.
#include "qmx.h"

const char* qmx_get_version() { return "1.0.2.0_ga 06/03/2024 14.22.07"; }

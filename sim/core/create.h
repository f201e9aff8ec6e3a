#pragma once
#include <string>

#include "bed.h"

namespace kvosim {

// Creates a bed in dir (missing or empty): flash images, root/, state.json and an empty log.
// `raw` is the host description it came from, when there is one (for create-time settings).
bool create_bed(const std::string& dir, Host host, const json* raw, std::string& why);

}  // namespace kvosim

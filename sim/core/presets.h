#pragma once
#include <string>

#include "model.h"

namespace kvosim {

extern const char* const preset_names[4];
// Builds a bundled host; false for an unknown name.
bool make_preset(const std::string& name, Host& out);

}  // namespace kvosim

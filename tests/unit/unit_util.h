#pragma once
// Helpers shared by the unit tests.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace unit {

// What f printed on standard output.
template <typename F>
std::string stdout_of(F&& f) {
    testing::internal::CaptureStdout();
    f();
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

}  // namespace unit

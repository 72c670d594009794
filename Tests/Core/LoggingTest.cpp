#include <zem/Core/Logging.h>

#include <gtest/gtest.h>

namespace {

using zem::Logging;

// Read before any test can change it.
const Logging::TraceLevel builtIn = Logging::traceLevel;

TEST(Logging, FirstTraceLevelMeansOff) {
    EXPECT_EQ(Logging::TraceLevel{}, Logging::TraceLevel::off);
    EXPECT_LT(Logging::TraceLevel::off, Logging::TraceLevel::standard);
    EXPECT_LT(Logging::TraceLevel::standard, Logging::TraceLevel::detailed);
}

TEST(Logging, BuiltInTraceLevelIsJustAboveOff) {
    EXPECT_EQ(static_cast<int>(builtIn), static_cast<int>(Logging::TraceLevel::off) + 1);
}

TEST(Logging, HostLowersAndRaisesTheTraceLevel) {
    Logging::traceLevel = Logging::TraceLevel::off;
    EXPECT_EQ(Logging::traceLevel, Logging::TraceLevel::off);
    Logging::traceLevel = Logging::TraceLevel::detailed;
    EXPECT_EQ(Logging::traceLevel, Logging::TraceLevel::detailed);
    Logging::traceLevel = builtIn;
}

} // namespace

#include <gtest/gtest.h>

#include "Zel/Builtin.h"

TEST(Smoke, IntRoundTrip) {
    auto g = Zel::toGenericIf(42);
    EXPECT_EQ(Zel::fromGenericIf<int>(g.ptr()), 42);
    EXPECT_EQ(g->strep(), "42");
}

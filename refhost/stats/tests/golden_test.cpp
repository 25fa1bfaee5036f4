#include <gtest/gtest.h>
TEST(Golden, Placeholder) {}

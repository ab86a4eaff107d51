#include <gtest/gtest.h>
#include "orvutil/cal_time.h"
TEST(Time, Build) {}

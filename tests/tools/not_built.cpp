// Stands in for the tools tests when the cimxml program is not built.
#include <gtest/gtest.h>

TEST(Tools, NotBuilt) { GTEST_SKIP() << "cimxml is not built: CLI11 or nlohmann-json was not found"; }

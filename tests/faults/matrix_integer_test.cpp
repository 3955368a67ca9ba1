// MatrixInteger when memory runs short.
#include "grid_fault_tests.h"

namespace ko_test {

// The integers have neither arrays nor iterators.
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(FloatGridFaultTest);
INSTANTIATE_TYPED_TEST_SUITE_P(MatrixInteger, GridFaultTest, MatrixIntegerFamily);

} // namespace ko_test

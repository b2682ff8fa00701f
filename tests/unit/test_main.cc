// Entry of every unit test binary: gives the tests the build's binary and source folders (unless
// the environment names others) and runs them.
#include <gtest/gtest.h>
#include <stdlib.h>

int main(int argc, char** argv) {
  setenv("TESSERA_BIN", TESSERA_TEST_BIN_DIR, 0);
  setenv("TESSERA_SOURCE", TESSERA_TEST_SOURCE_DIR, 0);
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
